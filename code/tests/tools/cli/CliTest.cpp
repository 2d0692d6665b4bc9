// velmora-identity run as a subprocess, as a user runs it, against the test identity server.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/TempDir.h"
#include "tools/server/TestIdentityServer.h"

extern char** environ;

namespace VelmoraTest {
namespace {

using nlohmann::json;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;
using VelmoraTestServer::Fault;
using VelmoraTestServer::RecordedRequest;

const std::string ORG = "ORG42@VelmoraOrg";

struct CliResult {
    int exit_code{-1};
    std::string out;
    std::string err;
    std::string FirstErrorLine() const { return err.substr(0, err.find('\n')); }
};

std::string ReadFile(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

/// The value of the "name: value" line of the human record.
std::string FieldOf(const std::string& text, const std::string& name) {
    const size_t start = text.find(name + ": ");
    if (start == std::string::npos) return "";
    const size_t value = start + name.size() + 2;
    return text.substr(value, text.find('\n', value) - value);
}

std::string Trimmed(const std::string& text) {
    return text.substr(0, text.find_last_not_of('\n') + 1);
}

class CliTest : public ::testing::Test {
protected:
    /// Runs velmora-identity as a user would: stdin from /dev/null, stdout to a file, stderr to a
    /// file or, on a `terminal`, to a pseudo-terminal as in an interactive shell.
    CliResult Run(std::vector<std::string> arguments, bool terminal = false) const {
        arguments.insert(arguments.begin(), VELMORA_CLI_PATH);
        std::vector<char*> argv;
        for (auto& argument : arguments) argv.push_back(argument.data());
        argv.push_back(nullptr);
        const std::string out = dir.File("cli.out");
        const std::string err = dir.File("cli.err");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        int master = -1;
        int slave = -1;
        if (terminal && openpty(&master, &slave, nullptr, nullptr, nullptr) == 0) {
            posix_spawn_file_actions_adddup2(&actions, slave, 2);
            posix_spawn_file_actions_addclose(&actions, master);
        } else {
            posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        }
        CliResult result;
        pid_t pid = 0;
        int status = 0;
        if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0 && waitpid(pid, &status, 0) == pid)
            result.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        posix_spawn_file_actions_destroy(&actions);
        result.out = ReadFile(out);
        if (master < 0) {
            result.err = ReadFile(err);
            return result;
        }
        // With the child gone and our end of the slave closed, the master gives what is left, then EIO.
        close(slave);
        char buffer[512];
        for (ssize_t n; (n = read(master, buffer, sizeof buffer)) > 0;) result.err.append(buffer, n);
        close(master);
        return result;
    }
    /// A run that must succeed; its stdout.
    std::string Ok(const std::vector<std::string>& arguments) const {
        CliResult result = Run(arguments);
        EXPECT_EQ(result.exit_code, 0) << result.err;
        return result.out;
    }
    /// The global options of a user who points the client at the test server.
    std::vector<std::string> With(std::vector<std::string> arguments, const std::string& timeout = "20") const {
        arguments.insert(arguments.begin(), {"--data-dir", DataDir(), "--server", server.Host(), "--org", ORG,
                                             "--no-tls", "--timeout", timeout});
        return arguments;
    }
    /// Only the data folder: what was given once is kept there.
    std::vector<std::string> Later(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"--data-dir", DataDir(), "--timeout", "20"});
        return arguments;
    }
    std::string DataDir() const { return dir.File("data"); }
    std::vector<RecordedRequest> RequestsTo(const std::string& path) const {
        std::vector<RecordedRequest> found = server.Requests();
        found.erase(std::remove_if(found.begin(), found.end(), [&](auto& request) { return request.path != path; }),
                    found.end());
        return found;
    }
    bool Sent(const std::string& key, const std::string& value) const {
        for (const auto& request : server.Requests()) {
            auto range = request.all_params.equal_range(key);
            if (std::any_of(range.first, range.second, [&](auto& param) { return param.second == value; })) return true;
        }
        return false;
    }

    TempDir dir;
    VelmoraTestServer::TestIdentityServer server;
};

