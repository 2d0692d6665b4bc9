// velmora-identity run as a subprocess, as a user runs it, against the test identity server.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/TempDir.h"
#include "tools/server/TestIdentityServer.h"

namespace VelmoraTest {
namespace {

using nlohmann::json;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;
using VelmoraTestServer::Fault;

const std::string ORG = "ORG42@VelmoraOrg";

struct CliResult {
    int exit_code{-1};
    std::string out;
    std::string err;
    std::string FirstErrorLine() const { return err.substr(0, err.find('\n')); }
};

std::string Read(const std::string& path) {
    return {std::istreambuf_iterator<char>(std::ifstream(path).rdbuf()), {}};
}

class CliTest : public ::testing::Test {
protected:
    /// Runs velmora-identity as a user would: stdin from /dev/null, stdout to a file, stderr to a
    /// file or, on a `terminal`, to a pseudo-terminal (script(1)) as in an interactive shell. No
    /// argument holds a quote.
    CliResult Run(const std::vector<std::string>& arguments, bool terminal = false) const {
        std::string command = "'" VELMORA_CLI_PATH "'";
        for (const auto& argument : arguments) command += " '" + argument + "'";
        command += " >" + dir.File("cli.out");
        command = terminal ? "script -qec \"" + command + "\" /dev/null >" + dir.File("cli.err") + " 2>&1"
                           : command + " 2>" + dir.File("cli.err");
        const int exit_code = WEXITSTATUS(std::system((command + " </dev/null").c_str()));
        return {exit_code, Read(dir.File("cli.out")), Read(dir.File("cli.err"))};
    }
    /// A run that must succeed; its stdout.
    std::string Ok(const std::vector<std::string>& arguments) const {
        CliResult result = Run(arguments);
        EXPECT_EQ(result.exit_code, 0) << result.err;
        return result.out;
    }
    /// The global options of a user who points the client at the test server.
    std::vector<std::string> With(std::vector<std::string> arguments, const std::string& timeout = "20") const {
        arguments.insert(arguments.begin(), {"--data-dir", dir.File("data"), "--server", server.Host(), "--org", ORG,
                                             "--no-tls", "--timeout", timeout});
        return arguments;
    }
    /// Only the data folder: what was given once is kept there.
    std::vector<std::string> Later(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {"--data-dir", dir.File("data"), "--timeout", "20"});
        return arguments;
    }

    TempDir dir;
    VelmoraTestServer::TestIdentityServer server;
};

// One data folder across processes: sync, get, append-url, push token, advertising id and user
// identifier; bad input that loses nothing; opting out; the configuration changed.
TEST_F(CliTest, SyncGetAppendUrlBadInputOptOutAndConfigurationAcrossProcesses) {
    const std::string sync = Ok(With({"sync", "crm=alice:1"}));
    const std::string mid = Ok(Later({"get", "mid"}));
    ASSERT_THAT(mid, MatchesRegex("[0-9]{38}\n"));
    EXPECT_THAT(sync, AllOf(HasSubstr("mid: " + mid), HasSubstr("crm=alice state 1 (authenticated)"),
                            HasSubstr("blob: test-blob")));  // the server's answer was applied
    EXPECT_EQ(json::parse(Ok(Later({"get", "ids", "--json"}))).at("ids"),
              json::parse(R"([{"origin": "d_cid_ic", "type": "crm", "id": "alice", "state": 1}])"));
    EXPECT_THAT(
        Ok(Later({"append-url", "https://shop.example/a?b=1#frag"})),
        MatchesRegex("https://shop\\.example/a\\?b=1&velmora_mc=TS.*OCMID%3D" + mid.substr(0, 38) + ".*#frag\n"));

    EXPECT_THAT(Ok(Later({"config", "identity.adidEnabled=true"})), HasSubstr("identity.adidEnabled = true\n"));
    EXPECT_THAT(Ok(Later({"sync", "--push", "token-1", "--adid", "ad-7"})),
                AllOf(HasSubstr("push: token-1\n"), HasSubstr("adid: ad-7\n")));
    Ok(Later({"set-vid", "user 1"}));
    EXPECT_EQ(Ok(Later({"get", "vid"})), "user 1\n");

    // Each failure exits 1 with one line naming it, and leaves the record and the configuration as they were.
    // The client's own binary is a file, so no data folder can be made below it.
    const std::string before = Ok(Later({"--json", "get", "all"}));
    const std::string broken = dir.File("broken.json");
    std::ofstream(broken) << "{\"ondaraCloud.org\": ";
    const std::string nested = dir.File("nested.json");
    std::ofstream(nested) << R"({"ondaraCloud.org": {"a": 1}})";
    for (const auto& [arguments, line] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"--data-dir", VELMORA_CLI_PATH "/data", "get", "mid"}, "cannot use the data folder " VELMORA_CLI_PATH},
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

