// The hub's rules: event order and delivery, listeners, shared states, task queues and the module
// lifecycle from registration to shutdown.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "runtime/bus/SharedStatePending.h"
#include "tests/runtime/bus/HubTestModules.h"
#include "tests/support/LogCapture.h"
#include "tests/support/OurThreads.h"

using namespace VelmoraMobile;
using namespace VelmoraTest;

namespace {

const auto PingType = [] { return EventType::Get("test.ping"); };
const auto PingSource = [] { return EventSource::Get("test.ping"); };
std::shared_ptr<Event> Ping(const std::string& pair = "", int32_t number = -1) {
    EventBuilder builder(pair.empty() ? "ping" : pair, PingType(), PingSource());
    if (!pair.empty()) builder.SetPairID(pair);
    if (number >= 0) builder.SetEventNumber(number);
    return builder.Build();
}
std::shared_ptr<EventData> StateWith(const std::string& value) {
    auto data = std::make_shared<EventData>();
    data->PutString("value", value);
    return data;
}

class HubTest : public ::testing::Test {
protected:
    void TearDown() override { hub->Shutdown(); }

    std::shared_ptr<EventHub> hub = std::make_shared<EventHub>(nullptr);
    std::shared_ptr<RecordingModule> recorder = std::make_shared<RecordingModule>();
};

TEST_F(HubTest, OneTimeListenerFiresOnceAndPairBoundListenersHearOnlyTheirPair) {
    auto paired = std::make_shared<RecordingModule>("test.pair");
    paired->on_registered = [&] {
        paired->RegisterListener(std::make_shared<RecordingListener>(), PingType(), PingSource(), "p-1");
    };
    ASSERT_TRUE(hub->RegisterModule(recorder));
    ASSERT_TRUE(hub->RegisterModule(paired));
    std::vector<std::string> answered;  // on the delivery thread; read after a Sync
    auto once = [&](const std::string& pair) {
        hub->RegisterOneTimeListener<RecordingModule>(
            EventType::IDENTITY, EventSource::RESPONSE_IDENTITY, pair,
            [&answered, pair](const std::shared_ptr<Event>& e) { answered.push_back(pair + ":" + e->GetName()); });
    };
    auto respond = [&](const std::shared_ptr<EventSource>& source, const std::string& pair, const std::string& name) {
        hub->Dispatch(EventBuilder(name, EventType::IDENTITY, source).SetPairID(pair).Build());
    };
    once("pair");
    EXPECT_THROW(hub->RegisterOneTimeListener<RecordingModule>(PingType(), PingSource(), "p", {}), SdkError);
    respond(EventSource::RESPONSE_CONTENT, "pair", "wrong source");
    respond(EventSource::RESPONSE_IDENTITY, "other", "wrong pair");
    respond(EventSource::RESPONSE_IDENTITY, "pair", "first");
    respond(EventSource::RESPONSE_IDENTITY, "pair", "second");
    hub->Dispatch(Ping("p-2"));
    hub->Dispatch(Ping("p-1"));
    ASSERT_TRUE(recorder->Sync(*hub));
    // The next listener hears its own pair only, not the pair of the one that fired before it.
    once("pair-2");
    respond(EventSource::RESPONSE_IDENTITY, "pair", "third");
    respond(EventSource::RESPONSE_IDENTITY, "pair-2", "fourth");
    ASSERT_TRUE(recorder->Sync(*hub));
    EXPECT_EQ(answered, (std::vector<std::string>{"pair:first", "pair-2:fourth"}));
    auto pings = paired->EventsOf(PingType(), PingSource());
    EXPECT_TRUE(pings.size() == 1 && pings[0]->GetName() == "p-1") << pings.size();
    EventBuilder twice("twice", PingType(), PingSource());  // gives its pair id to every event it builds
    twice.SetPairID("p-twice");
    EXPECT_EQ(twice.Build()->GetResponsePairID() + twice.Build()->GetResponsePairID(), "p-twicep-twice");
}

TEST_F(HubTest, StatesAreSeenFromTheirVersionOnPendingResolvesBackAndEachNewOneIsAnnounced) {
    auto owner = std::make_shared<RecordingModule>("test.owner");
    recorder->Listen(EventType::HUB, EventSource::SHARED_STATE);
    ASSERT_TRUE(hub->RegisterModule(owner));
    ASSERT_TRUE(hub->RegisterModule(recorder));
    ASSERT_TRUE(recorder->Sync(*hub));
    auto early = Ping();
    hub->Dispatch(early);
    EXPECT_EQ(recorder->GetSharedEventState("test.nobody", early), nullptr);
    EXPECT_EQ(recorder->GetSharedEventState("test.owner", early), nullptr);
    ASSERT_TRUE(owner->CreateSharedState(0, SHARED_STATE_PENDING));
    auto before_resolution = Ping();
    hub->Dispatch(before_resolution);
    EXPECT_EQ(recorder->GetSharedEventState("test.owner", before_resolution), SHARED_STATE_PENDING);
    ASSERT_TRUE(recorder->Sync(*hub));
    EXPECT_TRUE(recorder->EventsOf(EventType::HUB, EventSource::SHARED_STATE).empty()) << "pending announces nothing";

    auto resolved = StateWith("first"), fifty = StateWith("fifty");
    ASSERT_TRUE(owner->UpdateSharedState(0, resolved));
    EXPECT_EQ(recorder->GetSharedEventState("test.owner", before_resolution), resolved);
    EXPECT_FALSE(owner->UpdateSharedState(0, StateWith("again")));
    EXPECT_FALSE(owner->UpdateSharedState(7, StateWith("never announced")));
    ASSERT_TRUE(owner->CreateSharedState(50, fifty));
    ASSERT_TRUE(recorder->CreateSharedState(51, StateWith("recorder's own")));
    EXPECT_FALSE(owner->CreateSharedState(50, StateWith("same version")));
    EXPECT_FALSE(owner->CreateSharedState(60, nullptr));
    EXPECT_EQ(hub->GetSharedEventState("test.owner", Ping("", 49)), resolved);
    EXPECT_EQ(hub->GetSharedEventState("test.owner", Ping("", 50)), fifty);
    EXPECT_EQ(hub->GetSharedEventState("test.recorder", Ping("", 50)), nullptr);
    ASSERT_TRUE(recorder->WaitForCount(EventType::HUB, EventSource::SHARED_STATE, 3));
    ASSERT_TRUE(recorder->Sync(*hub));
    std::vector<std::string> owners;
    for (const auto& event : recorder->EventsOf(EventType::HUB, EventSource::SHARED_STATE)) {
        owners.push_back(event->GetData()->OptString("stateowner", ""));
    }
    EXPECT_EQ(owners, (std::vector<std::string>{"test.owner", "test.owner", "test.recorder"}));
}

TEST_F(HubTest, FromFourThreadsEventsArriveOnceInNumberOrderAndTasksOfOneModuleNeverOverlapOrReorder) {
    recorder->Listen(PingType(), PingSource());
    ASSERT_TRUE(hub->RegisterModule(recorder));
    constexpr int kModules = 3, kProducers = 4, kPerProducer = 300;
    struct OverlapDetector {  // counts the tasks inside its module at once
        std::atomic<int> inside{0}, overlaps{0}, completed{0};
        std::vector<std::pair<int, int>> order;  // no lock on purpose: overlapping tasks would race here
    } detectors[kModules];
    std::vector<std::shared_ptr<RecordingModule>> modules;
    for (int m = 0; m < kModules; ++m) {
        modules.push_back(std::make_shared<RecordingModule>("test.tasks." + std::to_string(m)));
        ASSERT_TRUE(hub->RegisterModule(modules.back()));
    }
    // A throwing task ends only itself.
    modules[0]->AddTaskToQueue("throws", [] { VELMORA_THROW("test.failure", "task failed on purpose"); });
    modules[0]->AddTaskToQueue("throws std", [] { throw std::runtime_error("plain failure"); });
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
        producers.emplace_back([&, p] {
            for (int i = 0; i < kPerProducer * kModules; ++i) {
                if (i % kModules == 0) hub->Dispatch(Ping());
                modules[i % kModules]->AddTaskToQueue("load", [d = &detectors[i % kModules], p, i] {
                    if (d->inside.fetch_add(1) != 0) ++d->overlaps;
                    d->order.emplace_back(p, i);
                    std::this_thread::yield();
                    d->inside.fetch_sub(1);
                    ++d->completed;
                });
            }
        });
    }
    for (auto& producer : producers) producer.join();
    ASSERT_TRUE(recorder->Sync(*hub));
    auto heard = recorder->EventsOf(PingType(), PingSource());
    ASSERT_EQ(heard.size(), size_t(kProducers * kPerProducer));
    for (size_t i = 1; i < heard.size(); ++i) ASSERT_LT(heard[i - 1]->GetEventNumber(), heard[i]->GetEventNumber());
    for (auto& detector : detectors) {
        ASSERT_TRUE(WaitFor([&] { return detector.completed.load() == kProducers * kPerProducer; }));
        EXPECT_EQ(detector.overlaps.load(), 0);
        std::vector<int> last(kProducers, -1);
        for (const auto& [producer, i] : detector.order) {
            EXPECT_GT(i, last[producer]);
            last[producer] = i;
        }
    }
}

