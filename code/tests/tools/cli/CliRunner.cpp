#include "tests/tools/cli/CliRunner.h"

#include <fcntl.h>
#include <pty.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

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

namespace {

CliResult Run(const std::vector<std::string>& arguments, const std::string& scratch_dir, bool terminal) {
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
    int master = -1;
    int slave = -1;
    if (terminal && openpty(&master, &slave, nullptr, nullptr, nullptr) == 0) {
        posix_spawn_file_actions_adddup2(&actions, slave, 2);
        posix_spawn_file_actions_addclose(&actions, master);
    } else {
        posix_spawn_file_actions_addopen(&actions, 2, err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    }
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
    if (master < 0) {
        result.err = ReadFile(err_path);
        return result;
    }
    // With the child gone and our end of the slave closed, the master gives what is left, then EIO.
    ::close(slave);
    char buffer[512];
    ssize_t n;
    while ((n = ::read(master, buffer, sizeof buffer)) > 0) result.err.append(buffer, static_cast<size_t>(n));
    ::close(master);
    return result;
}

}  // namespace

CliResult RunCli(const std::vector<std::string>& arguments, const std::string& scratch_dir) {
    return Run(arguments, scratch_dir, false);
}

CliResult RunCliOnTerminal(const std::vector<std::string>& arguments, const std::string& scratch_dir) {
    return Run(arguments, scratch_dir, true);
}

}  // namespace VelmoraTest
