#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "EventBuilder.h"
#include "IdentityCoreTestSupport.h"
#include "IdentityHarness.h"
#include "LogCapture.h"
#include "TestIdentityServer.h"
#include "WaitFor.h"

using namespace VelmoraMobile;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;
using VelmoraTest::MakeData;

namespace {

const std::string ORG = "ORG@VelmoraOrg";
const std::string IDENTITY_NAME = "com.velmora.module.identity";
const std::string PENDING_MESSAGE = "Config not available at the time to process identity event.";

std::shared_ptr<Event> BootedEvent(IdentityHarness& harness) {
    return harness.WaitForEvent([](const std::shared_ptr<Event>& event) {
        return event->GetEventType() == EventType::HUB && event->GetEventSource() == EventSource::BOOTED;
    });
}

void ExpectForcedSync(const std::shared_ptr<Event>& event, int32_t booted_number) {
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->GetName(), "id-construct-forced-sync");
    EXPECT_EQ(event->GetEventType(), EventType::IDENTITY);
    EXPECT_EQ(event->GetEventSource(), EventSource::REQUEST_IDENTITY);
    EXPECT_EQ(event->GetEventNumber(), booted_number);
    EXPECT_TRUE(event->GetData()->OptBoolean("forcesync", false));
    EXPECT_TRUE(event->GetData()->OptBoolean("issyncevent", false));
    EXPECT_EQ(event->GetData()->OptInteger("authenticationstate", -1), 0);
    EXPECT_FALSE(event->GetData()->ContainsKey("visitoridentifiers"));
}

}  // namespace

TEST(IdentityLifecycleTest, RegistrationSetsUpQuietlyAndASecondOneIsRefused) {
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    EXPECT_EQ(harness.hub->RegisterModule<Identity>(), nullptr);
    EXPECT_TRUE(harness.hub->IsRegisteredModule(IDENTITY_NAME));
    EXPECT_EQ(identity->GetSharedStateName(), IDENTITY_NAME);
    EXPECT_EQ(Identity::LOG_PREFIX, IDENTITY_NAME);
    harness.RunInIdentityQueue([&] {
        EXPECT_NE(identity->analytics_dispatcher, nullptr);
        EXPECT_NE(identity->configuration_dispatcher, nullptr);
        EXPECT_NE(identity->identity_response_dispatcher, nullptr);
        EXPECT_NE(identity->hit_database, nullptr);
        EXPECT_TRUE(identity->event_queue.empty());
        EXPECT_EQ(identity->privacy_status, MobilePrivacyStatus::OPT_IN);
    });
    // Nothing is published before the boot.
    VelmoraTest::Settle(harness);
    EXPECT_EQ(harness.IdentityState(), nullptr);
    EXPECT_TRUE(harness.Events(EventType::IDENTITY, EventSource::RESPONSE_IDENTITY).empty());

    // One module, so one answer.
    harness.Configure({{"global.privacy", "optedin"}});
    auto request = harness.DispatchIdentityRequest(MakeData());
    ASSERT_NE(harness.WaitForResponse(request->GetResponsePairID()), nullptr);
    VelmoraTest::Settle(harness);
    EXPECT_EQ(VelmoraTest::ResponsesTo(harness, request->GetResponsePairID()).size(), 1u);
}

TEST(IdentityLifecycleTest, BootWithAPendingConfigurationQueuesTheForcedSyncAtTheBootedNumber) {
    LogCapture log;
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    harness.Boot();
    auto booted = BootedEvent(harness);
    ASSERT_NE(booted, nullptr);
    ASSERT_TRUE(VelmoraTest::WaitFor([&] { return log.Contains(PENDING_MESSAGE); }));

    harness.RunInIdentityQueue([&] {
        ASSERT_EQ(identity->event_queue.size(), 1u);
        ExpectForcedSync(identity->event_queue.front(), booted->GetEventNumber());
        EXPECT_EQ(identity->privacy_status, MobilePrivacyStatus::OPT_IN);
    });
    // It goes straight into the queue, never over the bus.
    for (const auto& event : harness.Events()) {
        EXPECT_NE(event->GetName(), "id-construct-forced-sync");
    }
}

TEST(IdentityLifecycleTest, ForcedSyncIsDecidedByTheConfigurationOfTheBoot) {
    IdentityHarness harness;
    auto module = std::make_shared<VelmoraTest::SyncRecordingIdentity>();
    VelmoraTest::RegisterModuleInHarness(harness, module);
    harness.Configure({{"ondaraCloud.org", ORG}});
    harness.Boot();
    auto booted = BootedEvent(harness);
    ASSERT_NE(booted, nullptr);
    // A later configuration must not be the one the forced sync sees.
    harness.Configure({{"ondaraCloud.org", "LATER-ORG"}});
    VelmoraTest::Settle(harness);

    harness.RunInIdentityQueue([&] {
        ASSERT_EQ(module->syncs.size(), 1u);
        ExpectForcedSync(module->syncs[0].event, booted->GetEventNumber());
        EXPECT_EQ(module->syncs[0].org_id, ORG);
        EXPECT_TRUE(module->event_queue.empty());
    });
}

TEST(IdentityLifecycleTest, ForcedSyncPublishesTheFirstStateUnderTheBootedNumber) {
    VelmoraTestServer::TestIdentityServer server;
    IdentityHarness harness;
    harness.RegisterIdentity();
    VelmoraTest::ConfigureWithServer(harness, server.Host(), {{"ondaraCloud.org", ORG}});
    harness.Boot();
    auto booted = BootedEvent(harness);
    ASSERT_NE(booted, nullptr);
    ASSERT_TRUE(VelmoraTest::WaitFor([&] { return harness.IdentityState(booted) != nullptr; }));
    EXPECT_FALSE(harness.IdentityState(booted)->OptString("mid", "").empty());
    auto just_before = EventBuilder("probe", EventType::HUB, EventSource::SHARED_STATE)
                           .SetEventNumber(booted->GetEventNumber() - 1)
                           .Build();
    EXPECT_EQ(harness.IdentityState(just_before), nullptr);
}

TEST(IdentityLifecycleTest, UnregistrationDropsTheHitDatabaseAndFreesTheModule) {
    IdentityHarness harness;
    std::weak_ptr<Identity> weak = harness.RegisterIdentity();
    harness.RunInIdentityQueue([&] { EXPECT_NE(harness.identity->hit_database, nullptr); });
    ASSERT_TRUE(harness.hub->UnregisterModule(IDENTITY_NAME));
    EXPECT_FALSE(harness.hub->IsRegisteredModule(IDENTITY_NAME));
    {
        auto identity = weak.lock();
        ASSERT_NE(identity, nullptr);
        EXPECT_EQ(identity->hit_database, nullptr);
    }
    // Nothing but the test holds the module any more: no cycle through the hit queue is left.
    harness.identity.reset();
    EXPECT_TRUE(VelmoraTest::WaitFor([&] { return weak.expired(); }));
}