TEST_F(HubTest, OnRegisteredRunsBeforeAnyTaskOrListenerOfItsModule) {
    Gate latch;
    std::atomic<bool> registered{false};
    std::atomic<int> early_task{0};  // 1: ran too early, 2: ran after OnRegistered
    std::atomic<size_t> heard_during_registration{99};
    auto listener = std::make_shared<RecordingListener>();
    recorder->on_registered = [&] {
        recorder->RegisterListener(listener, PingType(), PingSource(), "");
        latch.Wait();  // events pile up behind the registration meanwhile
        heard_during_registration = recorder->Events().size();
        registered = true;
    };
    recorder->AddTaskToQueue("early", [&] { early_task = registered ? 2 : 1; });
    auto before = Ping();
    hub->Dispatch(before);
    ASSERT_TRUE(hub->RegisterModule(recorder));
    for (int i = 0; i < 50; ++i) hub->Dispatch(Ping());
    latch.Open();
    ASSERT_TRUE(recorder->WaitForCount(PingType(), PingSource(), 50));
    ASSERT_TRUE(recorder->Sync(*hub));
    EXPECT_EQ(heard_during_registration.load(), 0u);
    EXPECT_TRUE(WaitFor([&] { return early_task.load() == 2; })) << early_task.load();
    for (const auto& event : recorder->Events()) EXPECT_NE(event, before) << "dispatched before registration";
    hub->Shutdown();
    EXPECT_TRUE(listener->IsFullyUnregistered());
}

