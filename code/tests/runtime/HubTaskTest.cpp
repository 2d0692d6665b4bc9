#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "EventHub.h"
#include "HubTestModules.h"
#include "WaitFor.h"

using namespace VelmoraMobile;
using VelmoraTest::RecordingModule;
using VelmoraTest::WaitFor;

namespace {

// Counts tasks inside the module at once; more than one is an overlap.
struct OverlapDetector {
    std::atomic<int> inside{0};
    std::atomic<int> overlaps{0};
    std::atomic<int> completed{0};
    // Written without a lock on purpose: tasks that overlapped would race here.
    std::vector<std::pair<int, int>> order;

    void Run(int producer, int index) {
        if (inside.fetch_add(1) != 0) ++overlaps;
        order.emplace_back(producer, index);
        volatile unsigned spin = 0;
        for (int i = 0; i < 200; ++i) spin = spin + i;
        std::this_thread::yield();
        inside.fetch_sub(1);
        ++completed;
    }
};

TEST(HubTaskTest, TasksOfOneModuleNeverOverlapAndKeepTheirOrderUnderLoad) {
    auto hub = std::make_shared<EventHub>(nullptr);
    constexpr int kModules = 3;
    constexpr int kProducers = 4;
    constexpr int kPerProducer = 300;
    std::vector<std::shared_ptr<RecordingModule>> modules;
    std::vector<std::unique_ptr<OverlapDetector>> detectors;
    for (int m = 0; m < kModules; ++m) {
        modules.push_back(std::make_shared<RecordingModule>("test.tasks." + std::to_string(m)));
        detectors.push_back(std::make_unique<OverlapDetector>());
        ASSERT_TRUE(hub->RegisterModule(modules.back()));
    }

    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
        producers.emplace_back([&, p] {
            for (int i = 0; i < kPerProducer; ++i) {
                for (int m = 0; m < kModules; ++m) {
                    OverlapDetector* detector = detectors[m].get();
                    modules[m]->AddTaskToQueue("load", [detector, p, i] { detector->Run(p, i); });
                }
            }
        });
    }
    for (auto& producer : producers) producer.join();

    for (int m = 0; m < kModules; ++m) {
        OverlapDetector& detector = *detectors[m];
        ASSERT_TRUE(WaitFor([&] { return detector.completed.load() == kProducers * kPerProducer; }));
        EXPECT_EQ(detector.overlaps.load(), 0) << "module " << m;
        // Each producer's tasks ran in the order it added them.
        std::vector<int> next(kProducers, 0);
        for (const auto& step : detector.order) {
            EXPECT_EQ(step.second, next[step.first]) << "module " << m << " producer " << step.first;
            next[step.first] = step.second + 1;
        }
    }
    hub->Shutdown();
}

TEST(HubTaskTest, TasksAddedBeforeRegistrationWaitForOnRegistered) {
    auto hub = std::make_shared<EventHub>(nullptr);
    auto module = std::make_shared<RecordingModule>();
    bool registered_when_task_ran = false;  // written by the task only
    std::atomic<bool> ran{false};
    std::atomic<bool> on_registered_done{false};
    module->on_registered = [&] { on_registered_done = true; };
    module->AddTaskToQueue("early", [&] {
        registered_when_task_ran = on_registered_done.load();
        ran = true;
    });
    ASSERT_TRUE(hub->RegisterModule(module));
    ASSERT_TRUE(WaitFor([&] { return ran.load(); }));
    EXPECT_TRUE(registered_when_task_ran);
    hub->Shutdown();
}

TEST(HubTaskTest, AThrowingTaskEndsOnlyItself) {
    auto hub = std::make_shared<EventHub>(nullptr);
    auto module = std::make_shared<RecordingModule>();
    ASSERT_TRUE(hub->RegisterModule(module));
    std::atomic<bool> after{false};
    module->AddTaskToQueue("throws", [] { VELMORA_THROW("test.failure", "task failed on purpose"); });
    module->AddTaskToQueue("throws std", [] { throw std::runtime_error("plain failure"); });
    module->AddTaskToQueue("after", [&] { after = true; });
    EXPECT_TRUE(WaitFor([&] { return after.load(); }));
    hub->Shutdown();
}

}  // namespace
