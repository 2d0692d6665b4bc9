#include "tests/identity/state/IdentityStateTestSupport.h"
#include "tests/identity/support/HitRows.h"
#include "tests/identity/support/IdentityCoreTestSupport.h"
#include "tests/support/LogCapture.h"
#include "tools/server/TestIdentityServer.h"
using namespace VelmoraMobile;
using namespace VelmoraTest;
using namespace VelmoraTestServer;

// A booted module holding a full identity, an analytics-sync mark and a push token; the unknown
// status holds the boot's sync in the hit table, unsent.
TEST(IdentityPrivacyTest, OptOutTellsTheServerWithTheMidThenWipesOnceAndDropsTheQueuedHits) {
    TestIdentityServer server;
    IdentityHarness harness;
    harness.RegisterIdentity();
    ConfigureWithServer(harness, server.Host(), {{"ondaraCloud.org", STATE_ORG}, {"global.privacy", "optunknown"}});
    FillIdentity(harness);
    auto store = Store(harness);
    store->SetBoolean("VELMORAMOBILE_AID_SYNCED", true);
    harness.Boot();
    auto queued = [&] { return ReadHitRows(harness.DataDir() + "/VLBMobileIdentity.sqlite").size(); };
    ASSERT_TRUE(WaitFor([&] { return queued() == 1u; }));
    LogCapture capture(LoggingMode::DEBUG_LOG);
    // HandleOptOut sends only when the configuration at its event says opted out.
    auto later = EventBuilder("probe", EventType::HUB, EventSource::SHARED_STATE).SetEventNumber(1000000).Build();
    harness.RunInIdentityQueue([&] { harness.identity->HandleOptOut(later); });
    EXPECT_FALSE(capture.ContainsFragment("Sending opt-out request"));

    harness.Configure({{"global.privacy", "optedout"}});
    ASSERT_TRUE(WaitFor([&] { return !store->Contains("VELMORAMOBILE_PERSISTED_MID"); }));
    harness.Drain();
    ASSERT_TRUE(server.WaitForRequests(1, std::chrono::seconds(10)));
    EXPECT_TRUE(WaitFor([&] { return queued() == 0u; }));
    ASSERT_EQ(server.Requests().size(), 1u);
    EXPECT_EQ(server.Requests()[0].path, "/veloptout.jpg");
    EXPECT_TRUE(capture.Contains("Sending opt-out request to http://" + server.Host() +
                                 "/veloptout.jpg?d_mid=" + STATE_MID + "&d_orgid=1234ABCD5678EFGH%40VelmoraOrg."));
    // Saved wiped (waited for above) and published; the analytics mark and the push flag go too.
    EXPECT_EQ(Fields(harness), "|||||||600|0");
    EXPECT_FALSE(store->Contains("VELMORAMOBILE_AID_SYNCED"));
    EXPECT_FALSE(store->GetBoolean("VELMORAMOBILE_PUSH_ENABLED", true));
    ASSERT_NE(harness.IdentityState(), nullptr);
    EXPECT_FALSE(harness.IdentityState()->ContainsKey("mid"));

    // Only a change wipes: no data, or an opt-out while opted out, undoes nothing.
    harness.RunInIdentityQueue([&] {
        harness.identity->mid = STATE_MID;
        harness.identity->ProcessPrivacyChange(1, nullptr);
        harness.identity->ProcessPrivacyChange(2, MakeData({{"global.privacy", "optedout"}}));
        EXPECT_EQ(harness.identity->mid, STATE_MID);
    });
}
