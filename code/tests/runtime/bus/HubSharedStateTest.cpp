#include <gtest/gtest.h>

#include <memory>

#include "runtime/bus/EventBuilder.h"
#include "runtime/bus/EventDataKeys.h"
#include "runtime/bus/EventHub.h"
#include "runtime/bus/SharedStatePending.h"
#include "tests/runtime/bus/HubTestModules.h"
#include "tests/support/WaitFor.h"

using namespace VelmoraMobile;
using VelmoraTest::RecordingModule;

namespace {

std::shared_ptr<EventData> StateWith(const std::string& value) {
    auto data = std::make_shared<EventData>();
    data->PutString("value", value);
    return data;
}

std::shared_ptr<Event> Probe(int32_t number = -1) {
    EventBuilder builder("probe", EventType::Get("test.probe"), EventSource::Get("test.probe"));
    if (number >= 0) builder.SetEventNumber(number);
    return builder.Build();
}

class HubSharedStateTest : public ::testing::Test {
protected:
    void SetUp() override {
        observer->Listen(EventType::HUB, EventSource::SHARED_STATE);
        ASSERT_TRUE(hub->RegisterModule(owner));
        ASSERT_TRUE(hub->RegisterModule(observer));
        ASSERT_TRUE(observer->Sync(*hub));  // both registrations are done
    }
    void TearDown() override { hub->Shutdown(); }

    std::shared_ptr<Event> DispatchProbe() {
        auto event = Probe();
        hub->Dispatch(event);
        return event;
    }

    std::shared_ptr<EventHub> hub = std::make_shared<EventHub>(nullptr);
    std::shared_ptr<RecordingModule> owner = std::make_shared<RecordingModule>("test.owner");
    std::shared_ptr<RecordingModule> observer = std::make_shared<RecordingModule>("test.observer");
};

TEST_F(HubSharedStateTest, UnknownIsNullPendingIsTheMarkerAndTheResolutionReachesBack) {
    auto early = DispatchProbe();
    EXPECT_EQ(observer->GetSharedEventState("test.nobody", early), nullptr);
    EXPECT_EQ(observer->GetSharedEventState("test.owner", early), nullptr);
    ASSERT_TRUE(owner->CreateSharedState(0, SHARED_STATE_PENDING));
    auto before_resolution = DispatchProbe();
    EXPECT_EQ(observer->GetSharedEventState("test.owner", early), SHARED_STATE_PENDING);
    EXPECT_EQ(observer->GetSharedEventState("test.owner", before_resolution), SHARED_STATE_PENDING);
    ASSERT_TRUE(observer->Sync(*hub));
    EXPECT_TRUE(observer->EventsOf(EventType::HUB, EventSource::SHARED_STATE).empty()) << "pending announces nothing";

    auto resolved = StateWith("first");
    ASSERT_TRUE(owner->UpdateSharedState(0, resolved));
    for (const auto& event : {early, before_resolution, DispatchProbe()}) {
        EXPECT_EQ(observer->GetSharedEventState("test.owner", event), resolved);
    }
    EXPECT_FALSE(owner->UpdateSharedState(0, StateWith("again")));
    EXPECT_FALSE(owner->UpdateSharedState(7, StateWith("never announced")));

    ASSERT_TRUE(owner->CreateSharedState(50, StateWith("fifty")));
    ASSERT_TRUE(observer->CreateSharedState(51, StateWith("observer's own")));
    ASSERT_TRUE(observer->WaitForCount(EventType::HUB, EventSource::SHARED_STATE, 3));
    ASSERT_TRUE(observer->Sync(*hub));
    auto events = observer->EventsOf(EventType::HUB, EventSource::SHARED_STATE);
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0]->GetData()->OptString(EventDataKeys::STATE_OWNER, ""), "test.owner");
    EXPECT_EQ(events[1]->GetData()->OptString("stateowner", ""), "test.owner");
    EXPECT_EQ(events[2]->GetData()->OptString("stateowner", ""), "test.observer");
}

TEST_F(HubSharedStateTest, AStateIsSeenFromItsVersionOnAndVersionsMustGrow) {
    auto base = StateWith("base");
    auto ten = StateWith("ten");
    ASSERT_TRUE(owner->CreateSharedState(1, base));
    ASSERT_TRUE(owner->CreateSharedState(10, ten));
    EXPECT_EQ(hub->GetSharedEventState("test.owner", Probe(0)), nullptr);
    EXPECT_EQ(hub->GetSharedEventState("test.owner", Probe(9)), base);
    EXPECT_EQ(hub->GetSharedEventState("test.owner", Probe(10)), ten);
    EXPECT_EQ(hub->GetSharedEventState("test.owner", nullptr), ten);
    EXPECT_FALSE(owner->CreateSharedState(10, StateWith("same version")));
    EXPECT_FALSE(owner->CreateSharedState(5, StateWith("older version")));
    EXPECT_FALSE(owner->CreateSharedState(11, nullptr));
    EXPECT_EQ(hub->GetSharedEventState("test.owner", Probe(11)), ten);
}

}  // namespace
