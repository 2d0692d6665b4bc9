#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "runtime/bus/EventHub.h"
#include "tests/runtime/bus/HubTestModules.h"
#include "tests/support/WaitFor.h"

using namespace VelmoraMobile;
using VelmoraTest::RecordingModule;
using VelmoraTest::WaitFor;

namespace {

// Counts tasks inside the module at once; more than one is an overlap.
struct OverlapDetector {
    std::atomic<int> inside{0};
    std::atomic<int> overlaps{0};
    std::atomic<int> completed{0};
    std::vector<std::pair<int, int>> order;  // no lock on purpose: overlapping tasks would race here

    void Run(int producer, int index) {
        if (inside.fetch_add(1) != 0) ++overlaps;
        order.emplace_back(producer, index);
        std::this_thread::yield();
        inside.fetch_sub(1);
        ++completed;
    }
};

TEST(HubTaskTest, TasksOfOneModuleNeverOverlapAndKeepTheirOrderUnderLoad) {
    auto hub = std::make_shared<EventHub>(nullptr);
    constexpr int kModules = 3, kProducers = 4, kPerProducer = 300;
    std::vector<std::shared_ptr<RecordingModule>> modules;
    std::vector<std::unique_ptr<OverlapDetector>> detectors;
    for (int m = 0; m < kModules; ++m) {
        modules.push_back(std::make_shared<RecordingModule>("test.tasks." + std::to_string(m)));
        detectors.push_back(std::make_unique<OverlapDetector>());
        ASSERT_TRUE(hub->RegisterModule(modules.back()));
    }
    // A throwing task ends only itself.
    modules[0]->AddTaskToQueue("throws", [] { VELMORA_THROW("test.failure", "task failed on purpose"); });
    modules[0]->AddTaskToQueue("throws std", [] { throw std::runtime_error("plain failure"); });
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
        std::vector<int> next(kProducers, 0);
        for (const auto& step : detector.order) {
            EXPECT_EQ(step.second, next[step.first]++) << "module " << m << " producer " << step.first;
        }
    }
    hub->Shutdown();
}

TEST(HubTaskTest, TasksAddedBeforeRegistrationWaitForOnRegistered) {
    auto hub = std::make_shared<EventHub>(nullptr);
    auto module = std::make_shared<RecordingModule>();
    std::atomic<bool> on_registered_done{false};
    std::atomic<int> ran{0};  // 1: ran too early, 2: ran after OnRegistered
    module->on_registered = [&] { on_registered_done = true; };
    module->AddTaskToQueue("early", [&] { ran = on_registered_done ? 2 : 1; });
    ASSERT_TRUE(hub->RegisterModule(module));
    ASSERT_TRUE(WaitFor([&] { return ran.load() != 0; }));
    EXPECT_EQ(ran.load(), 2);
    hub->Shutdown();
}

}  // namespace
