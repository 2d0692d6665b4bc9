// velmora-identity run as a subprocess, as a user runs it, against the test identity server.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/TempDir.h"
#include "tests/support/WaitFor.h"
#include "tests/tools/cli/CliRunner.h"
#include "tools/server/TestIdentityServer.h"

namespace VelmoraTest {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using VelmoraTestServer::Fault;
using VelmoraTestServer::TestIdentityServer;

const std::string ORG = "ORG42@VelmoraOrg";

class CliTest : public ::testing::Test {
protected:
    /// The global options of a user who points the client at the test server.
    std::vector<std::string> With(std::vector<std::string> arguments, const std::string& timeout = "20") const {
        std::vector<std::string> all = {"--data-dir", DataDir(),  "--server",  server.Host(), "--org",
                                        ORG,          "--no-tls", "--timeout", timeout};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return all;
    }
    /// Only the data folder: what was given once is kept there.
    std::vector<std::string> Later(std::vector<std::string> arguments) const {
        std::vector<std::string> all = {"--data-dir", DataDir(), "--timeout", "20"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return all;
    }
    std::string DataDir() const { return dir.File("data"); }
    CliResult Run(const std::vector<std::string>& arguments) const { return RunCli(arguments, dir.Path()); }

    std::vector<VelmoraTestServer::RecordedRequest> RequestsTo(const std::string& path) const {
        std::vector<VelmoraTestServer::RecordedRequest> found;
        for (const auto& request : server.Requests()) {
            if (request.path == path) found.push_back(request);
        }
        return found;
    }

    TempDir dir;
    TestIdentityServer server;
};

/// The value of the "name: value" line of the human record.
std::string FieldOf(const std::string& text, const std::string& name) {
    const size_t start = text.find(name + ": ");
    if (start == std::string::npos) return "";
    const size_t value = start + name.size() + 2;
    return text.substr(value, text.find('\n', value) - value);
}

/// Only digits, and exactly `count` of them unless `count` is 0.
bool IsDigits(const std::string& text, size_t count) {
    return !text.empty() && (count == 0 || text.size() == count) &&
           text.find_first_not_of("0123456789") == std::string::npos;
}

std::string Trimmed(const std::string& text) {
    return text.substr(0, text.find_last_not_of('\n') + 1);
}

TEST_F(CliTest, SyncThenGetGiveTheSameMidInLaterProcesses) {
    CliResult sync = Run(With({"sync", "crm=alice:1"}));
    ASSERT_EQ(sync.exit_code, 0) << sync.err;
    const std::string mid = FieldOf(sync.out, "mid");
    ASSERT_TRUE(IsDigits(mid, 38)) << sync.out;
    EXPECT_THAT(sync.out, HasSubstr("crm=alice state 1 (authenticated)"));
    EXPECT_THAT(sync.out, HasSubstr("blob: test-blob"));  // the server's answer was applied

    bool synced_alice = false;
    for (const auto& request : RequestsTo("/id")) {
        auto id = request.all_params.find("d_cid_ic");
        synced_alice = synced_alice || (id != request.all_params.end() && id->second == std::string("crm\x01"
                                                                                                    "alice\x01"
                                                                                                    "1"));
    }
    EXPECT_TRUE(synced_alice);

    for (int process = 0; process < 2; ++process) {
        CliResult get = Run(Later({"get", "mid"}));
        ASSERT_EQ(get.exit_code, 0) << get.err;
        EXPECT_EQ(Trimmed(get.out), mid);
    }

    CliResult ids = Run(Later({"get", "ids", "--json"}));
    ASSERT_EQ(ids.exit_code, 0) << ids.err;
    nlohmann::json json = nlohmann::json::parse(ids.out);
    ASSERT_EQ(json.at("ids").size(), 1u) << ids.out;
    EXPECT_EQ(json["ids"][0].at("type"), "crm");
    EXPECT_EQ(json["ids"][0].at("id"), "alice");
    EXPECT_EQ(json["ids"][0].at("state"), 1);
}

TEST_F(CliTest, AppendUrlPutsTheDecorationBeforeTheFragment) {
    CliResult mid = Run(With({"get", "mid"}));
    ASSERT_EQ(mid.exit_code, 0) << mid.err;
    CliResult url = Run(Later({"append-url", "https://shop.example/a?b=1#frag"}));
    ASSERT_EQ(url.exit_code, 0) << url.err;
    const std::string head = "https://shop.example/a?b=1&velmora_mc=TS%3D";
    const std::string tail = "%7COCMID%3D" + Trimmed(mid.out) + "%7COCORGID%3DORG42%40VelmoraOrg#frag\n";
    ASSERT_GT(url.out.size(), head.size() + tail.size()) << url.out;
    EXPECT_EQ(url.out.substr(0, head.size()), head);
    EXPECT_EQ(url.out.substr(url.out.size() - tail.size()), tail);
    EXPECT_TRUE(IsDigits(url.out.substr(head.size(), url.out.size() - head.size() - tail.size()), 0)) << url.out;

    CliResult json = Run(Later({"--json", "append-url", "https://shop.example/?"}));
    ASSERT_EQ(json.exit_code, 0) << json.err;
    EXPECT_THAT(nlohmann::json::parse(json.out).at("url").get<std::string>(),
                StartsWith("https://shop.example/?velmora_mc=TS%3D"));
}

TEST_F(CliTest, AnUnansweredSyncTimesOutAndStaysQueuedUntilCleared) {
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
    EXPECT_EQ(sync.FirstErrorLine(),
              "velmora-identity: timed out after 3 s waiting for the identity server's answer from " + server.Host());
    EXPECT_EQ(RequestsTo("/id").size(), 2u);

    CliResult list = Run(Later({"queue", "list", "--json"}));
    ASSERT_EQ(list.exit_code, 0) << list.err;
    nlohmann::json rows = nlohmann::json::parse(list.out).at("rows");
    bool bob_waits = false;
    for (const auto& row : rows) {
        EXPECT_GE(row.at("age_seconds").get<int64_t>(), 0);
        if (row.at("url").get<std::string>().find("d_cid_ic=crm%01bob%010") != std::string::npos) {
            bob_waits = true;
            EXPECT_GT(row.at("event_number").get<int>(), 0);
            EXPECT_FALSE(row.at("pair_id").get<std::string>().empty());
        }
    }
    EXPECT_TRUE(bob_waits) << list.out;
    CliResult text = Run(Later({"queue"}));
    EXPECT_THAT(text.out, HasSubstr("d_cid_ic=crm%01bob%010"));

    CliResult clear = Run(Later({"queue", "clear"}));
    ASSERT_EQ(clear.exit_code, 0) << clear.err;
    EXPECT_EQ(clear.out, "cleared " + std::to_string(rows.size()) + (rows.size() == 1 ? " row\n" : " rows\n"));
    EXPECT_EQ(Run(Later({"queue", "list"})).out, "(no rows)\n");
}

TEST_F(CliTest, ALongWaitIsAnnouncedOnATerminalOnly) {
    Fault busy;
    busy.status = 503;
    server.SetDefaultFault(busy);
    const auto arguments = With({"sync", "crm=frank"}, "1.5");
    const std::string note = "waiting for the identity server's answer from " + server.Host() + " (up to 1.5 s)...";
    CliResult terminal = RunCliOnTerminal(arguments, dir.Path());
    EXPECT_EQ(terminal.exit_code, 1);
    EXPECT_THAT(terminal.err, HasSubstr(note));
    CliResult piped = Run(arguments);
    EXPECT_EQ(piped.exit_code, 1);
    EXPECT_THAT(piped.err, Not(HasSubstr(note)));
}

TEST_F(CliTest, OptingOutTellsTheServerAndWipesTheRecord) {
    CliResult sync = Run(With({"sync", "crm=carol:1"}));
    ASSERT_EQ(sync.exit_code, 0) << sync.err;
    CliResult mid = Run(Later({"get", "mid"}));

    CliResult out = Run(Later({"privacy", "optedout"}));
    ASSERT_EQ(out.exit_code, 0) << out.err;
    EXPECT_THAT(out.out, HasSubstr("server told: GET http://" + server.Host() +
                                   "/veloptout.jpg?d_mid=" + Trimmed(mid.out) + "&d_orgid=ORG42%40VelmoraOrg"));
    EXPECT_THAT(out.out, HasSubstr("record wiped: mid \"\""));
    // The request left before the process ended.
    ASSERT_EQ(RequestsTo("/veloptout.jpg").size(), 1u);
    EXPECT_EQ(RequestsTo("/veloptout.jpg")[0].params.at("d_mid"), Trimmed(mid.out));

    EXPECT_EQ(Run(Later({"get", "mid"})).out, "\n");
    EXPECT_EQ(Run(Later({"privacy"})).out, "optedout\n");
    CliResult refused = Run(Later({"sync", "crm=carol"}));
    EXPECT_EQ(refused.exit_code, 1);
    EXPECT_THAT(refused.FirstErrorLine(), HasSubstr("opted out"));

    CliResult back = Run(Later({"--json", "privacy", "optedin"}));
    ASSERT_EQ(back.exit_code, 0) << back.err;
    EXPECT_EQ(nlohmann::json::parse(back.out), nlohmann::json({{"privacy", "optedin"}}));
}

TEST_F(CliTest, SyncCarriesPushTokenAdvertisingIdAndUserIdentifier) {
    CliResult enable = Run(With({"config", "identity.adidEnabled=true"}));
    ASSERT_EQ(enable.exit_code, 0) << enable.err;
    EXPECT_THAT(enable.out, HasSubstr("identity.adidEnabled = true\n"));

    CliResult sync = Run(Later({"sync", "--push", "token-1", "--adid", "ad-7"}));
    ASSERT_EQ(sync.exit_code, 0) << sync.err;
    EXPECT_THAT(sync.out, HasSubstr("push: token-1\n"));
    EXPECT_THAT(sync.out, HasSubstr("adid: ad-7\n"));
    const auto last = RequestsTo("/id").back();
    EXPECT_EQ(last.params.at("d_cid"),
              "20920\x01"
              "token-1");

    CliResult forced = Run(Later({"sync", "--force"}));
    ASSERT_EQ(forced.exit_code, 0) << forced.err;

    CliResult vid = Run(Later({"set-vid", "user 1"}));
    ASSERT_EQ(vid.exit_code, 0) << vid.err;
    EXPECT_EQ(Run(Later({"get", "vid"})).out, "user 1\n");
}

TEST_F(CliTest, ConfigShowsAndChangesWhatIsKept) {
    CliResult shown = Run(With({"--json", "config"}));
    ASSERT_EQ(shown.exit_code, 0) << shown.err;
    nlohmann::json config = nlohmann::json::parse(shown.out);
    EXPECT_EQ(config.at("ondaraCloud.org"), ORG);
    EXPECT_EQ(config.at("global.ssl"), false);

    const std::string file = dir.File("more.json");
    std::ofstream(file) << R"({"ondaraCloud.org": "OTHER@VelmoraOrg", "audience.server": "aud.example"})";
    CliResult changed = Run(Later({"--json", "config", "--file", file, "audience.server=null"}));
    ASSERT_EQ(changed.exit_code, 0) << changed.err;
    config = nlohmann::json::parse(changed.out);
    EXPECT_EQ(config.at("ondaraCloud.org"), "OTHER@VelmoraOrg");
    EXPECT_FALSE(config.contains("audience.server"));  // the command line overrides the file
    EXPECT_EQ(nlohmann::json::parse(Run(Later({"--json", "config"})).out), config);
}

TEST_F(CliTest, UsageErrorsNameTheProblemAndExitTwo) {
    struct Case {
        std::vector<std::string> arguments;
        std::string message;
    };
    const std::vector<Case> cases = {
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
    };
    for (const auto& c : cases) {
        CliResult result = Run(c.arguments);
        EXPECT_EQ(result.exit_code, 2) << c.message;
        EXPECT_THAT(result.FirstErrorLine(), StartsWith("velmora-identity: ")) << c.message;
        EXPECT_THAT(result.FirstErrorLine(), HasSubstr(c.message));
        EXPECT_THAT(result.err, HasSubstr("\nUsage: velmora-identity")) << c.message;
        EXPECT_EQ(result.out, "") << c.message;
    }
    CliResult state_text = Run({"--help"});
    EXPECT_EQ(state_text.exit_code, 0);
    EXPECT_THAT(state_text.out, HasSubstr("append-url"));
    EXPECT_EQ(Run({"sync", "--help"}).exit_code, 0);
    EXPECT_THAT(Run({"--version"}).out, StartsWith("velmora-identity "));
}

TEST_F(CliTest, BadInputFailsWithOneLineAndLosesNothing) {
    ASSERT_EQ(Run(With({"sync", "crm=dave:1"})).exit_code, 0);
    const std::string before = Run(Later({"--json", "get", "all"})).out;

    std::ofstream(dir.File("plain-file")) << "not a folder";
    CliResult unwritable = Run({"--data-dir", dir.File("plain-file") + "/data", "get", "mid"});
    EXPECT_EQ(unwritable.exit_code, 1);
    EXPECT_THAT(unwritable.err, StartsWith("velmora-identity: cannot use the data folder " + dir.File("plain-file")));
    EXPECT_EQ(std::count(unwritable.err.begin(), unwritable.err.end(), '\n'), 1) << unwritable.err;

    const std::string broken = dir.File("broken.json");
    std::ofstream(broken) << "{\"ondaraCloud.org\": ";
    CliResult not_json = Run(Later({"config", "--file", broken}));
    EXPECT_EQ(not_json.exit_code, 1);
    EXPECT_EQ(not_json.err, "velmora-identity: the configuration file " + broken + " is not a JSON object\n");

    const std::string nested = dir.File("nested.json");
    std::ofstream(nested) << R"({"ondaraCloud.org": {"a": 1}})";
    EXPECT_EQ(Run(Later({"config", "--file", nested})).exit_code, 1);

    CliResult spaces = Run({"--data-dir", DataDir(), "--server", "identity example", "get"});
    EXPECT_EQ(spaces.exit_code, 2);

    EXPECT_EQ(Run(Later({"--json", "get", "all"})).out, before);
    EXPECT_EQ(nlohmann::json::parse(Run(Later({"--json", "config"})).out).at("ondaraCloud.org"), ORG);
}

TEST_F(CliTest, WithoutAnyConfigurationAWaitEndsWithTheReason) {
    CliResult get = Run({"--data-dir", DataDir(), "--timeout", "0.5", "sync", "crm=erin"});
    EXPECT_EQ(get.exit_code, 1);
    EXPECT_THAT(get.FirstErrorLine(), HasSubstr("timed out after 0.5 s waiting for the configuration"));
}

TEST_F(CliTest, DemoWalksThroughAndOptsOut) {
    CliResult demo = Run({"--data-dir", DataDir(), "demo"});
    ASSERT_EQ(demo.exit_code, 0) << demo.err;
    EXPECT_THAT(demo.out, HasSubstr("crm=alice-42 state 1 (authenticated)"));
    EXPECT_THAT(demo.out, HasSubstr("GET /veloptout.jpg?d_mid="));
    EXPECT_THAT(demo.out, HasSubstr("record wiped: mid \"\""));
}

}  // namespace
}  // namespace VelmoraTest