    // Opting out: the request has left before the process ends.
    EXPECT_THAT(Ok(Later({"privacy", "optedout"})),
                AllOf(HasSubstr("server told: GET http://" + server.Host() +
                                "/veloptout.jpg?d_mid=" + mid.substr(0, 38) + "&d_orgid=ORG42%40VelmoraOrg"),
                      HasSubstr("record wiped: mid \"\"")));
    const auto sent = server.Requests();
    EXPECT_EQ(std::count_if(sent.begin(), sent.end(), [](auto& one) { return one.path == "/veloptout.jpg"; }), 1);
    EXPECT_EQ(Ok(Later({"get", "mid"})), "\n");
    EXPECT_EQ(Ok(Later({"privacy"})), "optedout\n");
    CliResult refused = Run(Later({"sync", "crm=carol"}));
    EXPECT_EQ(refused.exit_code, 1);
    EXPECT_THAT(refused.FirstErrorLine(), HasSubstr("opted out"));
    EXPECT_EQ(json::parse(Ok(Later({"--json", "privacy", "optedin"}))), json({{"privacy", "optedin"}}));

    // The configuration is changed from a file and the command line, and kept. The global options
    // were kept too: the runs above gave only the data folder.
    const std::string file = dir.File("more.json");
    std::ofstream(file) << R"({"ondaraCloud.org": "OTHER@VelmoraOrg", "audience.server": "aud.example"})";
    const json config = json::parse(Ok(Later({"--json", "config", "--file", file, "audience.server=null"})));
    EXPECT_EQ(config.at("ondaraCloud.org"), "OTHER@VelmoraOrg");
    EXPECT_FALSE(config.contains("audience.server"));  // the command line overrides the file
    EXPECT_EQ(json::parse(Ok(Later({"--json", "config"}))), config);
}

TEST_F(CliTest, AnUnansweredSyncTimesOutAnnouncedOnATerminalOnlyAndStaysQueuedUntilCleared) {
    // The boot's forced sync is answered late, inside the wait, and must not pass for the
    // answer to this sync, which the server refuses.
    Fault late, busy;
    late.path = busy.path = "/id";
    late.delay_ms = 1000;
    busy.status = 503;
    server.PushFault(late);
    server.SetDefaultFault(busy);

    CliResult sync = Run(With({"sync", "crm=bob"}, "3"));
    EXPECT_EQ(sync.exit_code, 1);
    EXPECT_EQ(sync.err, "velmora-identity: timed out after 3 s waiting for the identity server's answer from " +
                            server.Host() + "\n");

    const json rows = json::parse(Ok(Later({"queue", "list", "--json"}))).at("rows");
    ASSERT_FALSE(rows.empty());
    const json& bob = rows.back();  // the rows come in the order they were queued
    EXPECT_THAT(bob.at("url").get<std::string>(), HasSubstr("d_cid_ic=crm%01bob%010"));
    EXPECT_TRUE(bob.at("event_number") > 0 && bob.at("age_seconds") >= 0 && bob.at("pair_id") != "") << bob;
    EXPECT_THAT(Ok(Later({"queue"})), HasSubstr("d_cid_ic=crm%01bob%010"));
    EXPECT_EQ(Ok(Later({"queue", "clear"})),
              "cleared " + std::to_string(rows.size()) + (rows.size() == 1 ? " row\n" : " rows\n"));
    EXPECT_EQ(Ok(Later({"queue", "list"})), "(no rows)\n");
    CliResult terminal = Run(With({"sync", "crm=frank"}, "1.5"), true);
    EXPECT_EQ(terminal.exit_code, 1);
    EXPECT_THAT(terminal.err,
                HasSubstr("waiting for the identity server's answer from " + server.Host() + " (up to 1.5 s)..."));
}

// Usage errors name the problem and exit 2; help, version, and the demo over TLS, which walks through
// and opts out.
TEST_F(CliTest, UsageErrorsHelpVersionAndTheDemo) {
    for (const auto& [arguments, message] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"frobnicate"}, "unknown subcommand 'frobnicate'"},
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
    EXPECT_THAT(Ok({"--version"}), StartsWith("velmora-identity "));
    EXPECT_THAT(Ok({"--data-dir", dir.File("data"), "demo", "--tls"}),
                AllOf(HasSubstr("crm=alice-42 state 1 (authenticated)"), HasSubstr("GET /veloptout.jpg?d_mid="),
                      HasSubstr("record wiped: mid \"\"")));
}

}  // namespace
}  // namespace VelmoraTest