TEST_F(HubTest, UnregistrationRunsEarlierTasksThenRequiredOnesAndDropsLaterOnes) {
    auto module = std::make_shared<RecordingModule>("test.leaving");
    std::vector<std::string> steps;  // the gates order every step with the next
    Gate blocking, unregistering, latch;
    auto step = [&](const std::string& name) { return [&steps, name] { steps.push_back(name); }; };
    module->on_unregistered = [&] {
        steps.push_back("OnUnregistered");
        module->AddTaskToQueue("ordinary", step("ordinary in OnUnregistered"));
        module->AddTaskToQueue("required", step("required"), Module::REQUIRED_FOR_UNREGISTRATION);
        unregistering.Open();
    };
    ASSERT_TRUE(hub->RegisterModule(module));
    module->AddTaskToQueue("blocking", [&] {
        steps.push_back("blocking");
        blocking.Open();
        latch.Wait();
    });
    module->AddTaskToQueue("queued before", step("queued before"));
    blocking.Wait();
    auto unregistered = std::async(std::launch::async, [&] { return hub->UnregisterModule("test.leaving"); });
    unregistering.Wait();
    module->AddTaskToQueue("added later", step("added later"));
    latch.Open();
    ASSERT_TRUE(unregistered.get());
    EXPECT_EQ(steps, (std::vector<std::string>{"blocking", "OnUnregistered", "queued before", "required"}));
    EXPECT_FALSE(hub->UnregisterModule("test.leaving"));
    EXPECT_TRUE(hub->RegisterModule(std::make_shared<RecordingModule>("test.leaving")));  // the name is free again
}

