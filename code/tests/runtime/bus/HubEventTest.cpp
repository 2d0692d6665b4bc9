#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "runtime/bus/EventBuilder.h"
#include "runtime/bus/EventHub.h"
#include "tests/runtime/bus/HubTestModules.h"
#include "tests/support/WaitFor.h"

using namespace VelmoraMobile;
using VelmoraTest::RecordingModule;
using VelmoraTest::WaitFor;

namespace {

std::shared_ptr<EventType> OrderType() {
    return EventType::Get("test.order");
}
std::shared_ptr<EventSource> OrderSource() {
    return EventSource::Get("test.order");
}
std::shared_ptr<Event> Order(const std::string& name) {
    return EventBuilder(name, OrderType(), OrderSource()).Build();
}

class HubEventTest : public ::testing::Test {
protected:
    void SetUp() override {
        recorder->Listen(OrderType(), OrderSource());
        recorder->Listen(EventType::IDENTITY, EventSource::RESPONSE_IDENTITY);
        recorder->Listen(EventType::HUB, EventSource::BOOTED);
        ASSERT_TRUE(hub->RegisterModule(recorder));
    }
    void TearDown() override { hub->Shutdown(); }

    std::shared_ptr<EventHub> hub = std::make_shared<EventHub>(nullptr);
    std::shared_ptr<RecordingModule> recorder = std::make_shared<RecordingModule>();
};

TEST_F(HubEventTest, EventsFromFourThreadsAreDeliveredOnceEachInNumberOrder) {
    constexpr int kThreads = 4, kPerThread = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kPerThread; ++i) hub->Dispatch(Order("order"));
        });
    }
    for (auto& thread : threads) thread.join();
    ASSERT_TRUE(recorder->Sync(*hub));
    auto heard = recorder->EventsOf(OrderType(), OrderSource());
    ASSERT_EQ(heard.size(), size_t(kThreads * kPerThread));
    for (size_t i = 1; i < heard.size(); ++i) {
        ASSERT_LT(heard[i - 1]->GetEventNumber(), heard[i]->GetEventNumber()) << "at delivery " << i;
    }
    std::set<Event*> distinct;
    for (const auto& event : heard) distinct.insert(event.get());
    EXPECT_EQ(distinct.size(), heard.size());
}

TEST_F(HubEventTest, OneTimeListenerFiresOnceAndPairBoundListenersHearOnlyTheirPair) {
    struct PairModule : RecordingModule {
        PairModule() : RecordingModule("test.pair") {}
        void OnRegistered() override {
            RegisterListener(std::make_shared<VelmoraTest::RecordingListener>(), OrderType(), OrderSource(), "p-1");
        }
    };
    auto paired = std::make_shared<PairModule>();
    ASSERT_TRUE(hub->RegisterModule(paired));
    std::atomic<int> calls{0};
    std::atomic<Event*> answered{nullptr};
    hub->RegisterOneTimeListener<RecordingModule>(EventType::IDENTITY, EventSource::RESPONSE_IDENTITY, "pair",
                                                  [&](const std::shared_ptr<Event>& e) {
                                                      answered = e.get();
                                                      ++calls;
                                                  });
    EXPECT_THROW(
        hub->RegisterOneTimeListener<RecordingModule>(EventType::IDENTITY, EventSource::RESPONSE_IDENTITY, "p", {}),
        SdkError);
    auto response = [](const std::shared_ptr<EventSource>& source, const std::string& pair) {
        return EventBuilder("response", EventType::IDENTITY, source).SetPairID(pair).Build();
    };
    hub->Dispatch(response(EventSource::RESPONSE_CONTENT, "pair"));    // wrong source
    hub->Dispatch(response(EventSource::RESPONSE_IDENTITY, "other"));  // wrong pair
    auto first = response(EventSource::RESPONSE_IDENTITY, "pair");
    hub->Dispatch(first);
    hub->Dispatch(response(EventSource::RESPONSE_IDENTITY, "pair"));
    hub->Dispatch(EventBuilder("other pair", OrderType(), OrderSource()).SetPairID("p-2").Build());
    hub->Dispatch(EventBuilder("its pair", OrderType(), OrderSource()).SetPairID("p-1").Build());
    ASSERT_TRUE(recorder->Sync(*hub));
    EXPECT_EQ(calls.load(), 1);
    EXPECT_EQ(answered.load(), first.get());
    EXPECT_EQ(recorder->EventsOf(EventType::IDENTITY, EventSource::RESPONSE_IDENTITY).size(), 3u);
    ASSERT_EQ(paired->Events().size(), 1u);
    EXPECT_EQ(paired->Events()[0]->GetName(), "its pair");

    // The next listener hears its own pair only, not the pair of the one that fired before it.
    std::atomic<Event*> next_answered{nullptr};
    hub->RegisterOneTimeListener<RecordingModule>(EventType::IDENTITY, EventSource::RESPONSE_IDENTITY, "pair-2",
                                                  [&](const std::shared_ptr<Event>& e) { next_answered = e.get(); });
    hub->Dispatch(response(EventSource::RESPONSE_IDENTITY, "pair"));
    auto second = response(EventSource::RESPONSE_IDENTITY, "pair-2");
    hub->Dispatch(second);
    ASSERT_TRUE(recorder->Sync(*hub));
    EXPECT_EQ(next_answered.load(), second.get());
    // A builder gives its pair id to every event it builds.
    EventBuilder twice("twice", OrderType(), OrderSource());
    twice.SetPairID("p-twice");
    EXPECT_EQ(twice.Build()->GetResponsePairID(), "p-twice");
    EXPECT_EQ(twice.Build()->GetResponsePairID(), "p-twice");
}

}  // namespace
