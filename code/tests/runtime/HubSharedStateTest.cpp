#include <gtest/gtest.h>

#include <memory>

#include "EventBuilder.h"
#include "EventDataKeys.h"
#include "EventHub.h"
#include "HubTestModules.h"
#include "SharedStatePending.h"
#include "WaitFor.h"

using namespace VelmoraMobile;
using VelmoraTest::RecordingModule;
using VelmoraTest::WaitFor;

namespace {

std::shared_ptr<EventData> StateWith(const std::string& value) {
    auto data = std::make_shared<EventData>();
    data->PutString("value", value);
    return data;
}

std::shared_ptr<Event> EventNumbered(int32_t number) {
    return EventBuilder("probe", EventType::Get("test.probe"), EventSource::Get("test.probe"))
        .SetEventNumber(number)
        .Build();
}

class HubSharedStateTest : public ::testing::Test {
protected:
    void SetUp() override {
        hub = std::make_shared<EventHub>(nullptr);
        owner = std::make_shared<RecordingModule>("test.owner");
        observer = std::make_shared<RecordingModule>("test.observer");
        observer->Listen(EventType::HUB, EventSource::SHARED_STATE);
        ASSERT_TRUE(hub->RegisterModule(owner));
        ASSERT_TRUE(hub->RegisterModule(observer));
        ASSERT_TRUE(observer->Sync(*hub));
    }
    void TearDown() override { hub->Shutdown(); }

    std::shared_ptr<Event> DispatchProbe() {
        auto event = EventBuilder("probe", EventType::Get("test.probe"), EventSource::Get("test.probe")).Build();
        hub->Dispatch(event);
        return event;
    }

    std::vector<std::shared_ptr<Event>> StateEvents() {
        return observer->EventsOf(EventType::HUB, EventSource::SHARED_STATE);
    }

