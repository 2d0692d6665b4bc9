#include <gtest/gtest.h>

#include <atomic>
#include <cctype>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "EventBuilder.h"
#include "EventHub.h"
#include "HubTestModules.h"
#include "WaitFor.h"

using namespace VelmoraMobile;
using VelmoraTest::RecordingModule;
using VelmoraTest::WaitFor;

namespace {

// Lower-case version-4 UUID text: 8-4-4-4-12 hex digits, "4" for the version, 8 to b for the variant.
bool IsUuidV4(const std::string& text) {
    if (text.size() != 36) return false;
    for (size_t i = 0; i < text.size(); ++i) {
        bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash != (text[i] == '-')) return false;
        if (!dash && !std::isxdigit(static_cast<unsigned char>(text[i]))) return false;
        if (!dash && std::isupper(static_cast<unsigned char>(text[i]))) return false;
    }
    return text[14] == '4' && std::string("89ab").find(text[19]) != std::string::npos;
}

std::shared_ptr<EventType> OrderType() {
    return EventType::Get("test.order");
}
std::shared_ptr<EventSource> OrderSource() {
    return EventSource::Get("test.order");
}

class HubEventTest : public ::testing::Test {
protected:
    void SetUp() override {
        hub = std::make_shared<EventHub>(nullptr);
        recorder = std::make_shared<RecordingModule>();
        recorder->Listen(OrderType(), OrderSource());
        recorder->Listen(EventType::IDENTITY, EventSource::RESPONSE_IDENTITY);
        recorder->Listen(EventType::HUB, EventSource::BOOTED);
        ASSERT_TRUE(hub->RegisterModule(recorder));
    }
    void TearDown() override { hub->Shutdown(); }

    std::shared_ptr<EventHub> hub;
    std::shared_ptr<RecordingModule> recorder;
};

TEST_F(HubEventTest, EventsFromFourThreadsAreDeliveredOnceEachInNumberOrder) {
    constexpr int kThreads = 4;
    constexpr int kPerThread = 500;
    std::vector<std::vector<std::shared_ptr<Event>>> sent(kThreads);
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            while (!go) std::this_thread::yield();
            for (int i = 0; i < kPerThread; ++i) {
                auto event = EventBuilder("order", OrderType(), OrderSource()).Build();
                sent[t].push_back(event);
                hub->Dispatch(event);
            }
        });
    }
    go = true;
    for (auto& thread : threads) thread.join();

    ASSERT_TRUE(recorder->WaitForCount(OrderType(), OrderSource(), kThreads * kPerThread));
    ASSERT_TRUE(recorder->Sync(*hub));
    std::vector<std::shared_ptr<Event>> heard = recorder->EventsOf(OrderType(), OrderSource());
    ASSERT_EQ(heard.size(), size_t(kThreads * kPerThread));
    for (size_t i = 1; i < heard.size(); ++i) {
        ASSERT_LT(heard[i - 1]->GetEventNumber(), heard[i]->GetEventNumber()) << "at delivery " << i;
    }
    std::set<Event*> distinct;
    for (const auto& event : heard) distinct.insert(event.get());
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kPerThread; ++i) {
            EXPECT_EQ(distinct.count(sent[t][i].get()), 1u);
            if (i > 0) {
                EXPECT_LT(sent[t][i - 1]->GetEventNumber(), sent[t][i]->GetEventNumber());
            }
        }
    }
    EXPECT_EQ(distinct.size(), heard.size());
}

TEST_F(HubEventTest, OneTimeListenerFiresOnceAndASecondResponseReachesNoOneTimeListener) {
    std::atomic<int> calls{0};
    std::shared_ptr<Event> answered;
    std::mutex mutex;
    auto request = EventBuilder("request", EventType::IDENTITY, EventSource::REQUEST_IDENTITY).Build();
    hub->RegisterOneTimeListener<RecordingModule>(EventType::IDENTITY, EventSource::RESPONSE_IDENTITY,
                                                  request->GetResponsePairID(), [&](const std::shared_ptr<Event>& e) {
                                                      std::lock_guard<std::mutex> lock(mutex);
                                                      answered = e;
                                                      ++calls;
                                                  });
    // Same pair id but another source, and the right source with another pair id: neither fires.
    hub->Dispatch(EventBuilder("wrong source", EventType::IDENTITY, EventSource::RESPONSE_CONTENT)
                      .SetPairID(request->GetResponsePairID())
                      .Build());
    hub->Dispatch(
        EventBuilder("wrong pair", EventType::IDENTITY, EventSource::RESPONSE_IDENTITY).SetPairID("another").Build());
    auto first = EventBuilder("first", EventType::IDENTITY, EventSource::RESPONSE_IDENTITY)
                     .SetPairID(request->GetResponsePairID())
                     .Build();
    auto second = EventBuilder("second", EventType::IDENTITY, EventSource::RESPONSE_IDENTITY)
                      .SetPairID(request->GetResponsePairID())
                      .Build();
    hub->Dispatch(first);
    hub->Dispatch(second);
    ASSERT_TRUE(recorder->Sync(*hub));

    EXPECT_EQ(calls.load(), 1);
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(answered, first);
    // Both responses were on the bus: the module's ordinary listener heard them.
    EXPECT_EQ(recorder->EventsOf(EventType::IDENTITY, EventSource::RESPONSE_IDENTITY).size(), 3u);
}

