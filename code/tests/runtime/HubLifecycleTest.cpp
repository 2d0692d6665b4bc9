#include <dirent.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "EventBuilder.h"
#include "EventHub.h"
#include "HubTestModules.h"
#include "LogCapture.h"
#include "WaitFor.h"

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

size_t ThreadCount() {
    size_t count = 0;
    if (DIR* dir = opendir("/proc/self/task")) {
        while (dirent* entry = readdir(dir)) {
            if (entry->d_name[0] != '.') ++count;
        }
        closedir(dir);
    }
    return count;
}

// A log of steps, shared between the test thread, the hub thread and task threads.
class Steps {
public:
    void Add(const std::string& step) {
        std::lock_guard<std::mutex> lock(mutex_);
        steps_.push_back(step);
    }
    std::vector<std::string> Get() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return steps_;
    }
    bool Has(const std::string& step) const {
        for (const auto& s : Get()) {
            if (s == step) return true;
        }
        return false;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> steps_;
};

TEST(HubLifecycleTest, OnRegisteredRunsOnceBeforeAnyListenerHears) {
    auto hub = std::make_shared<EventHub>(nullptr);
    auto module = std::make_shared<RecordingModule>();
    Gate gate;
    std::atomic<bool> on_registered_returned{false};
    struct Spy : VelmoraTest::RecordingListener {
        std::atomic<bool>* registered = nullptr;
        std::atomic<int> heard_too_early{0};
        void Hear(const std::shared_ptr<Event>& event) override {
            if (!registered->load()) ++heard_too_early;
            RecordingListener::Hear(event);
        }
    };
    auto spy = std::make_shared<Spy>();
    spy->registered = &on_registered_returned;
    module->on_registered = [&, spy] {
        module->RegisterListener(spy, PingType(), PingSource(), "");
        gate.Wait();  // events pile up behind the registration meanwhile
        on_registered_returned = true;
    };

    auto before = EventBuilder("before", PingType(), PingSource()).Build();
    hub->Dispatch(before);
    ASSERT_TRUE(hub->RegisterModule(module));
    for (int i = 0; i < 50; ++i) hub->Dispatch(EventBuilder("after", PingType(), PingSource()).Build());
    gate.Open();

    ASSERT_TRUE(module->WaitForCount(PingType(), PingSource(), 50));
    ASSERT_TRUE(module->Sync(*hub));
    EXPECT_EQ(module->on_registered_calls.load(), 1);
    EXPECT_EQ(spy->heard_too_early.load(), 0);
    // The event dispatched before the registration came before it in the order.
    for (const auto& event : module->Events()) EXPECT_NE(event, before);
    EXPECT_TRUE(spy->IsFullyRegistered());
    hub->Shutdown();
    EXPECT_TRUE(spy->IsFullyUnregistered());
    EXPECT_EQ(module->on_registered_calls.load(), 1);
}

TEST(HubLifecycleTest, UnregistrationRunsEarlierTasksThenRequiredOnesAndDropsLaterOnes) {
    auto hub = std::make_shared<EventHub>(nullptr);
    auto module = std::make_shared<RecordingModule>("test.leaving");
    Steps steps;
    Gate gate;
    module->on_unregistered = [&] {
        steps.Add("OnUnregistered");
        module->AddTaskToQueue("ordinary in OnUnregistered", [&] { steps.Add("ordinary in OnUnregistered"); });
        module->AddTaskToQueue(
            "unregistration",
            [&] {
                steps.Add("required");
                module->AddTaskToQueue("ordinary from required", [&] { steps.Add("ordinary from required"); });
            },
            Module::REQUIRED_FOR_UNREGISTRATION);
    };
    ASSERT_TRUE(hub->RegisterModule(module));
    module->AddTaskToQueue("blocking", [&] {
        steps.Add("blocking");
        gate.Wait();
    });
    module->AddTaskToQueue("queued before", [&] { steps.Add("queued before"); });
    ASSERT_TRUE(WaitFor([&] { return steps.Has("blocking"); }));

    auto unregistered = std::async(std::launch::async, [&] { return hub->UnregisterModule("test.leaving"); });
    ASSERT_TRUE(WaitFor([&] { return steps.Has("OnUnregistered"); }));
    module->AddTaskToQueue("added later", [&] { steps.Add("added later"); });
    gate.Open();
    ASSERT_TRUE(unregistered.get());

    EXPECT_EQ(steps.Get(), (std::vector<std::string>{"blocking", "OnUnregistered", "queued before", "required"}));
    EXPECT_FALSE(hub->IsRegisteredModule("test.leaving"));
    EXPECT_FALSE(module->IsRegistered());
    EXPECT_FALSE(hub->UnregisterModule("test.leaving"));
    // The name is free again.
    EXPECT_TRUE(hub->RegisterModule(std::make_shared<RecordingModule>("test.leaving")));
    hub->Shutdown();
}

