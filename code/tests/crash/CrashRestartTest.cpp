#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <utility>

#include "tests/runtime/services/storage/SqlFiles.h"
#include "tests/support/TempDir.h"
#include "tests/support/WaitFor.h"
#include "tools/server/TestIdentityServer.h"

using VelmoraTest::SqlRows;
using VelmoraTest::SqlTextRows;
using VelmoraTest::TempDir;
using VelmoraTest::WaitFor;
using VelmoraTestServer::TestIdentityServer;

namespace {

const std::chrono::seconds kPatience(15);

// The crash host as a child process (the shell execs it, so the pid it prints is the child's):
// its stdout goes to a file read as it grows; closing its stdin asks it to stop.
class HostProcess {
public:
    HostProcess(const TempDir& dir, const std::string& server, const std::string& prefix, int count)
        : out_(dir.File(prefix + ".out")),
          stdin_(popen(("exec '" VELMORA_CRASH_HOST "' '" + dir.Path() + "' " + server + " " + prefix + " " +
                        std::to_string(count) + " >'" + out_ + "'")
                           .c_str(),
                       "w")) {}
    ~HostProcess() { Kill(); }

    // The complete lines written so far.
    std::string Text() const {
        const std::string all(std::istreambuf_iterator<char>(std::ifstream(out_).rdbuf()), {});
        return all.substr(0, all.rfind('\n') + 1);
    }
    // Whether a line starting with `line` came after one starting with `after`.
    bool Said(const std::string& line, const std::string& after = "") const {
        const std::string text = "\n" + Text();
        const size_t from = text.find("\n" + after);
        return from != std::string::npos && text.find("\n" + line, from + after.size()) != std::string::npos;
    }
    // Only a child that said "pid <pid>" (its first line) and has not been waited for; then reaps it.
    void Kill() {
        if (stdin_ != nullptr && Said("pid ")) kill(std::stoi(Text().substr(4)), SIGKILL);
        Stop();
    }
    // Closes stdin, so the host stops, and gives its exit status.
    int Stop() { return stdin_ != nullptr ? pclose(std::exchange(stdin_, nullptr)) : -1; }

private:
    std::string out_;
    FILE* stdin_;
};

}  // namespace

// Kills with SIGKILL while syncs are taken in, while one is on the wire and while an answer is
// applied, each followed by a start on the same folder: every sync the host had taken in reaches
// the server, the MID never changes and both SQLite files stay sound.
TEST(CrashRestartTest, SyncsMidAndFilesSurviveKillsDuringInsertsSendsAndAnswers) {
    TempDir dir;
    TestIdentityServer server;
    VelmoraTestServer::Fault slow;
    slow.delay_ms = 200;
    server.SetDefaultFault(slow);
    std::set<std::string> durable, mids;
    // "durable <id> <mid>" and "ready <mid>" lines: what the host had taken in, and its MID.
    auto note = [&](const HostProcess& host) {
        std::istringstream lines(host.Text());
        for (std::string word, rest, id, mid; lines >> word && std::getline(lines, rest);) {
            std::istringstream fields(rest);
            if (word == "durable" && fields >> id) durable.insert(id);
            if ((word == "durable" || word == "ready") && fields >> mid) mids.insert(mid);
        }
    };
    auto kill_when = [&](const std::string& prefix, int count, const std::function<bool(const HostProcess&)>& moment) {
        HostProcess host(dir, server.Host(), prefix, count);
        EXPECT_TRUE(WaitFor([&] { return moment(host); }, kPatience)) << prefix << ":\n" << host.Text();
        host.Kill();
        note(host);
    };

    // During inserts: three syncs are in, nine more are being taken in.
    kill_when("a", 12, [](const HostProcess& host) { return host.Said("durable a02"); });
    // During a send: the server holds a request whose answer is delayed.
    const size_t before = server.Requests().size();
    kill_when("b", 3, [&](const HostProcess&) { return server.Requests().size() > before; });
    // During the application of an answer: the identity module reports what an answer brought.
    kill_when("c", 3, [](const HostProcess& host) { return host.Said("event UPDATED_IDENTITY_RESPONSE", "ready"); });

    // A last start sends what is left and stops in order.
    HostProcess host(dir, server.Host(), "d", 0);
    ASSERT_TRUE(WaitFor([&] { return host.Said("ready "); }, kPatience)) << host.Text();
    note(host);
    ASSERT_GE(durable.size(), 6u);
    EXPECT_TRUE(WaitFor(
        [&] {
            std::string sent;
            for (const auto& request : server.Requests()) sent += request.query + "&";
            return std::all_of(durable.begin(), durable.end(),
                               [&](auto& id) { return sent.find("crash%01" + id + "%01") != std::string::npos; });
        },
        kPatience))
        << "a durable sync never reached the server";
    const int status = host.Stop();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(mids.size(), 1u);  // one MID, and not an empty one
    for (const char* file : {"VLBMobileIdentity.sqlite", "VelmoraDataStores.sqlite"}) {
        ASSERT_TRUE(std::filesystem::exists(dir.File(file))) << file;
        EXPECT_EQ(SqlRows(dir.File(file), "PRAGMA integrity_check"), SqlTextRows{{"ok"}}) << file;
    }
}
