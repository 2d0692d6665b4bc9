#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/TempDir.h"
#include "tests/support/WaitFor.h"
#include "tools/server/TestIdentityServer.h"

extern char** environ;

using VelmoraTest::TempDir;
using VelmoraTest::WaitFor;
using VelmoraTestServer::TestIdentityServer;

namespace {

const std::chrono::seconds kPatience(15);

// The crash host as a child process: its stdout goes to a file read as it grows; closing its
// stdin asks it to stop.
class HostProcess {
public:
    HostProcess(const TempDir& dir, const std::string& server, const std::string& prefix, int count)
        : out_(dir.File(prefix + ".out")) {
        std::vector<std::string> args = {VELMORA_CRASH_HOST, dir.Path(), server, prefix, std::to_string(count)};
        std::vector<char*> argv;
        for (auto& arg : args) argv.push_back(arg.data());
        argv.push_back(nullptr);
        int in[2];
        EXPECT_EQ(pipe2(in, O_CLOEXEC), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        EXPECT_EQ(posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ), 0) << argv[0];
        posix_spawn_file_actions_destroy(&actions);
        close(in[0]);
        stdin_ = in[1];
    }
    ~HostProcess() {
        Kill();
        Stop();
    }

    // The complete lines written so far.
    std::string Text() const {
        std::stringstream text;
        text << std::ifstream(out_).rdbuf();
        const std::string all = text.str();
        return all.substr(0, all.rfind('\n') + 1);
    }
    // Whether a line starting with `line` came after one starting with `after`.
    bool Said(const std::string& line, const std::string& after = "") const {
        const std::string text = "\n" + Text();
        const size_t from = text.find("\n" + after);
        return from != std::string::npos && text.find("\n" + line, from + after.size()) != std::string::npos;
    }
    void Kill() {
        if (pid_ > 0) kill(pid_, SIGKILL);
    }
    // Closes stdin, so the host stops, and gives its exit status.
    int Stop() {
        if (stdin_ >= 0) close(stdin_);
        stdin_ = -1;
        int status = -1;
        if (pid_ > 0) waitpid(pid_, &status, 0);
        pid_ = -1;
        return status;
    }

private:
    std::string out_;
    pid_t pid_{-1};
    int stdin_{-1};
};

std::string IntegrityOf(const std::string& path) {
    sqlite3* db = nullptr;
    sqlite3_stmt* statement = nullptr;
    std::string result = "cannot read";
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK &&
        sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW) {
        result = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return result;
}

// Whether a sync carrying `id` reached the server.
bool Reached(const TestIdentityServer& server, const std::string& id) {
    for (const auto& request : server.Requests()) {
        auto range = request.all_params.equal_range("d_cid_ic");
        for (auto it = range.first; it != range.second; ++it) {
            if (it->second.find(id) != std::string::npos) return true;
        }
    }
    return false;
}

}  // namespace

// Kills with SIGKILL while syncs are taken in, while one is on the wire and while an answer is
// applied, each followed by a start on the same folder: every sync the host had taken in reaches
// the server, the MID never changes and both SQLite files stay sound.
TEST(CrashRestartTest, SyncsMidAndFilesSurviveKillsDuringInsertsSendsAndAnswers) {
    TempDir dir;
    TestIdentityServer server;
    VelmoraTestServer::Fault slow;
    slow.path = "/id";
    slow.delay_ms = 200;
    server.SetDefaultFault(slow);
    std::set<std::string> durable;
    std::set<std::string> mids;
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
        host.Stop();
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
    WaitFor([&] { return std::all_of(durable.begin(), durable.end(), [&](auto& id) { return Reached(server, id); }); },
            kPatience);
    for (const std::string& id : durable) EXPECT_TRUE(Reached(server, id)) << id << " never reached the server";
    const int status = host.Stop();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(mids.size(), 1u);  // one MID, and not an empty one
    EXPECT_EQ(IntegrityOf(dir.File("VLBMobileIdentity.sqlite")), "ok");
    EXPECT_EQ(IntegrityOf(dir.File("VelmoraDataStores.sqlite")), "ok");
}
