#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "ConfigurationSharedStateIdentity.h"
#include "EventBuilder.h"
#include "IdentityCoreTestSupport.h"
#include "IdentityDispatcherAnalyticsRequestContent.h"
#include "IdentityDispatcherConfigurationRequestContent.h"
#include "IdentityDispatcherIdentityResponseIdentity.h"
#include "IdentityHarness.h"
#include "LogCapture.h"
#include "SharedStatePending.h"
#include "WaitFor.h"

using namespace VelmoraMobile;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;
using VelmoraTest::MakeData;

namespace {

const std::string PENDING_MESSAGE = "Config not available at the time to process identity event.";

std::shared_ptr<Event> EventNamed(const IdentityHarness& harness, const std::string& name) {
    for (const auto& event : harness.Events()) {
        if (event->GetName() == name) return event;
    }
    return nullptr;
}

/// A configuration response as the configuration extension would send it.
std::shared_ptr<Event> ConfigurationResponse(const std::shared_ptr<EventData>& data) {
    return EventBuilder("test configuration", EventType::CONFIGURATION, EventSource::RESPONSE_CONTENT)
        .SetData(data)
        .Build();
}

}  // namespace

TEST(IdentityDispatchersTest, AnalyticsRequestsAreAlwaysMarkedInternal) {
    LogCapture log;
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    auto data = MakeData({{"action", "Push"}});
    data->PutBoolean("trackinternal", false);

    identity->analytics_dispatcher->DispatchAnalyticsEventWithEventData(nullptr);
    EXPECT_TRUE(log.Contains("Cannot dispatch null analytics data"));
    identity->analytics_dispatcher->DispatchAnalyticsEventWithEventData(data);

    // The caller's own object is marked.
    EXPECT_TRUE(data->OptBoolean("trackinternal", false));
    auto sent = harness.WaitForEvent(
        [](const std::shared_ptr<Event>& event) { return event->GetName() == "AnalyticsForIdentityRequest"; });
    ASSERT_NE(sent, nullptr);
    EXPECT_EQ(sent->GetEventType(), EventType::ANALYTICS);
    EXPECT_EQ(sent->GetEventSource(), EventSource::REQUEST_CONTENT);
    EXPECT_EQ(sent->GetData(), data);
    VelmoraTest::Settle(harness);
    EXPECT_EQ(harness.Events(EventType::ANALYTICS, EventSource::REQUEST_CONTENT).size(), 1u);
}

TEST(IdentityDispatchersTest, ConfigurationUpdateReachesTheConfigurationExtension) {
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    harness.Configure({{"ondaraCloud.org", "ORG"}, {"global.privacy", "optedin"}});

    Variant::VariantMap update{{"global.privacy", Variant::FromString("optedout")}};
    auto data = std::make_shared<EventData>();
    data->PutVariantMap("config.update", update);
    identity->HandleIdentityConfigurationUpdateEvent(data);

    auto sent = harness.WaitForEvent([](const std::shared_ptr<Event>& event) {
        return event->GetName() == "Configuration Update From Identity Module";
    });
    ASSERT_NE(sent, nullptr);
    EXPECT_EQ(sent->GetEventType(), EventType::CONFIGURATION);
    EXPECT_EQ(sent->GetEventSource(), EventSource::REQUEST_CONTENT);
    EXPECT_EQ(sent->GetData(), data);
    EXPECT_TRUE(VelmoraTest::WaitFor([&] {
        auto state = harness.hub->GetSharedEventState("com.velmora.module.configuration", nullptr);
        return state && state != SHARED_STATE_PENDING && state->OptString("global.privacy", "") == "optedout";
    }));
    // ... which answers with the new configuration, and the module applies it.
    VelmoraTest::Settle(harness);
    harness.RunInIdentityQueue([&] { EXPECT_EQ(identity->privacy_status, MobilePrivacyStatus::OPT_OUT); });
}

