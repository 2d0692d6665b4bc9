#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "identity/events/IdentityDispatcherAnalyticsRequestContent.h"
#include "runtime/bus/EventBuilder.h"
#include "tests/identity/support/IdentityCoreTestSupport.h"
#include "tests/identity/support/IdentityHarness.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"

using namespace VelmoraMobile;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;
using VelmoraTest::MakeData;

TEST(IdentityDispatchersTest, AnalyticsRequestsAreAlwaysMarkedInternal) {
    LogCapture log;
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    identity->analytics_dispatcher->DispatchAnalyticsEventWithEventData(nullptr);
    EXPECT_TRUE(log.Contains("Cannot dispatch null analytics data"));

    auto data = MakeData({{"action", "Push"}});
    data->PutBoolean("trackinternal", false);
    identity->analytics_dispatcher->DispatchAnalyticsEventWithEventData(data);
    auto sent = harness.WaitForEvent(
        [](const std::shared_ptr<Event>& event) { return event->GetName() == "AnalyticsForIdentityRequest"; });
    ASSERT_NE(sent, nullptr);
    EXPECT_EQ(sent->GetEventType(), EventType::ANALYTICS);
    EXPECT_TRUE(sent->GetData()->OptBoolean("trackinternal", false));
}

TEST(IdentityDispatchersTest, ConfigurationUpdateReachesTheConfigurationExtensionAndComesBack) {
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    harness.Configure({{"ondaraCloud.org", "ORG"}, {"global.privacy", "optedin"}});
    auto data = std::make_shared<EventData>();
    data->PutVariantMap("config.update", {{"global.privacy", Variant::FromString("optedout")}});
    identity->HandleIdentityConfigurationUpdateEvent(data);
    EXPECT_TRUE(VelmoraTest::WaitFor([&] {
        MobilePrivacyStatus status = MobilePrivacyStatus::UNKNOWN;
        harness.RunInIdentityQueue([&] { status = identity->privacy_status; });
        return status == MobilePrivacyStatus::OPT_OUT;
    }));
}

TEST(IdentityConfigurationResponseTest, OnlyAResponseWithOrgIdReplacesTheLastGoodConfiguration) {
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    // The opt-out request, if one is decided on, stays on this machine.
    VelmoraTest::ConfigureWithServer(harness, "127.0.0.1:9", {{"ondaraCloud.org", "ORG-1"}});
    harness.RunInIdentityQueue([&] { identity->mid = "MID-BEFORE"; });
    auto respond = [&](const std::shared_ptr<EventData>& data) {
        harness.hub->Dispatch(
            EventBuilder("test configuration", EventType::CONFIGURATION, EventSource::RESPONSE_CONTENT)
                .SetData(data)
                .Build());
        VelmoraTest::Settle(harness);
    };
    auto last_good_org = [&] {
        std::string org;
        harness.RunInIdentityQueue([&] {
            if (identity->latest_valid_config) org = identity->latest_valid_config->GetOrgId();
        });
        return org;
    };

    respond(MakeData({{"ondaraCloud.server", "other.example"}}));
    respond(std::make_shared<EventData>());
    EXPECT_EQ(last_good_org(), "ORG-1");
    respond(MakeData({{"ondaraCloud.org", "ORG-2"}, {"global.privacy", "optedout"}}));
    EXPECT_EQ(last_good_org(), "ORG-2");
    harness.RunInIdentityQueue([&] {
        EXPECT_EQ(identity->privacy_status, MobilePrivacyStatus::OPT_OUT);
        EXPECT_EQ(identity->mid, "");
    });
}