TEST_F(CliTest, SyncGetAndAppendUrlAcrossProcessesWithPushTokenAdvertisingIdAndUserIdentifier) {
    const std::string sync = Ok(With({"sync", "crm=alice:1"}));
    const std::string mid = FieldOf(sync, "mid");
    ASSERT_THAT(mid, MatchesRegex("[0-9]{38}")) << sync;
    EXPECT_THAT(sync, HasSubstr("crm=alice state 1 (authenticated)"));
    EXPECT_THAT(sync, HasSubstr("blob: test-blob"));  // the server's answer was applied
    EXPECT_TRUE(Sent("d_cid_ic", "crm\001alice\0011"));
    for (int process = 0; process < 2; ++process) EXPECT_EQ(Trimmed(Ok(Later({"get", "mid"}))), mid);
    EXPECT_EQ(json::parse(Ok(Later({"get", "ids", "--json"}))).at("ids"),
              json::parse(R"([{"origin": "d_cid_ic", "type": "crm", "id": "alice", "state": 1}])"));

    EXPECT_THAT(Ok(Later({"append-url", "https://shop.example/a?b=1#frag"})),
                MatchesRegex("https://shop\\.example/a\\?b=1&velmora_mc=TS%3D[0-9]+%7COCMID%3D" + mid +
                             "%7COCORGID%3DORG42%40VelmoraOrg#frag\n"));
    EXPECT_THAT(json::parse(Ok(Later({"--json", "append-url", "https://shop.example/?"}))).at("url").get<std::string>(),
                StartsWith("https://shop.example/?velmora_mc=TS%3D"));

    EXPECT_THAT(Ok(Later({"config", "identity.adidEnabled=true"})), HasSubstr("identity.adidEnabled = true\n"));
    EXPECT_THAT(Ok(Later({"sync", "--push", "token-1", "--adid", "ad-7"})),
                AllOf(HasSubstr("push: token-1\n"), HasSubstr("adid: ad-7\n")));
    EXPECT_TRUE(Sent("d_cid", "20920\001token-1"));
    Ok(Later({"sync", "--force"}));
    Ok(Later({"set-vid", "user 1"}));
    EXPECT_EQ(Ok(Later({"get", "vid"})), "user 1\n");
}

TEST_F(CliTest, AnUnansweredSyncTimesOutAnnouncedOnATerminalOnlyAndStaysQueuedUntilCleared) {
    // The boot's forced sync is answered late, inside the wait, and must not pass for the
    // answer to this sync, which the server refuses.
    Fault late;
    late.path = "/id";
    late.delay_ms = 1000;
    server.PushFault(late);
    Fault busy;
    busy.path = "/id";
    busy.status = 503;
    server.SetDefaultFault(busy);

    CliResult sync = Run(With({"sync", "crm=bob"}, "3"));
    EXPECT_EQ(sync.exit_code, 1);
    EXPECT_EQ(sync.err, "velmora-identity: timed out after 3 s waiting for the identity server's answer from " +
                            server.Host() + "\n");
    EXPECT_EQ(RequestsTo("/id").size(), 2u);

    const json rows = json::parse(Ok(Later({"queue", "list", "--json"}))).at("rows");
    for (const auto& row : rows) EXPECT_GE(row.at("age_seconds").get<int64_t>(), 0);
    auto bob = std::find_if(rows.begin(), rows.end(), [](const json& row) {
        return row.at("url").get<std::string>().find("d_cid_ic=crm%01bob%010") != std::string::npos;
    });
    ASSERT_NE(bob, rows.end()) << rows;
    EXPECT_GT(bob->at("event_number").get<int>(), 0);
    EXPECT_FALSE(bob->at("pair_id").get<std::string>().empty());
    EXPECT_THAT(Ok(Later({"queue"})), HasSubstr("d_cid_ic=crm%01bob%010"));
    EXPECT_EQ(Ok(Later({"queue", "clear"})),
              "cleared " + std::to_string(rows.size()) + (rows.size() == 1 ? " row\n" : " rows\n"));
    EXPECT_EQ(Ok(Later({"queue", "list"})), "(no rows)\n");
    CliResult terminal = Run(With({"sync", "crm=frank"}, "1.5"), true);
    EXPECT_EQ(terminal.exit_code, 1);
    EXPECT_THAT(terminal.err,
                HasSubstr("waiting for the identity server's answer from " + server.Host() + " (up to 1.5 s)..."));
}

TEST_F(CliTest, OptingOutTellsTheServerAndWipesTheRecord) {
    Ok(With({"sync", "crm=carol:1"}));
    const std::string mid = Trimmed(Ok(Later({"get", "mid"})));
    EXPECT_THAT(Ok(Later({"privacy", "optedout"})),
                AllOf(HasSubstr("server told: GET http://" + server.Host() + "/veloptout.jpg?d_mid=" + mid +
                                "&d_orgid=ORG42%40VelmoraOrg"),
                      HasSubstr("record wiped: mid \"\"")));
    // The request left before the process ended.
    ASSERT_EQ(RequestsTo("/veloptout.jpg").size(), 1u);
    EXPECT_EQ(RequestsTo("/veloptout.jpg")[0].params.at("d_mid"), mid);

    EXPECT_EQ(Ok(Later({"get", "mid"})), "\n");
    EXPECT_EQ(Ok(Later({"privacy"})), "optedout\n");
    CliResult refused = Run(Later({"sync", "crm=carol"}));
    EXPECT_EQ(refused.exit_code, 1);
    EXPECT_THAT(refused.FirstErrorLine(), HasSubstr("opted out"));
    EXPECT_EQ(json::parse(Ok(Later({"--json", "privacy", "optedin"}))), json({{"privacy", "optedin"}}));
}

