// The queue's life: sending order, retries, states, restarts and shutdown.

#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <thread>
#include <utility>

#include "tests/runtime/hitqueue/HitQueueTestSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"

using namespace VelmoraTest;
using std::chrono::milliseconds;
using HitQueueTest = HitQueueFixture;

TEST_F(HitQueueTest, BringOnlineFromSeveralProducersMakesOneWorkerAndSendsEachRowOnce) {
    QueueParts parts(dir_);
    parts.processor->script = [](const std::shared_ptr<TestHit>&) {
        std::this_thread::sleep_for(milliseconds(2));  // wide enough for a second worker to overlap
        return HitProcessResult::DONE;
    };
    auto queue = parts.Build();
    queue->BringOnline();
    queue->BringOnline();
    std::vector<std::thread> producers;
    for (int p = 0; p < 4; ++p) {
        producers.emplace_back([&, p] {
            for (int i = 0; i < 15; ++i) {
                queue->Queue(MakeHit(std::to_string(p) + "-" + std::to_string(i)));
                queue->BringOnline();
                if (i % 5 == 0) queue->UpdateAllHits({{"COUNT", Variant::FromInteger(p)}});
            }
        });
    }
    for (auto& producer : producers) producer.join();
    ASSERT_TRUE(WaitFor([&] { return parts.processor->finished == 60 && queue->GetSize() == 0; }));
    auto payloads = parts.processor->Payloads();
    EXPECT_EQ(std::set<std::string>(payloads.begin(), payloads.end()).size(), 60u);
    EXPECT_EQ(parts.processor->overlaps.load(), 0);
}

// A hit in process while its rows are deleted: its answer may not touch a newer row that took its key.
TEST_F(HitQueueTest, ADoneHitDeletesItsOwnRowNotANewerOneThatTookItsKey) {
    QueueParts parts(dir_);
    parts.schema = std::make_shared<TestHitSchema>(false);
    Gate gate;
    parts.processor->script = [&](const std::shared_ptr<TestHit>& hit) {
        if (hit->payload == "a") gate.Wait();
        return HitProcessResult::DONE;
    };
    auto queue = parts.Build();
    for (const char* payload : {"a", "b"}) queue->Queue(MakeHit(payload));
    queue->BringOnline();
    ASSERT_TRUE(WaitFor([&] { return gate.Waiting() == 1; }));
    // An opt-out and a new sync while "a" is out: the new row gets the key 1 again.
    queue->Suspend();
    EXPECT_TRUE(queue->DeleteAllHits());
    queue->Queue(MakeHit("new"));
    EXPECT_EQ(Sql("SELECT ID FROM TEST_HITS"), (Rows{{"1"}}));
    gate.Open();
    ASSERT_TRUE(WaitFor([&] { return parts.processor->finished == 1; }));
    queue->BringOnline();
    ASSERT_TRUE(WaitFor([&] { return parts.processor->finished == 2; }));
    EXPECT_TRUE(queue->Dispose(std::chrono::seconds(20)));
    EXPECT_EQ(parts.processor->Payloads(), (Strings{"a", "new"}));
    EXPECT_TRUE(Sql("SELECT * FROM TEST_HITS").empty());
}

// A retry, or a processor that throws, keeps the row and its place.
TEST_F(HitQueueTest, ARetryWaitsItsFullTimeAlsoAcrossSuspendAndBringOnline) {
    const auto wait = milliseconds(600);
    HitQueueBase::SetRetryWait(wait);
    LogCapture log;
    QueueParts parts(dir_);
    std::vector<std::chrono::steady_clock::time_point> attempts;  // on the worker; read after Finished() counts it
    parts.processor->script = [&, thrown = false](const std::shared_ptr<TestHit>& hit) mutable {
        if (hit->payload == "b" && !std::exchange(thrown, true)) throw std::runtime_error("socket exploded");
        if (hit->payload == "b") return HitProcessResult::DONE;
        attempts.push_back(std::chrono::steady_clock::now());
        return attempts.size() == 1 ? HitProcessResult::RETRY : HitProcessResult::DONE;
    };
    auto queue = parts.Build();
    for (const char* payload : {"a", "b"}) queue->Queue(MakeHit(payload));
    queue->BringOnline();
    ASSERT_TRUE(WaitFor([&] { return parts.processor->finished == 1; }));
    // A privacy change to unknown and back must not let the server be asked again at once.
    queue->Suspend();
    queue->BringOnline();
    ASSERT_TRUE(WaitFor([&] { return queue->GetSize() == 0 && parts.processor->finished == 3; }));
    EXPECT_GE(attempts[1] - attempts[0], wait);
    EXPECT_EQ(parts.processor->Payloads(), (Strings{"a", "a", "b", "b"}));
    EXPECT_TRUE(log.Contains("Processing hit 2 of table TEST_HITS failed: socket exploded"));
}

TEST_F(HitQueueTest, AHitInProcessAtDisposeIsKeptIfItFailedAndDeletedIfItWentOut) {
    for (HitProcessResult answer : {HitProcessResult::RETRY, HitProcessResult::DONE}) {
        TempDir dir;
        {
            QueueParts first(dir);
            Gate gate;
            first.processor->script = [&](const std::shared_ptr<TestHit>&) {
                gate.Wait();
                return answer;
            };
            auto queue = first.Build();
            for (const char* payload : {"slow", "b"}) queue->Queue(MakeHit(payload));
            queue->BringOnline();
            ASSERT_TRUE(WaitFor([&] { return gate.Waiting() == 1; }));
            EXPECT_FALSE(queue->Dispose(milliseconds(10)));
            gate.Open();
            EXPECT_TRUE(queue->Dispose(std::chrono::seconds(20)));
            EXPECT_EQ(first.processor->Payloads(), (Strings{"slow"}));
        }
        Strings left = answer == HitProcessResult::RETRY ? Strings{"slow", "b"} : Strings{"b"};
        QueueParts second(dir);
        auto queue = second.Build();
        queue->BringOnline();
        ASSERT_TRUE(WaitFor([&] { return queue->GetSize() == 0; }));
        EXPECT_EQ(second.processor->Payloads(), left);
    }
}
