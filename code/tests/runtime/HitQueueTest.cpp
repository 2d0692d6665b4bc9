// The queue's life: sending order, retries, states, restarts and shutdown.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "HitQueueTestSupport.h"
#include "LogCapture.h"
#include "WaitFor.h"

using namespace VelmoraMobile;
using namespace VelmoraTest;
using std::chrono::milliseconds;

namespace {

class HitQueueTest : public ::testing::Test {
protected:
    void SetUp() override { HitQueueBase::SetRetryWait(milliseconds(20)); }
    void TearDown() override { HitQueueBase::SetRetryWait(std::chrono::seconds(30)); }

    TempDir dir_;
};

using Payloads = std::vector<std::string>;

}  // namespace

TEST_F(HitQueueTest, RowsQueuedBeforeOnlineGoOutOldestFirstAfterBringOnline) {
    QueueParts parts(dir_);
    auto queue = parts.Build();
    EXPECT_TRUE(queue->Queue(MakeHit("a")));
    EXPECT_TRUE(queue->Queue(MakeHit("b")));
    queue->Suspend();
    EXPECT_TRUE(queue->Queue(MakeHit("c")));
    EXPECT_EQ(queue->GetSize(), 3);
    EXPECT_EQ(parts.processor->Calls(), 0u);

    queue->BringOnline();
    ASSERT_TRUE(WaitFor([&] { return queue->GetSize() == 0; }));
    EXPECT_EQ(parts.processor->Payloads(), (Payloads{"a", "b", "c"}));
}

TEST_F(HitQueueTest, RowsSurviveARestartAndGoOutFromTheNewQueue) {
    {
        QueueParts first(dir_);
        auto queue = first.Build();
        queue->Suspend();
        queue->Queue(MakeHit("a", 7));
        queue->Queue(MakeHit("b"));
        EXPECT_TRUE(queue->Dispose(milliseconds(0)));
        first.queue.reset();
    }
    QueueParts second(dir_);
    auto queue = second.Build();
    EXPECT_EQ(queue->GetSize(), 2);
    auto oldest = queue->SelectOldestHit();
    ASSERT_TRUE(oldest);
    EXPECT_EQ(oldest->payload, "a");
    EXPECT_EQ(oldest->count, 7);
    EXPECT_EQ(oldest->timestamp, std::chrono::seconds(1700000000));
    EXPECT_EQ(oldest->identifier, "1");

    queue->BringOnline();
    ASSERT_TRUE(WaitFor([&] { return queue->GetSize() == 0; }));
    EXPECT_EQ(second.processor->Payloads(), (Payloads{"a", "b"}));
}

TEST_F(HitQueueTest, RetryKeepsTheRowAndItsPlace) {
    QueueParts parts(dir_);
    std::atomic<int> attempts_of_a{0};
    parts.processor->script = [&](const std::shared_ptr<TestHit>& hit) {
        if (hit->payload == "a" && ++attempts_of_a < 3) {
            return HitProcessResult::RETRY;
        }
        return HitProcessResult::DONE;
    };
    auto queue = parts.Build();
    queue->Queue(MakeHit("a"));
    queue->Queue(MakeHit("b"));
    queue->BringOnline();

    ASSERT_TRUE(WaitFor([&] { return queue->GetSize() == 0; }));
    EXPECT_EQ(parts.processor->Payloads(), (Payloads{"a", "a", "a", "b"}));
}

TEST_F(HitQueueTest, AWorkerThatRanEmptyTakesUpANewRow) {
    QueueParts parts(dir_);
    auto queue = parts.Build();
    queue->BringOnline();
    queue->Queue(MakeHit("first"));
    ASSERT_TRUE(WaitFor([&] { return parts.processor->Finished() == 1; }));
    // No BringOnline in between: the insert alone must wake the idle worker.
    queue->Queue(MakeHit("second"));
    ASSERT_TRUE(WaitFor([&] { return parts.processor->Finished() == 2; }));
    EXPECT_EQ(parts.processor->Payloads(), (Payloads{"first", "second"}));
}