TEST(IdentityDispatchersTest, IdentityResponsesCarryThePairIdAsGivenAndNoNumberOfTheirOwn) {
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    auto data = MakeData({{"mid", "M"}});
    identity->HandleIdentityResponseEvent("UPDATED_IDENTITY_RESPONSE", data, "");
    identity->HandleIdentityResponseEvent("IDENTITY_RESPONSE", data, "pair-7");

    auto targeted = harness.WaitForResponse("pair-7");
    ASSERT_NE(targeted, nullptr);
    EXPECT_EQ(targeted->GetName(), "IDENTITY_RESPONSE");
    auto broadcast = EventNamed(harness, "UPDATED_IDENTITY_RESPONSE");
    ASSERT_NE(broadcast, nullptr);
    EXPECT_EQ(broadcast->GetResponsePairID(), "");
    EXPECT_EQ(broadcast->GetEventSource(), EventSource::RESPONSE_IDENTITY);
    EXPECT_EQ(broadcast->GetData(), data);
    EXPECT_LT(broadcast->GetEventNumber(), targeted->GetEventNumber());
}

TEST(IdentityDispatchersTest, WithoutDispatchersNothingIsSent) {
    // Before registration the module has no dispatchers: both calls are quiet no-ops.
    auto identity = std::make_shared<Identity>();
    identity->HandleIdentityResponseEvent("IDENTITY_RESPONSE", MakeData(), "pair");
    identity->HandleIdentityConfigurationUpdateEvent(MakeData());
    EXPECT_EQ(identity->identity_response_dispatcher, nullptr);
    EXPECT_EQ(identity->configuration_dispatcher, nullptr);
}

TEST(IdentityConfigurationResponseTest, OrgIdSetsTheLastGoodConfigurationAndEveryResponseDrains) {
    LogCapture log;
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    // The configuration's state stays pending throughout, so each drain logs once.
    harness.DispatchIdentityRequest(MakeData());
    VelmoraTest::Settle(harness);
    ASSERT_EQ(log.Count(PENDING_MESSAGE), 1u);

    harness.hub->Dispatch(ConfigurationResponse(MakeData({{"ondaraCloud.org", "ORG-1"}})));
    VelmoraTest::Settle(harness);
    EXPECT_EQ(log.Count(PENDING_MESSAGE), 2u);
    harness.RunInIdentityQueue([&] {
        ASSERT_NE(identity->latest_valid_config, nullptr);
        EXPECT_EQ(identity->latest_valid_config->GetOrgId(), "ORG-1");
        // No privacy key: the privacy state is left alone.
        EXPECT_EQ(identity->privacy_status, MobilePrivacyStatus::OPT_IN);
    });

    // Neither a configuration without org id nor an empty one clears it.
    harness.hub->Dispatch(ConfigurationResponse(MakeData({{"ondaraCloud.server", "other.example"}})));
    harness.hub->Dispatch(ConfigurationResponse(std::make_shared<EventData>()));
    VelmoraTest::Settle(harness);
    EXPECT_EQ(log.Count(PENDING_MESSAGE), 4u);
    harness.RunInIdentityQueue([&] {
        ASSERT_NE(identity->latest_valid_config, nullptr);
        EXPECT_EQ(identity->latest_valid_config->GetOrgId(), "ORG-1");
    });
}

TEST(IdentityConfigurationResponseTest, OptOutWithOrgIdAppliesThePrivacyAndStillReplacesTheLastGood) {
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    // The opt-out request, if one is decided on, stays on this machine.
    VelmoraTest::ConfigureWithServer(harness, "127.0.0.1:9",
                                     {{"ondaraCloud.org", "ORG-1"}, {"global.privacy", "optedin"}});
    harness.RunInIdentityQueue([&] { identity->mid = "MID-BEFORE"; });

    harness.hub->Dispatch(
        ConfigurationResponse(MakeData({{"ondaraCloud.org", "ORG-2"}, {"global.privacy", "optedout"}})));
    VelmoraTest::Settle(harness);
    harness.RunInIdentityQueue([&] {
        EXPECT_EQ(identity->privacy_status, MobilePrivacyStatus::OPT_OUT);
        EXPECT_EQ(identity->mid, "");
        ASSERT_NE(identity->latest_valid_config, nullptr);
        EXPECT_EQ(identity->latest_valid_config->GetOrgId(), "ORG-2");
        EXPECT_EQ(identity->latest_valid_config->GetPrivacyStatus(), MobilePrivacyStatus::OPT_OUT);
    });
}
