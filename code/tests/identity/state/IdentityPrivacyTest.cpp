#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

#include "identity/ids/VisitorId.h"
#include "identity/module/Identity.h"
#include "runtime/bus/EventBuilder.h"
#include "runtime/values/Variant.h"
#include "tests/identity/state/IdentityStateTestSupport.h"
#include "tests/identity/support/HitRows.h"
#include "tests/identity/support/IdentityCoreTestSupport.h"
#include "tests/identity/support/IdentityHarness.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"
#include "tools/server/TestIdentityServer.h"

using namespace VelmoraMobile;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;
using VelmoraTest::Store;
using VelmoraTest::WaitFor;
using VelmoraTestServer::TestIdentityServer;

namespace {

const std::string& ORG = VelmoraTest::STATE_ORG;
const std::string& MID = VelmoraTest::STATE_MID;

int64_t QueuedHits(const std::string& data_dir) {
    return static_cast<int64_t>(VelmoraTest::ReadHitRows(data_dir + "/VLBMobileIdentity.sqlite").size());
}

std::shared_ptr<EventData> PrivacyData(const std::string& status) {
    auto data = std::make_shared<EventData>();
    data->PutString("global.privacy", status);
    return data;
}

// A booted module configured against the local identity server over plain HTTP, holding a full
// identity, an analytics-sync mark and a push token on record. The unknown status holds the
// boot's sync in the hit table, unsent.
class OptOutFixture : public ::testing::Test {
protected:
    void SetUp() override {
        harness.RegisterIdentity();
        VelmoraTest::ConfigureWithServer(harness, server.Host(),
                                         {{"ondaraCloud.org", ORG}, {"global.privacy", "optunknown"}});
        VelmoraTest::FillIdentity(harness);
        Store(harness)->SetBoolean("VELMORAMOBILE_AID_SYNCED", true);
        harness.Boot();
        ASSERT_TRUE(WaitFor([&] { return QueuedHits(harness.DataDir()) == 1; }));
    }

    // Opts out through the configuration and waits until the module has saved the wipe.
    void OptOut() {
        harness.ConfigureVariants({{"global.privacy", Variant::FromString("optedout")}});
        auto store = Store(harness);
        ASSERT_TRUE(WaitFor([&] { return !store->Contains("VELMORAMOBILE_PERSISTED_MID"); }));
        harness.Drain();
    }

    TestIdentityServer server;
    IdentityHarness harness;
};

}  // namespace

TEST_F(OptOutFixture, OptOutTellsTheServerWithTheMidThenWipesAndDropsTheQueuedHits) {
    LogCapture capture(LoggingMode::DEBUG_LOG);
    OptOut();

    ASSERT_TRUE(server.WaitForRequests(1, std::chrono::seconds(10)));
    EXPECT_TRUE(WaitFor([&] { return QueuedHits(harness.DataDir()) == 0; }));
    auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].path, "/veloptout.jpg");
    EXPECT_TRUE(capture.Contains("Sending opt-out request to http://" + server.Host() + "/veloptout.jpg?d_mid=" + MID +
                                 "&d_orgid=1234ABCD5678EFGH%40VelmoraOrg."));

    EXPECT_EQ(VelmoraTest::Fields(harness), "|||||||600|0");
    auto store = Store(harness);
    // Saved wiped (the fixture waits for that); the analytics mark and the push flag go too.
    EXPECT_FALSE(store->Contains("VELMORAMOBILE_AID_SYNCED"));
    EXPECT_FALSE(store->GetBoolean("VELMORAMOBILE_PUSH_ENABLED", true));

    // The wiped record is published.
    ASSERT_NE(harness.IdentityState(), nullptr);
    EXPECT_FALSE(harness.IdentityState()->ContainsKey("mid"));
}

TEST_F(OptOutFixture, HandleOptOutSendsOnlyWhenTheConfigurationAtTheEventSaysOptedOut) {
    LogCapture capture(LoggingMode::DEBUG_LOG);
    auto later = EventBuilder("probe", EventType::HUB, EventSource::SHARED_STATE).SetEventNumber(1000000).Build();
    harness.RunInIdentityQueue([&] { harness.identity->HandleOptOut(later); });
    EXPECT_FALSE(capture.ContainsFragment("Sending opt-out request"));
}

TEST(IdentityPrivacyTest, OnlyAChangeToOptedOutWipes) {
    IdentityHarness harness;
    harness.RegisterIdentity();
    harness.RunInIdentityQueue([&] {
        auto& id = *harness.identity;
        id.mid = MID;
        // Nothing to compare, a wrong type, the status already held, or unknown: nothing is undone.
        auto wrong_type = std::make_shared<EventData>();
        wrong_type->PutInteger("global.privacy", 1);
        for (const auto& data : {std::shared_ptr<EventData>(), std::make_shared<EventData>(), wrong_type,
                                 PrivacyData("optedin"), PrivacyData("optunknown")}) {
            id.ProcessPrivacyChange(1, data);
        }
        EXPECT_EQ(id.privacy_status, MobilePrivacyStatus::UNKNOWN);
        EXPECT_EQ(id.mid, MID);
    });
    EXPECT_EQ(harness.IdentityState(), nullptr);

    // An opt-out while opted out is no change either.
    harness.RunInIdentityQueue([&] {
        auto& id = *harness.identity;
        id.ProcessPrivacyChange(2, PrivacyData("optedout"));
        EXPECT_EQ(id.mid, "");
        id.mid = MID;
        id.ProcessPrivacyChange(3, PrivacyData("optedout"));
        EXPECT_EQ(id.mid, MID);
    });
}