TEST_F(HitQueueTest, BringOnlineRepeatedFromSeveralThreadsMakesOneWorker) {
    QueueParts parts(dir_);
    parts.processor->script = [](const std::shared_ptr<TestHit>&) {
        // Long enough that a second worker would overlap with the first.
        std::this_thread::sleep_for(milliseconds(5));
        return HitProcessResult::DONE;
    };
    auto queue = parts.Build();
    for (int i = 0; i < 10; ++i) {
        queue->Queue(MakeHit("hit" + std::to_string(i)));
    }
    queue->BringOnline();
    queue->BringOnline();
    std::vector<std::thread> callers;
    for (int i = 0; i < 4; ++i) {
        callers.emplace_back([&] {
            for (int j = 0; j < 5; ++j) {
                queue->BringOnline();
            }
        });
    }
    for (auto& caller : callers) {
        caller.join();
    }
    ASSERT_TRUE(WaitFor([&] { return queue->GetSize() == 0 && parts.processor->Finished() == 10; }));
    EXPECT_EQ(parts.processor->MaxInProcess(), 1);
    EXPECT_EQ(parts.processor->ThreadCount(), 1u);
    EXPECT_EQ(parts.processor->Calls(), 10u);
}

TEST_F(HitQueueTest, DisposeOfAQueueThatNeverCameOnLineIsTrueAtOnceAndFinal) {
    QueueParts parts(dir_);
    auto queue = parts.Build();
    queue->Queue(MakeHit("kept"));
    EXPECT_TRUE(queue->Dispose(milliseconds(0)));
    queue->BringOnline();  // ignored once disposed: no worker is started
    EXPECT_TRUE(queue->Dispose(milliseconds(0)));
    EXPECT_EQ(queue->GetSize(), 1);
    EXPECT_EQ(parts.processor->Calls(), 0u);
}

TEST_F(HitQueueTest, SuspendThenDeleteAllHitsLeavesNoRowEvenWithAHitInProcess) {
    for (HitProcessResult answer : {HitProcessResult::RETRY, HitProcessResult::DONE}) {
        TempDir dir;
        QueueParts parts(dir);
        Gate gate;
        parts.processor->script = [&](const std::shared_ptr<TestHit>&) {
            gate.Wait();
            return answer;
        };
        auto queue = parts.Build();
        queue->Queue(MakeHit("a"));
        queue->Queue(MakeHit("b"));
        queue->Queue(MakeHit("c"));
        queue->BringOnline();
        ASSERT_TRUE(WaitFor([&] { return gate.Waiting() == 1; }));

        queue->Suspend();
        EXPECT_TRUE(queue->DeleteAllHits());
        EXPECT_EQ(queue->GetSize(), 0);
        gate.Open();
        ASSERT_TRUE(WaitFor([&] { return parts.processor->Finished() == 1; }));
        queue->BringOnline();
        parts.Stop();
        EXPECT_EQ(parts.processor->Calls(), 1u);
        EXPECT_TRUE(SqlRows(dir.File(TestHitSchema::DATABASE), "SELECT * FROM TEST_HITS").empty());
    }
}

TEST_F(HitQueueTest, AHitInASlowRequestAtDisposeIsNotLost) {
    {
        QueueParts first(dir_);
        Gate gate;
        first.processor->script = [&](const std::shared_ptr<TestHit>&) {
            gate.Wait();
            return HitProcessResult::RETRY;  // the request failed
        };
        auto queue = first.Build();
        queue->Queue(MakeHit("slow"));
        queue->BringOnline();
        ASSERT_TRUE(WaitFor([&] { return gate.Waiting() == 1; }));

        EXPECT_FALSE(queue->Dispose(milliseconds(0)));
        EXPECT_FALSE(queue->Dispose(milliseconds(10)));
        gate.Open();
        EXPECT_TRUE(queue->Dispose(std::chrono::seconds(20)));
        EXPECT_EQ(first.processor->Calls(), 1u);
        first.queue.reset();
    }
    QueueParts second(dir_);
    auto queue = second.Build();
    EXPECT_EQ(queue->GetSize(), 1);
    queue->BringOnline();
    ASSERT_TRUE(WaitFor([&] { return queue->GetSize() == 0; }));
    EXPECT_EQ(second.processor->Payloads(), (Payloads{"slow"}));
}

TEST_F(HitQueueTest, AHitFinishedDuringDisposeIsDeleted) {
    QueueParts parts(dir_);
    Gate gate;
    parts.processor->script = [&](const std::shared_ptr<TestHit>&) {
        gate.Wait();
        return HitProcessResult::DONE;
    };
    auto queue = parts.Build();
    queue->Queue(MakeHit("a"));
    queue->Queue(MakeHit("b"));
    queue->BringOnline();
    ASSERT_TRUE(WaitFor([&] { return gate.Waiting() == 1; }));
    EXPECT_FALSE(queue->Dispose(milliseconds(0)));
    gate.Open();
    EXPECT_TRUE(queue->Dispose(std::chrono::seconds(20)));
    // "a" is done and gone; "b" was never started and stays for the next run.
    EXPECT_EQ(parts.processor->Payloads(), (Payloads{"a"}));
    EXPECT_EQ(SqlRows(dir_.File(TestHitSchema::DATABASE), "SELECT PAYLOAD FROM TEST_HITS"),
              (std::vector<std::vector<std::string>>{{"b"}}));
}

