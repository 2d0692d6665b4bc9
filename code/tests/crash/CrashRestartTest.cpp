#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/TempDir.h"
#include "tests/support/WaitFor.h"
#include "tools/server/TestIdentityServer.h"

extern char** environ;

using VelmoraTest::TempDir;
using VelmoraTest::WaitFor;
using VelmoraTestServer::Fault;
using VelmoraTestServer::TestIdentityServer;

namespace {

const std::chrono::seconds kPatience(15);

// The crash host as a child process: its stdout lines are collected as they come; closing its
// stdin asks it to stop.
class HostProcess {
public:
    explicit HostProcess(std::vector<std::string> args) {
        int in[2];
        int out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) {
            ADD_FAILURE() << "pipe2 failed";
            return;
        }
        args.insert(args.begin(), VELMORA_CRASH_HOST);
        std::vector<char*> argv;
        for (auto& arg : args) argv.push_back(arg.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        const int spawned = posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        close(in[0]);
        close(out[1]);
        stdin_ = in[1];
        if (spawned != 0) {
            ADD_FAILURE() << "cannot start " << argv[0];
            pid_ = -1;
        }
        reader_ = std::thread([this, fd = out[0]] { Read(fd); });
    }

    ~HostProcess() {
        if (pid_ > 0) Kill();
        if (stdin_ >= 0) close(stdin_);
        if (reader_.joinable()) reader_.join();
    }

    std::vector<std::string> Lines() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }

    std::string Transcript() const {
        std::string text;
        for (const auto& line : Lines()) text += line + "\n";
        return text;
    }

    // The first line at or after `from` that starts with `prefix`, or "" when none came in time.
    std::string WaitForLine(const std::string& prefix, size_t from = 0) const {
        std::string found;
        WaitFor(
            [&] {
                std::vector<std::string> lines = Lines();
                for (size_t i = from; i < lines.size(); ++i) {
                    if (lines[i].rfind(prefix, 0) == 0) {
                        found = lines[i];
                        return true;
                    }
                }
                return false;
            },
            kPatience);
        return found;
    }

    void Kill() {
        kill(pid_, SIGKILL);
        Reap();
    }

    // Closes stdin, so the host stops, and gives its exit status.
    int Stop() {
        close(stdin_);
        stdin_ = -1;
        return Reap();
    }

private:
    void Read(int fd) {
        std::string pending;
        char buffer[512];
        for (ssize_t n; (n = read(fd, buffer, sizeof(buffer))) > 0;) {
            pending.append(buffer, static_cast<size_t>(n));
            for (size_t end; (end = pending.find('\n')) != std::string::npos; pending.erase(0, end + 1)) {
                std::lock_guard<std::mutex> lock(mutex_);
                lines_.push_back(pending.substr(0, end));
            }
        }
        close(fd);
    }

    int Reap() {
        int status = -1;
        if (pid_ > 0) waitpid(pid_, &status, 0);
        pid_ = -1;
        if (reader_.joinable()) reader_.join();
        return status;
    }

    pid_t pid_{-1};
    int stdin_{-1};
    std::thread reader_;
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

std::string IntegrityOf(const std::string& path) {
    sqlite3* db = nullptr;
    std::string result = "cannot open";
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &statement, nullptr) == SQLITE_OK &&
            sqlite3_step(statement) == SQLITE_ROW) {
            result = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
        }
        sqlite3_finalize(statement);
    }
    sqlite3_close(db);
    return result;
}

// What the server has seen of the customer ids of the syncs.
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
    Fault slow;
    slow.path = "/id";
    slow.delay_ms = 200;
    server.SetDefaultFault(slow);
    std::set<std::string> durable;
    std::set<std::string> mids;
    auto note = [&](const HostProcess& host) {
        for (const std::string& line : host.Lines()) {
            const size_t space = line.find(' ', 8);
            if (line.rfind("durable ", 0) == 0 && space != std::string::npos) {
                durable.insert(line.substr(8, space - 8));
                if (space + 1 < line.size()) mids.insert(line.substr(space + 1));
            }
        }
    };
    auto start = [&](const std::string& prefix, int count) {
        return std::make_unique<HostProcess>(
            std::vector<std::string>{dir.Path(), server.Host(), prefix, std::to_string(count)});
    };

    {  // During inserts: three syncs are in, nine more are being taken in.
        auto host = start("a", 12);
        ASSERT_FALSE(host->WaitForLine("durable a02").empty());
        host->Kill();
        note(*host);
    }
    {  // During a send: the server holds a request whose answer is delayed.
        const size_t before = server.Requests().size();
        auto host = start("b", 3);
        ASSERT_TRUE(server.WaitForRequests(before + 1, kPatience));
        host->Kill();
        note(*host);
    }
    {  // During the application of an answer: the identity module reports what an answer brought.
        auto host = start("c", 3);
        const std::string ready = host->WaitForLine("ready");
        ASSERT_FALSE(ready.empty());
        const size_t after_ready = host->Lines().size();
        ASSERT_FALSE(host->WaitForLine("event UPDATED_IDENTITY_RESPONSE", after_ready).empty()) << host->Transcript();
        host->Kill();
        note(*host);
    }
    {  // A last start sends what is left and stops in order.
        auto host = start("d", 0);
        const std::string ready = host->WaitForLine("ready ");
        ASSERT_FALSE(ready.empty());
        mids.insert(ready.substr(6));
        ASSERT_GE(durable.size(), 6u);
        WaitFor(
            [&] {
                for (const std::string& id : durable)
                    if (!Reached(server, id)) return false;
                return true;
            },
            kPatience);
        for (const std::string& id : durable) EXPECT_TRUE(Reached(server, id)) << id << " never reached the server";
        const int status = host->Stop();
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    }
    EXPECT_EQ(mids.size(), 1u);
    EXPECT_FALSE(mids.begin()->empty());
    EXPECT_EQ(IntegrityOf(dir.File("VLBMobileIdentity.sqlite")), "ok");
    EXPECT_EQ(IntegrityOf(dir.File("VelmoraDataStores.sqlite")), "ok");
}
