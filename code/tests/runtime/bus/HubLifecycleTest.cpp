#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "runtime/bus/EventBuilder.h"
#include "runtime/bus/EventHub.h"
#include "tests/runtime/bus/HubTestModules.h"
#include "tests/support/LogCapture.h"
#include "tests/support/OurThreads.h"
#include "tests/support/WaitFor.h"

using namespace VelmoraMobile;
using VelmoraTest::Gate;
using VelmoraTest::RecordingModule;
using VelmoraTest::WaitFor;

namespace {

std::shared_ptr<EventType> PingType() {
    return EventType::Get("test.ping");
}
std::shared_ptr<EventSource> PingSource() {
    return EventSource::Get("test.ping");
}
std::shared_ptr<Event> Ping(const std::string& pair = "") {
    EventBuilder builder("ping", PingType(), PingSource());
    if (!pair.empty()) builder.SetPairID(pair);
    return builder.Build();
}

// A log of steps, shared between the test thread, the hub thread and task threads.
struct Steps {
    void Add(const std::string& step) {
        std::lock_guard<std::mutex> lock(mutex);
        steps.push_back(step);
    }
    std::vector<std::string> Get() {
        std::lock_guard<std::mutex> lock(mutex);
        return steps;
    }
    std::mutex mutex;
    std::vector<std::string> steps;
};

TEST(HubLifecycleTest, OnRegisteredRunsOnceBeforeAnyListenerHears) {
    auto hub = std::make_shared<EventHub>(nullptr);
    auto module = std::make_shared<RecordingModule>();
    Gate latch;
    std::atomic<bool> registered{false};
    struct Spy : VelmoraTest::RecordingListener {
        std::atomic<bool>* registered = nullptr;
        std::atomic<int> heard_too_early{0};
        void Hear(const std::shared_ptr<Event>& event) override {
            if (!registered->load()) ++heard_too_early;
            RecordingListener::Hear(event);
        }
    };
    auto spy = std::make_shared<Spy>();
    spy->registered = &registered;
    module->on_registered = [&, spy] {
        module->RegisterListener(spy, PingType(), PingSource(), "");
        latch.Wait();  // events pile up behind the registration meanwhile
        registered = true;
    };
    auto before = Ping();
    hub->Dispatch(before);
    ASSERT_TRUE(hub->RegisterModule(module));
    for (int i = 0; i < 50; ++i) hub->Dispatch(Ping());
    latch.Open();
    ASSERT_TRUE(module->WaitForCount(PingType(), PingSource(), 50));
    ASSERT_TRUE(module->Sync(*hub));
    EXPECT_EQ(spy->heard_too_early.load(), 0);
    for (const auto& event : module->Events()) EXPECT_NE(event, before) << "dispatched before registration";
    hub->Shutdown();
    EXPECT_TRUE(spy->IsFullyUnregistered());
    EXPECT_EQ(module->on_registered_calls.load(), 1);
}

TEST(HubLifecycleTest, UnregistrationRunsEarlierTasksThenRequiredOnesAndDropsLaterOnes) {
    auto hub = std::make_shared<EventHub>(nullptr);
    auto module = std::make_shared<RecordingModule>("test.leaving");
    Steps steps;
    Gate latch;
    auto step = [&](const std::string& name) { return [&steps, name] { steps.Add(name); }; };
    module->on_unregistered = [&] {
        steps.Add("OnUnregistered");
        module->AddTaskToQueue("ordinary", step("ordinary in OnUnregistered"));
        module->AddTaskToQueue("required", step("required"), Module::REQUIRED_FOR_UNREGISTRATION);
    };
    ASSERT_TRUE(hub->RegisterModule(module));
    module->AddTaskToQueue("blocking", [&] {
        steps.Add("blocking");
        latch.Wait();
    });
    module->AddTaskToQueue("queued before", step("queued before"));
    ASSERT_TRUE(WaitFor([&] { return !steps.Get().empty(); }));
    auto unregistered = std::async(std::launch::async, [&] { return hub->UnregisterModule("test.leaving"); });
    ASSERT_TRUE(WaitFor([&] { return steps.Get().size() == 2; }));
    module->AddTaskToQueue("added later", step("added later"));
    latch.Open();
    ASSERT_TRUE(unregistered.get());
    EXPECT_EQ(steps.Get(), (std::vector<std::string>{"blocking", "OnUnregistered", "queued before", "required"}));
    EXPECT_FALSE(hub->UnregisterModule("test.leaving"));
    EXPECT_TRUE(hub->RegisterModule(std::make_shared<RecordingModule>("test.leaving")));  // the name is free again
    hub->Shutdown();
}

TEST(HubLifecycleTest, ShutdownUnregistersNewestFirstDeliversLastEventsAndJoinsEveryThread) {
    size_t threads_before = VelmoraTest::OurThreadCount();
    auto hub = std::make_shared<EventHub>(nullptr);
    Steps steps;
    std::atomic<int> answers{0}, tasks_run{0};
    std::vector<std::shared_ptr<RecordingModule>> modules;
    for (int i = 0; i < 3; ++i) {
        auto module = std::make_shared<RecordingModule>("test.module." + std::to_string(i));
        RecordingModule* raw = module.get();
        module->on_unregistered = [&steps, raw] {
            steps.Add(raw->GetModuleName());
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
    EXPECT_EQ(steps.Get(), (std::vector<std::string>{"test.module.2", "test.module.1", "test.module.0"}));
    EXPECT_LE(VelmoraTest::OurThreadCount(), threads_before);
    hub->Dispatch(Ping());  // a stopped hub takes nothing more
    EXPECT_FALSE(hub->RegisterModule(std::make_shared<RecordingModule>("test.too.late")));
    hub->Shutdown();
}

}  // namespace

TEST(HubLifecycleTest, DestroyingAHubStopsItAsShutdownWouldAndFreesItsModules) {
    std::weak_ptr<RecordingModule> weak_module;
    std::atomic<int> tasks_run{0};
    std::atomic<bool> required_ran{false};
    {
        auto hub = std::make_shared<EventHub>(nullptr);
        auto module = std::make_shared<RecordingModule>();
        weak_module = module;
        RecordingModule* raw = module.get();
        module->on_unregistered = [raw, &required_ran] {
            raw->AddTaskToQueue(
                "required", [&required_ran] { required_ran = true; }, Module::REQUIRED_FOR_UNREGISTRATION);
        };
        ASSERT_TRUE(hub->RegisterModule(module));
        // Tasks that own their module would keep it alive forever if they were never run or dropped.
        for (int i = 0; i < 1000; ++i) {
            module->AddTaskToQueue("owning", [module, &tasks_run] { ++tasks_run; });
        }
        for (int i = 0; i < 100; ++i) hub->Dispatch(EventBuilder("pending", PingType(), PingSource()).Build());
        // The delivery thread holds the hub for a moment while it registers a module.
        ASSERT_TRUE(WaitFor([&] { return module->IsRegistered(); }));
    }
    // All of it happened before the destructor returned.
    EXPECT_EQ(tasks_run.load(), 1000);
    EXPECT_TRUE(required_ran.load());
    EXPECT_TRUE(weak_module.expired());
    EXPECT_EQ(VelmoraTest::OurThreadCount(), 0u);
}

TEST(HubLifecycleTest, AStuckTaskIsAbandonedAtTheDeadlineWithALogLine) {
    VelmoraTest::LogCapture log(LoggingMode::WARNING_LOG);
    auto hub = std::make_shared<EventHub>(nullptr);
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