TEST_F(HubEventTest, OneTimeListenerRegistrationNeedsTypeSourceAndCallback) {
    EXPECT_THROW(hub->RegisterOneTimeListener<RecordingModule>(nullptr, EventSource::RESPONSE_IDENTITY, "p",
                                                               [](const std::shared_ptr<Event>&) {}),
                 SdkError);
    EXPECT_THROW(
        hub->RegisterOneTimeListener<RecordingModule>(EventType::IDENTITY, EventSource::RESPONSE_IDENTITY, "p", {}),
        SdkError);
}

TEST_F(HubEventTest, BuiltEventsCarryUniqueUuidPairIdsUnlessOneIsGiven) {
    std::set<std::string> ids;
    EventBuilder builder("e", OrderType(), OrderSource());
    for (int i = 0; i < 1000; ++i) {
        std::string id = builder.Build()->GetResponsePairID();
        EXPECT_TRUE(IsUuidV4(id)) << id;
        ids.insert(id);
    }
    EXPECT_EQ(ids.size(), 1000u);
    EXPECT_EQ(builder.SetPairID("given").Build()->GetResponsePairID(), "given");
}

TEST_F(HubEventTest, EventBuiltWithoutDataHasUsableEmptyData) {
    auto event = EventBuilder("e", OrderType(), OrderSource()).SetData(nullptr).Build();
    ASSERT_NE(event->GetData(), nullptr);
    EXPECT_TRUE(event->GetData()->IsEmpty());
    EXPECT_EQ(event->GetData()->OptString("missing", "fallback"), "fallback");
}

TEST_F(HubEventTest, SetEventNumberIsKeptAndLaterEventsAreNumberedAboveIt) {
    for (int i = 0; i < 5; ++i) hub->Dispatch(EventBuilder("e", OrderType(), OrderSource()).Build());
    auto stand_in = EventBuilder("stand-in", OrderType(), OrderSource()).SetEventNumber(2).Build();
    auto far = EventBuilder("far", OrderType(), OrderSource()).SetEventNumber(100).Build();
    auto next = EventBuilder("next", OrderType(), OrderSource()).Build();
    hub->Dispatch(stand_in);
    hub->Dispatch(far);
    hub->Dispatch(next);
    ASSERT_TRUE(recorder->WaitForCount(OrderType(), OrderSource(), 8));
    EXPECT_EQ(stand_in->GetEventNumber(), 2);
    EXPECT_EQ(far->GetEventNumber(), 100);
    EXPECT_GT(next->GetEventNumber(), 100);
    auto heard = recorder->EventsOf(OrderType(), OrderSource());
    EXPECT_EQ(heard[5], stand_in);
    EXPECT_EQ(heard[5]->GetEventNumber(), 2);
}

TEST_F(HubEventTest, BootedIsDispatchedOnceAndListenersMatchTypeSourceAndPairId) {
    hub->FinishModulesRegistration();
    hub->FinishModulesRegistration();

    // A listener bound to a pair id hears only events that carry it.
    struct PairModule : RecordingModule {
        PairModule() : RecordingModule("test.pair") {}
        void OnRegistered() override {
            RegisterListener(std::make_shared<VelmoraTest::RecordingListener>(), OrderType(), OrderSource(), "p-1");
        }
    };
    auto paired = std::make_shared<PairModule>();
    ASSERT_TRUE(hub->RegisterModule(paired));
    hub->Dispatch(EventBuilder("other pair", OrderType(), OrderSource()).SetPairID("p-2").Build());
    hub->Dispatch(EventBuilder("its pair", OrderType(), OrderSource()).SetPairID("p-1").Build());
    ASSERT_TRUE(recorder->Sync(*hub));

    EXPECT_EQ(recorder->EventsOf(EventType::HUB, EventSource::BOOTED).size(), 1u);
    ASSERT_EQ(paired->Events().size(), 1u);
    EXPECT_EQ(paired->Events()[0]->GetName(), "its pair");
}

TEST_F(HubEventTest, ModuleNamesAreUniqueAndAModuleJoinsOneHubOnly) {
    EXPECT_TRUE(hub->IsRegisteredModule("test.recorder"));
    EXPECT_FALSE(hub->IsRegisteredModule("test.none"));
    EXPECT_FALSE(hub->RegisterModule(std::make_shared<RecordingModule>()));
    EXPECT_FALSE(hub->RegisterModule(nullptr));

    auto other = std::make_shared<EventHub>(nullptr);
    EXPECT_FALSE(other->RegisterModule(recorder));
    auto made = other->RegisterModule<RecordingModule>();
    ASSERT_NE(made, nullptr);
    EXPECT_TRUE(other->IsRegisteredModule("test.recorder"));
    EXPECT_TRUE(WaitFor([&] { return made->IsRegistered(); }));
    other->Shutdown();
}

}  // namespace