TEST_F(HitQueueTest, SuspendAndDisposeCutALongRetryWaitShort) {
    HitQueueBase::SetRetryWait(std::chrono::hours(1));
    QueueParts parts(dir_);
    std::atomic<int> attempts{0};
    parts.processor->script = [&](const std::shared_ptr<TestHit>&) {
        return ++attempts == 1 ? HitProcessResult::RETRY : HitProcessResult::DONE;
    };
    auto queue = parts.Build();
    queue->Queue(MakeHit("a"));
    queue->BringOnline();
    ASSERT_TRUE(WaitFor([&] { return parts.processor->Finished() == 1; }));

    // Another BringOnline (as after every insert) does not cut the wait short...
    queue->Queue(MakeHit("b"));
    queue->BringOnline();
    EXPECT_EQ(queue->GetSize(), 2);
    // ...but a suspension does, and the next BringOnline starts again with the oldest row.
    queue->Suspend();
    queue->BringOnline();
    ASSERT_TRUE(WaitFor([&] { return queue->GetSize() == 0; }));
    EXPECT_EQ(parts.processor->Payloads(), (Payloads{"a", "a", "b"}));

    parts.processor->script = [](const std::shared_ptr<TestHit>&) { return HitProcessResult::RETRY; };
    queue->Queue(MakeHit("c"));
    ASSERT_TRUE(WaitFor([&] { return parts.processor->Finished() == 4; }));
    EXPECT_TRUE(queue->Dispose(std::chrono::seconds(20)));
    EXPECT_EQ(queue->GetSize(), 1);
}

TEST_F(HitQueueTest, AProcessorThatThrowsGetsTheHitAgain) {
    LogCapture log;
    QueueParts parts(dir_);
    std::atomic<int> attempts{0};
    parts.processor->script = [&](const std::shared_ptr<TestHit>&) {
        if (++attempts == 1) {
            throw std::runtime_error("socket exploded");
        }
        return HitProcessResult::DONE;
    };
    auto queue = parts.Build();
    queue->Queue(MakeHit("a"));
    queue->BringOnline();
    ASSERT_TRUE(WaitFor([&] { return queue->GetSize() == 0; }));
    EXPECT_EQ(parts.processor->Payloads(), (Payloads{"a", "a"}));
    EXPECT_TRUE(log.Contains("Processing hit 1 of table TEST_HITS failed: socket exploded"));
}

TEST_F(HitQueueTest, DroppingTheLastReferenceFromTheProcessorIsSafe) {
    QueueParts parts(dir_);
    std::shared_ptr<TestHitQueue> owner;
    std::weak_ptr<TestHitQueue> watcher;
    parts.processor->script = [&](const std::shared_ptr<TestHit>&) {
        owner.reset();  // the last strong reference outside the worker
        return HitProcessResult::DONE;
    };
    owner = parts.Build();
    parts.queue.reset();
    watcher = owner;
    owner->Queue(MakeHit("a"));
    owner->Queue(MakeHit("b"));
    owner->BringOnline();
    ASSERT_TRUE(WaitFor([&] { return watcher.expired(); }));
    EXPECT_EQ(parts.processor->Calls(), 1u);

    QueueParts reopened(dir_);
    auto queue = reopened.Build();
    EXPECT_TRUE(WaitFor([&] { return queue->GetSize() == 1; }));
}

TEST_F(HitQueueTest, ConcurrentProducersEachRowSentOnce) {
    QueueParts parts(dir_);
    auto queue = parts.Build();
    queue->BringOnline();
    std::vector<std::thread> producers;
    for (int p = 0; p < 4; ++p) {
        producers.emplace_back([&, p] {
            for (int i = 0; i < 25; ++i) {
                queue->Queue(MakeHit(std::to_string(p) + "-" + std::to_string(i)));
                if (i % 10 == 0) {
                    queue->GetSize();
                    queue->UpdateAllHits({{"COUNT", Variant::FromInteger(p)}});
                }
            }
        });
    }
    for (auto& producer : producers) {
        producer.join();
    }
    ASSERT_TRUE(WaitFor([&] { return parts.processor->Finished() == 100 && queue->GetSize() == 0; }));
    auto payloads = parts.processor->Payloads();
    std::set<std::string> unique(payloads.begin(), payloads.end());
    EXPECT_EQ(unique.size(), 100u);
}
