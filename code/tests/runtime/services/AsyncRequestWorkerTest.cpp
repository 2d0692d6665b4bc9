#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

#include "runtime/services/network/AsyncRequestWorker.h"
#include "tests/runtime/Gate.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"

using namespace VelmoraMobile;
using std::chrono::milliseconds;

TEST(AsyncRequestWorkerTest, WithinTheDeadlineAllRunsAndAtItWhatHasNotStartedIsDropped) {
    std::atomic<int> finished{0};
    {
        AsyncRequestWorker worker(2);
        for (int i = 0; i < 20; ++i) worker.Post([&] { ++finished; });
    }  // the destructor stops it with the default deadline
    EXPECT_EQ(finished.exchange(0), 20);

    VelmoraTest::LogCapture log(LoggingMode::WARNING_LOG);
    VelmoraTest::Gate server;  // a server that does not answer until the test lets it
    AsyncRequestWorker worker(2);
    for (int i = 0; i < 10; ++i) worker.Post([&] { server.Wait(), ++finished; });
    ASSERT_TRUE(VelmoraTest::WaitFor([&] { return server.Waiting() == 2; }));
    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(worker.Stop(milliseconds(200)));
    auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, milliseconds(200));
    EXPECT_LT(took, std::chrono::seconds(5));
    EXPECT_TRUE(log.Contains("Stopped after 200 ms: 8 queued tasks dropped, a running one left to finish"));
    worker.Post([&] { server.Wait(), ++finished; });  // refused once stopping
    server.Open();
    ASSERT_TRUE(VelmoraTest::WaitFor([&] { return finished == 2; }));
    EXPECT_EQ(server.Waiting(), 2);
    EXPECT_TRUE(worker.Stop(milliseconds(0)));
}
