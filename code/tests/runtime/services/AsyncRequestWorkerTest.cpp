#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "runtime/services/network/AsyncRequestWorker.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"

using namespace VelmoraMobile;
using std::chrono::milliseconds;

namespace {

/// Requests to a server that does not answer, until the test lets them go.
struct SilentServer {
    void Request() {
        ++started;
        std::unique_lock<std::mutex> lock(mutex);
        condition.wait(lock, [&] { return open; });
        ++finished;
    }
    void Answer() {
        std::lock_guard<std::mutex> lock(mutex);
        open = true;
        condition.notify_all();
    }
    std::mutex mutex;
    std::condition_variable condition;
    bool open{false};
    std::atomic<int> started{0};
    std::atomic<int> finished{0};
};

}  // namespace

TEST(AsyncRequestWorkerTest, StopDropsWhatHasNotStartedAtTheDeadlineInsteadOfRunningItOneByOne) {
    VelmoraTest::LogCapture log(LoggingMode::WARNING_LOG);
    SilentServer server;
    AsyncRequestWorker worker(2);
    for (int i = 0; i < 10; ++i) worker.Post([&] { server.Request(); });
    ASSERT_TRUE(VelmoraTest::WaitFor([&] { return server.started == 2; }));

    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(worker.Stop(milliseconds(200)));
    auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, milliseconds(200));
    EXPECT_LT(took, std::chrono::seconds(5));
    EXPECT_TRUE(log.Contains("Stopped after 200 ms: 8 queued tasks dropped, a running one left to finish"));
    worker.Post([&] { server.Request(); });  // refused once stopping

    server.Answer();
    ASSERT_TRUE(VelmoraTest::WaitFor([&] { return server.finished == 2; }));
    EXPECT_EQ(server.started.load(), 2);
    EXPECT_TRUE(worker.Stop(milliseconds(0)));
}

TEST(AsyncRequestWorkerTest, WithinTheDeadlineEveryPostedTaskRuns) {
    std::atomic<int> ran{0};
    {
        AsyncRequestWorker worker(2);
        for (int i = 0; i < 20; ++i) worker.Post([&] { ++ran; });
    }  // the destructor stops it with the default deadline
    EXPECT_EQ(ran.load(), 20);
}