    std::shared_ptr<EventHub> hub;
    std::shared_ptr<RecordingModule> owner;
    std::shared_ptr<RecordingModule> observer;
};

TEST_F(HubSharedStateTest, UnknownModuleGivesNullPendingGivesThePendingMarkerAndResolutionReachesBack) {
    auto early = DispatchProbe();
    EXPECT_EQ(hub->GetSharedEventState("test.nobody", early), nullptr);
    EXPECT_EQ(observer->GetSharedEventState("test.nobody", early), nullptr);
    // Registered, but nothing published or announced.
    EXPECT_EQ(observer->GetSharedEventState("test.owner", early), nullptr);
    EXPECT_FALSE(observer->HasSharedEventState("test.owner"));

    ASSERT_TRUE(owner->CreateSharedState(0, SHARED_STATE_PENDING));
    auto before_resolution = DispatchProbe();
    EXPECT_EQ(observer->GetSharedEventState("test.owner", early), SHARED_STATE_PENDING);
    EXPECT_EQ(observer->GetSharedEventState("test.owner", before_resolution), SHARED_STATE_PENDING);
    EXPECT_TRUE(observer->HasSharedEventState("test.owner"));

    auto resolved = StateWith("first");
    ASSERT_TRUE(owner->UpdateSharedState(0, resolved));
    auto after_resolution = DispatchProbe();
    EXPECT_EQ(observer->GetSharedEventState("test.owner", early), resolved);
    EXPECT_EQ(observer->GetSharedEventState("test.owner", before_resolution), resolved);
    EXPECT_EQ(observer->GetSharedEventState("test.owner", after_resolution), resolved);
    // A state that is no longer pending cannot be resolved again.
    EXPECT_FALSE(owner->UpdateSharedState(0, StateWith("again")));
    EXPECT_FALSE(owner->UpdateSharedState(7, StateWith("never announced")));
}

TEST_F(HubSharedStateTest, AStateIsSeenFromItsVersionOnAndVersionsMustGrow) {
    auto base = StateWith("base");
    auto ten = StateWith("ten");
    ASSERT_TRUE(owner->CreateSharedState(1, base));
    ASSERT_TRUE(owner->CreateSharedState(10, ten));
    EXPECT_EQ(hub->GetSharedEventState("test.owner", EventNumbered(0)), nullptr);
    EXPECT_EQ(hub->GetSharedEventState("test.owner", EventNumbered(9)), base);
    EXPECT_EQ(hub->GetSharedEventState("test.owner", EventNumbered(10)), ten);
    EXPECT_EQ(hub->GetSharedEventState("test.owner", EventNumbered(11)), ten);
    EXPECT_EQ(hub->GetSharedEventState("test.owner", nullptr), ten);

    EXPECT_FALSE(owner->CreateSharedState(10, StateWith("same version")));
    EXPECT_FALSE(owner->CreateSharedState(5, StateWith("older version")));
    EXPECT_FALSE(owner->CreateSharedState(11, nullptr));
    EXPECT_EQ(hub->GetSharedEventState("test.owner", EventNumbered(11)), ten);
}

TEST_F(HubSharedStateTest, EachStateWithDataIsFollowedByASharedStateEventNamingItsOwner) {
    ASSERT_TRUE(owner->CreateSharedState(0, SHARED_STATE_PENDING));
    ASSERT_TRUE(observer->Sync(*hub));
    EXPECT_TRUE(StateEvents().empty()) << "a pending state announces nothing";

    ASSERT_TRUE(owner->UpdateSharedState(0, StateWith("resolved")));
    ASSERT_TRUE(owner->CreateSharedState(50, StateWith("fifty")));
    ASSERT_TRUE(observer->CreateSharedState(51, StateWith("observer's own")));
    ASSERT_TRUE(observer->WaitForCount(EventType::HUB, EventSource::SHARED_STATE, 3));
    ASSERT_TRUE(observer->Sync(*hub));

    auto events = StateEvents();
    ASSERT_EQ(events.size(), 3u);
    std::string state_owner;
    EXPECT_TRUE(events[0]->GetData()->GetString(EventDataKeys::STATE_OWNER, state_owner));
    EXPECT_EQ(state_owner, "test.owner");
    EXPECT_EQ(events[1]->GetData()->OptString("stateowner", ""), "test.owner");
    EXPECT_EQ(events[2]->GetData()->OptString("stateowner", ""), "test.observer");
}

TEST_F(HubSharedStateTest, StateWithoutVersionTakesThePlaceOfItsAnnouncement) {
    auto before = DispatchProbe();
    auto first = StateWith("first");
    ASSERT_TRUE(owner->CreateOrUpdateSharedState(first));
    ASSERT_TRUE(observer->WaitForCount(EventType::HUB, EventSource::SHARED_STATE, 1));
    auto announcement = StateEvents()[0];
    auto after = DispatchProbe();

    EXPECT_EQ(hub->GetSharedEventState("test.owner", before), nullptr);
    EXPECT_EQ(hub->GetSharedEventState("test.owner", announcement), first);
    EXPECT_EQ(hub->GetSharedEventState("test.owner", after), first);
    EXPECT_LT(before->GetEventNumber(), announcement->GetEventNumber());
    EXPECT_LT(announcement->GetEventNumber(), after->GetEventNumber());

    // With the newest state pending, the same call resolves it instead.
    ASSERT_TRUE(owner->CreateSharedState(after->GetEventNumber() + 5, SHARED_STATE_PENDING));
    auto second = StateWith("second");
    ASSERT_TRUE(owner->CreateOrUpdateSharedState(second));
    EXPECT_EQ(hub->GetSharedEventState("test.owner", EventNumbered(after->GetEventNumber() + 5)), second);
}

TEST_F(HubSharedStateTest, StatesOfAnUnregisteredModuleAreGone) {
    ASSERT_TRUE(owner->CreateSharedState(3, StateWith("x")));
    ASSERT_TRUE(hub->UnregisterModule("test.owner"));
    EXPECT_EQ(hub->GetSharedEventState("test.owner", EventNumbered(4)), nullptr);
    EXPECT_FALSE(owner->CreateSharedState(4, StateWith("y")));
    EXPECT_EQ(hub->GetSharedEventState("test.owner", EventNumbered(5)), nullptr);
}

}  // namespace
