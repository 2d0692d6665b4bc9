#include <gtest/gtest.h>

#include "tests/identity/support/IdentityHarness.h"

using namespace VelmoraMobile;

TEST(IdentityHarnessTest, StartsTheHubWithTheIdentityModule) {
    VelmoraTest::IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    ASSERT_NE(identity, nullptr);
    EXPECT_TRUE(harness.hub->IsRegisteredModule("com.velmora.module.identity"));
    harness.Configure({{"ondaraCloud.org", "ORG@VelmoraOrg"}});
    harness.Boot();
    harness.Drain();
}
