#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "runtime/bus/EventBuilder.h"
#include "tests/identity/support/IdentityCoreTestSupport.h"
#include "tests/identity/support/IdentityHarness.h"
#include "tests/support/WaitFor.h"

using namespace VelmoraMobile;
using VelmoraTest::IdentityHarness;

namespace {

const std::string IDENTITY_NAME = "com.velmora.module.identity";

}  // namespace

TEST(IdentityLifecycleTest, ForcedSyncAtBootCarriesTheBootedNumberAndTheBootsConfiguration) {
    IdentityHarness harness;
    auto module = VelmoraTest::RegisterSyncRecorder(harness);
    harness.Configure({{"ondaraCloud.org", "ORG@VelmoraOrg"}});
    harness.Boot();
    auto booted = harness.WaitForEvent([](const std::shared_ptr<Event>& event) {
        return event->GetEventType() == EventType::HUB && event->GetEventSource() == EventSource::BOOTED;
    });
    ASSERT_NE(booted, nullptr);
    // A later configuration must not be the one the forced sync sees.
    harness.Configure({{"ondaraCloud.org", "LATER-ORG"}});
    VelmoraTest::Settle(harness);

    harness.RunInIdentityQueue([&] {
        ASSERT_EQ(module->syncs.size(), 1u);
        const auto& sync = module->syncs[0].event;
        EXPECT_EQ(module->syncs[0].org_id, "ORG@VelmoraOrg");
        EXPECT_EQ(sync->GetName(), "id-construct-forced-sync");
        EXPECT_EQ(sync->GetEventNumber(), booted->GetEventNumber());
        EXPECT_TRUE(sync->GetData()->OptBoolean("forcesync", false));
        EXPECT_TRUE(sync->GetData()->OptBoolean("issyncevent", false));
        EXPECT_EQ(sync->GetData()->OptInteger("authenticationstate", -1), 0);
    });
    // It goes straight into the queue, never over the bus.
    for (const auto& event : harness.Events()) EXPECT_NE(event->GetName(), "id-construct-forced-sync");
}

TEST(IdentityLifecycleTest, UnregistrationDropsTheHitDatabaseAndFreesTheModule) {
    IdentityHarness harness;
    std::weak_ptr<Identity> weak = harness.RegisterIdentity();
    ASSERT_TRUE(harness.hub->UnregisterModule(IDENTITY_NAME));
    EXPECT_EQ(weak.lock()->hit_database, nullptr);
    // Nothing but the test holds the module any more: no cycle through the hit queue is left.
    harness.identity.reset();
    EXPECT_TRUE(VelmoraTest::WaitFor([&] { return weak.expired(); }));
}