TEST_F(CliTest, UsageErrorsNameTheProblemAndExitTwo) {
    for (const auto& [arguments, message] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"frobnicate"}, "unknown subcommand 'frobnicate'"},
             {{"--data-dir", "x", "frobnicate"}, "unknown subcommand 'frobnicate'"},
             {{"sync", "crm"}, "'crm' is not TYPE=ID[:STATE] (no '=')"},
             {{"sync", "crm=alice:3"}, "the state 3 is not 0, 1 or 2"},
             {{"sync", "crm=alice:-1"}, "the state -1 is not 0, 1 or 2"},
             {{"sync", "=alice"}, "no id type"},
             {{"--timeout", "abc", "get"}, "--timeout: 'abc' is not a number of seconds"},
             {{"get", "--timeout", "0"}, "the timeout must be above 0"},
             {{"get", "colour"}, "colour"},
             {{"--server", "bad host", "get"}, "--server: 'bad host' is not HOST[:PORT]"},
             {{"config", "novalue"}, "'novalue' is not KEY=VALUE"},
             {{"privacy", "maybe"}, "maybe"},
             {{}, "A subcommand is required"},
         }) {
        SCOPED_TRACE(message);
        CliResult result = Run(arguments);
        EXPECT_EQ(result.exit_code, 2);
        EXPECT_THAT(result.FirstErrorLine(), AllOf(StartsWith("velmora-identity: "), HasSubstr(message)));
        EXPECT_THAT(result.err, HasSubstr("\nUsage: velmora-identity"));
        EXPECT_EQ(result.out, "");
    }
    EXPECT_THAT(Ok({"--help"}), HasSubstr("append-url"));
    Ok({"sync", "--help"});
    EXPECT_THAT(Ok({"--version"}), StartsWith("velmora-identity "));
}

// Each failure exits 1 with one line naming it, and leaves the record and the configuration as
// they were; then the configuration is shown and changed from a file and the command line.
TEST_F(CliTest, BadInputFailsWithOneLineAndLosesNothingAndConfigChangesAreKept) {
    Ok(With({"sync", "crm=dave:1"}));
    const std::string before = Ok(Later({"--json", "get", "all"}));
    const std::string plain = dir.File("plain-file");
    std::ofstream(plain) << "not a folder";
    const std::string broken = dir.File("broken.json");
    std::ofstream(broken) << "{\"ondaraCloud.org\": ";
    const std::string nested = dir.File("nested.json");
    std::ofstream(nested) << R"({"ondaraCloud.org": {"a": 1}})";
    for (const auto& [arguments, line] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"--data-dir", plain + "/data", "get", "mid"}, "cannot use the data folder " + plain},
             {Later({"config", "--file", broken}), "the configuration file " + broken + " is not a JSON object"},
             {Later({"config", "--file", nested}), nested + ": the value of \"ondaraCloud.org\" is not a string"},
             {{"--data-dir", dir.File("bare"), "--timeout", "0.5", "sync", "crm=erin"},
              "timed out after 0.5 s waiting for the configuration"},
         }) {
        SCOPED_TRACE(line);
        CliResult result = Run(arguments);
        EXPECT_EQ(result.exit_code, 1);
        EXPECT_THAT(result.err, StartsWith("velmora-identity: " + line));
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }
    EXPECT_EQ(Ok(Later({"--json", "get", "all"})), before);

    json config = json::parse(Ok(Later({"--json", "config"})));
    EXPECT_EQ(config.at("ondaraCloud.org"), ORG);
    EXPECT_EQ(config.at("global.ssl"), false);
    const std::string file = dir.File("more.json");
    std::ofstream(file) << R"({"ondaraCloud.org": "OTHER@VelmoraOrg", "audience.server": "aud.example"})";
    config = json::parse(Ok(Later({"--json", "config", "--file", file, "audience.server=null"})));
    EXPECT_EQ(config.at("ondaraCloud.org"), "OTHER@VelmoraOrg");
    EXPECT_FALSE(config.contains("audience.server"));  // the command line overrides the file
    EXPECT_EQ(json::parse(Ok(Later({"--json", "config"}))), config);
}

TEST_F(CliTest, DemoWalksThroughAndOptsOut) {
    EXPECT_THAT(Ok({"--data-dir", DataDir(), "demo"}),
                AllOf(HasSubstr("crm=alice-42 state 1 (authenticated)"), HasSubstr("GET /veloptout.jpg?d_mid="),
                      HasSubstr("record wiped: mid \"\"")));
}

}  // namespace
}  // namespace VelmoraTest