TEST(HubLifecycleTest, ShutdownUnregistersNewestFirstDeliversLastEventsAndJoinsEveryThread) {
    size_t threads_before = ThreadCount();
    auto hub = std::make_shared<EventHub>(nullptr);
    Steps steps;
    std::vector<std::shared_ptr<RecordingModule>> modules;
    for (int i = 0; i < 3; ++i) {
        auto module = std::make_shared<RecordingModule>("test.module." + std::to_string(i));
        RecordingModule* raw = module.get();
        module->on_unregistered = [&steps, raw] {
            steps.Add("unregistered " + raw->GetModuleName());
            raw->AddTaskToQueue(
                "answer",
                [raw] {
                    // Sent after OnUnregistered: reaches the one-time listener still.
                    raw->GetEventHub()->Dispatch(
                        EventBuilder("late answer", PingType(), PingSource()).SetPairID(raw->GetModuleName()).Build());
                },
                Module::REQUIRED_FOR_UNREGISTRATION);
        };
        ASSERT_TRUE(hub->RegisterModule(module));
        modules.push_back(module);
    }
    std::atomic<int> answers{0};
    for (const auto& module : modules) {
        hub->RegisterOneTimeListener<RecordingModule>(PingType(), PingSource(), module->GetModuleName(),
                                                      [&](const std::shared_ptr<Event>&) { ++answers; });
    }
    std::atomic<int> tasks_run{0};
    for (int i = 0; i < 100; ++i) modules[i % 3]->AddTaskToQueue("work", [&] { ++tasks_run; });
    EXPECT_GT(ThreadCount(), threads_before);

    hub->Shutdown();

    EXPECT_EQ(tasks_run.load(), 100);
    EXPECT_EQ(answers.load(), 3);
    EXPECT_EQ(steps.Get(), (std::vector<std::string>{"unregistered test.module.2", "unregistered test.module.1",
                                                     "unregistered test.module.0"}));
    EXPECT_LE(ThreadCount(), threads_before);
    for (const auto& module : modules) EXPECT_FALSE(hub->IsRegisteredModule(module->GetModuleName()));
    // A stopped hub takes nothing more, and a second Shutdown is harmless.
    hub->Dispatch(EventBuilder("too late", PingType(), PingSource()).Build());
    EXPECT_FALSE(hub->RegisterModule(std::make_shared<RecordingModule>("test.too.late")));
    hub->Shutdown();
}

TEST(HubLifecycleTest, DestroyingAHubWithoutShutdownDoesNotHangAndFreesItsModules) {
    std::weak_ptr<RecordingModule> weak_module;
    {
        auto hub = std::make_shared<EventHub>(nullptr);
        auto module = std::make_shared<RecordingModule>();
        weak_module = module;
        ASSERT_TRUE(hub->RegisterModule(module));
        // Tasks that own their module would keep it alive forever if they were never dropped.
        for (int i = 0; i < 1000; ++i) {
            module->AddTaskToQueue("owning", [module] { std::this_thread::yield(); });
        }
        hub->RegisterOneTimeListener<RecordingModule>(PingType(), PingSource(), "never",
                                                      [module](const std::shared_ptr<Event>&) {});
        for (int i = 0; i < 100; ++i) hub->Dispatch(EventBuilder("pending", PingType(), PingSource()).Build());
    }
    // Usually gone at once; if the delivery thread held the hub for a moment, the hub dies there.
    EXPECT_TRUE(WaitFor([&] { return weak_module.expired(); }));
}

// Holds the last reference to the hub and lets go of it where the test says.
class HubHolder : public RecordingModule {
public:
    HubHolder() : RecordingModule("test.holder") {}
    std::shared_ptr<EventHub> held;
    std::mutex mutex;
    void Release() {
        std::shared_ptr<EventHub> last;
        {
            std::lock_guard<std::mutex> lock(mutex);
            last.swap(held);
        }
    }
};

class ReleasingListener : public ModuleEventListener<HubHolder> {
public:
    void Hear(const std::shared_ptr<Event>&) override {
        if (auto module = GetParentModule()) module->Release();
    }
};

TEST(HubLifecycleTest, TheHubMayDieOnItsOwnDeliveryThreadOrOnATaskThread) {
    for (bool on_task : {false, true}) {
        std::weak_ptr<HubHolder> weak_module;
        std::weak_ptr<EventHub> weak_hub;
        {
            auto hub = std::make_shared<EventHub>(nullptr);
            weak_hub = hub;
            auto module = std::make_shared<HubHolder>();
            weak_module = module;
            module->held = hub;
            module->on_registered = [raw = module.get()] {
                raw->RegisterListener<ReleasingListener>(PingType(), PingSource());
            };
            ASSERT_TRUE(hub->RegisterModule(module));
            if (on_task) {
                HubHolder* raw = module.get();
                module->AddTaskToQueue("release", [raw] { raw->Release(); });
            } else {
                hub->Dispatch(EventBuilder("release", PingType(), PingSource()).Build());
            }
        }
        EXPECT_TRUE(WaitFor([&] { return weak_hub.expired(); })) << (on_task ? "task" : "delivery");
        EXPECT_TRUE(WaitFor([&] { return weak_module.expired(); })) << (on_task ? "task" : "delivery");
    }
}

TEST(HubLifecycleTest, AModuleMayLeaveFromItsOwnTaskAndShutdownOnAHubThreadIsRefused) {
    VelmoraTest::LogCapture log;
    auto hub = std::make_shared<EventHub>(nullptr);
    auto module = std::make_shared<RecordingModule>("test.self.leaving");
    std::atomic<bool> left{false};
    module->on_unregistered = [&] { left = true; };
    ASSERT_TRUE(hub->RegisterModule(module));
    module->AddTaskToQueue("shutdown from task", [&] { hub->Shutdown(); });
    module->AddTaskToQueue("leave", [&] { module->UnregisterModule(); });
    ASSERT_TRUE(WaitFor([&] { return left.load() && !hub->IsRegisteredModule("test.self.leaving"); }));
    EXPECT_EQ(log.Count("Shutdown called on a hub thread: ignored, the hub stops when it is destroyed"), 1u);
    hub->Shutdown();
}

}  // namespace