TEST_F(HubTest, ShutdownUnregistersNewestFirstDeliversLastEventsAndJoinsEveryThread) {
    size_t threads_before = OurThreadCount();
    std::vector<std::string> steps;  // on the delivery thread, read after it is joined
    std::atomic<int> answers{0}, tasks_run{0};
    std::vector<std::shared_ptr<RecordingModule>> modules;
    for (int i = 0; i < 3; ++i) {
        auto module = std::make_shared<RecordingModule>("test.module." + std::to_string(i));
        module->on_unregistered = [&steps, raw = module.get()] {
            steps.push_back(raw->GetModuleName());
            // Sent after OnUnregistered: still reaches the one-time listener.
            raw->AddTaskToQueue(
                "answer", [raw] { raw->GetEventHub()->Dispatch(Ping(raw->GetModuleName())); },
                Module::REQUIRED_FOR_UNREGISTRATION);
        };
        ASSERT_TRUE(hub->RegisterModule(module));
        hub->RegisterOneTimeListener<RecordingModule>(PingType(), PingSource(), module->GetModuleName(),
                                                      [&](const std::shared_ptr<Event>&) { ++answers; });
        modules.push_back(module);
    }
    for (int i = 0; i < 100; ++i) modules[i % 3]->AddTaskToQueue("work", [&] { ++tasks_run; });
    hub->Shutdown();
    EXPECT_EQ(tasks_run.load(), 100);
    EXPECT_EQ(answers.load(), 3);
    EXPECT_EQ(steps, (std::vector<std::string>{"test.module.2", "test.module.1", "test.module.0"}));
    EXPECT_LE(OurThreadCount(), threads_before);
    hub->Dispatch(Ping());  // a stopped hub takes nothing more
    EXPECT_FALSE(hub->RegisterModule(std::make_shared<RecordingModule>("test.too.late")));
}

TEST_F(HubTest, AStuckTaskIsAbandonedAtTheDeadlineWithALogLine) {
    LogCapture log(LoggingMode::WARNING_LOG);
    auto module = std::make_shared<RecordingModule>("test.stuck");
    Gate entered, release;
    std::atomic<bool> later_ran{false};
    ASSERT_TRUE(hub->RegisterModule(module));
    module->AddTaskToQueue("stuck", [&] {
        entered.Open();
        release.Wait();
    });
    module->AddTaskToQueue("behind", [&] { later_ran = true; });
    entered.Wait();
    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(hub->Shutdown(std::chrono::milliseconds(300)));
    auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(300));
    EXPECT_LT(took, std::chrono::seconds(5));
    EXPECT_TRUE(log.ContainsFragment("abandoned: the tasks of module test.stuck"));
    EXPECT_FALSE(hub->IsRegisteredModule("test.stuck"));
    // The stuck task ends on its own thread; what was queued behind it never runs.
    release.Open();
    EXPECT_TRUE(WaitFor([&] { return module.use_count() == 1; }));
    EXPECT_FALSE(later_ran.load());
    EXPECT_TRUE(hub->Shutdown(std::chrono::milliseconds(0)));
}

}  // namespace
