#include "tests/tools/cli/CliRunner.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <fstream>
#include <sstream>

extern char** environ;

namespace VelmoraTest {

namespace {

std::string ReadFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace

std::string CliResult::FirstErrorLine() const {
    return err.substr(0, err.find('\n'));
}

CliResult RunCli(const std::vector<std::string>& arguments, const std::string& scratch_dir) {
    const std::string out_path = scratch_dir + "/cli.out";
    const std::string err_path = scratch_dir + "/cli.err";
    std::vector<std::string> argv_strings = {VELMORA_CLI_PATH};
    argv_strings.insert(argv_strings.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& argument : argv_strings) argv.push_back(argument.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    CliResult result;
    pid_t pid = 0;
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0) {
        int status = 0;
        while (waitpid(pid, &status, 0) < 0) {
        }
        result.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    posix_spawn_file_actions_destroy(&actions);
    result.out = ReadFile(out_path);
    result.err = ReadFile(err_path);
    return result;
}

}  // namespace VelmoraTest
