#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "identity/ids/VisitorId.h"
#include "identity/module/Identity.h"
#include "runtime/bus/EventBuilder.h"
#include "runtime/values/Variant.h"
#include "tests/identity/state/IdentityStateTestSupport.h"
#include "tests/identity/support/IdentityCoreTestSupport.h"
#include "tests/identity/support/IdentityHarness.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"
#include "tools/server/TestIdentityServer.h"

using namespace VelmoraMobile;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;
using VelmoraTest::Store;

namespace {

const std::string& ORG = VelmoraTest::STATE_ORG;
const std::string& MID = VelmoraTest::STATE_MID;
const std::string AID_SYNCED = "VELMORAMOBILE_AID_SYNCED";

// "type=id" for each customer id, in list order.
std::vector<std::string> Describe(const std::vector<std::shared_ptr<VisitorId>>& ids) {
    std::vector<std::string> result;
    for (const auto& id : ids) result.push_back(id->id_type + "=" + id->id);
    return result;
}

// A started module configured for the local identity server over plain HTTP.
class SideChannelTest : public ::testing::Test {
protected:
    void SetUp() override {
        harness.RegisterIdentity();
        Configure("optedin");
    }

    // Configures `privacy` and waits until the module has applied it (and, for an opt-out, wiped).
    void Configure(const std::string& privacy) {
        harness.ConfigureVariants({{"ondaraCloud.org", Variant::FromString(ORG)},
                                   {"ondaraCloud.server", Variant::FromString(server.Host())},
                                   {"global.ssl", Variant::FromBoolean(false)},
                                   {"audience.server", Variant::FromString("audience.example")},
                                   {"global.privacy", Variant::FromString(privacy)}});
        const auto wanted = privacy == "optedout" ? MobilePrivacyStatus::OPT_OUT : MobilePrivacyStatus::OPT_IN;
        ASSERT_TRUE(VelmoraTest::WaitFor([&] {
            bool applied = false;
            harness.RunInIdentityQueue([&] { applied = harness.identity->privacy_status == wanted; });
            return applied;
        }));
    }

    // Dispatches `data` as `type`/`source` and waits until the module has handled it.
    std::shared_ptr<Event> Respond(const std::shared_ptr<EventType>& type, const std::shared_ptr<EventSource>& source,
                                   const std::shared_ptr<EventData>& data) {
        auto event = EventBuilder("response", type, source).SetData(data).Build();
        harness.hub->Dispatch(event);
        VelmoraTest::Settle(harness);
        return event;
    }

    std::shared_ptr<Event> AnalyticsResponse(const std::optional<std::string>& aid) {
        auto data = std::make_shared<EventData>();
        if (aid) data->PutString("aid", *aid);
        return Respond(EventType::ANALYTICS, EventSource::RESPONSE_IDENTITY, data);
    }

    void AudienceResponse(const std::optional<bool>& opted_out_hit_sent) {
        auto data = std::make_shared<EventData>();
        if (opted_out_hit_sent) data->PutBoolean("optedouthitsent", *opted_out_hit_sent);
        Respond(EventType::ZUMA, EventSource::RESPONSE_CONTENT, data);
    }

    std::vector<std::string> CustomerIds() {
        std::vector<std::string> ids;
        harness.RunInIdentityQueue([&] { ids = Describe(harness.identity->customer_ids); });
        return ids;
    }

    std::vector<std::string> PublishedIds(const std::shared_ptr<Event>& event) {
        auto state = harness.IdentityState(event);
        if (!state) return {};
        auto ids = state->GetTypedVector<VisitorId>("visitoridslist");
        return ids.HasValue() ? Describe(ids.Value()) : std::vector<std::string>{};
    }

    VelmoraTestServer::TestIdentityServer server;
    IdentityHarness harness;
};

}  // namespace

TEST_F(SideChannelTest, AnalyticsIdIsSyncedOnceAndAgainOnlyAfterAnOptOutRemovedTheMark) {
    // A response without an id, or with an empty one, does nothing.
    AnalyticsResponse(std::nullopt);
    AnalyticsResponse("");
    EXPECT_FALSE(Store(harness)->Contains(AID_SYNCED));

    auto first = AnalyticsResponse("AID-1");
    EXPECT_TRUE(Store(harness)->GetBoolean(AID_SYNCED, false));
    EXPECT_EQ(CustomerIds(), (std::vector<std::string>{"AVID=AID-1"}));
    // The sync took the response's number: its state is published exactly there.
    EXPECT_EQ(PublishedIds(first), (std::vector<std::string>{"AVID=AID-1"}));
    ASSERT_TRUE(server.WaitForRequests(1, std::chrono::seconds(10)));
    EXPECT_NE(server.Requests()[0].query.find("d_cid_ic=AVID%01AID-1%010"), std::string::npos);
    // The mark says that a sync happened, not for which id: a new id is not synced.
    AnalyticsResponse("AID-2");
    EXPECT_EQ(CustomerIds(), (std::vector<std::string>{"AVID=AID-1"}));

    Configure("optedout");
    EXPECT_FALSE(Store(harness)->Contains(AID_SYNCED));
    EXPECT_TRUE(CustomerIds().empty());
    Configure("optedin");
    auto again = AnalyticsResponse("AID-3");
    EXPECT_EQ(PublishedIds(again), (std::vector<std::string>{"AVID=AID-3"}));
    AnalyticsResponse("AID-4");
    EXPECT_EQ(CustomerIds(), (std::vector<std::string>{"AVID=AID-3"}));
}

TEST_F(SideChannelTest, OnlyAnExplicitFalseWhileOptedOutMakesTheModuleSendTheOptOut) {
    const std::string sending = "Sending opt-out request to " + server.BaseUrl() + "/veloptout.jpg?d_mid=" + MID +
                                "&d_orgid=1234ABCD5678EFGH%40VelmoraOrg.";
    harness.RunInIdentityQueue([&] { harness.identity->mid = MID; });
    LogCapture capture(LoggingMode::DEBUG_LOG);
    // Opted in, even an explicit false sends nothing.
    AudienceResponse(false);
    // The configuration at the response decides, not the module's own status.
    harness.RunInIdentityQueue([&] { harness.identity->privacy_status = MobilePrivacyStatus::OPT_OUT; });
    AudienceResponse(false);
    EXPECT_EQ(capture.Count(sending), 0u);
    harness.RunInIdentityQueue([&] { harness.identity->privacy_status = MobilePrivacyStatus::OPT_IN; });
    // With an audience server the module leaves the opt-out hit to the audience extension.
    Configure("optedout");
    EXPECT_EQ(capture.Count(sending), 0u);

    // After the wipe no MID is left to send.
    AudienceResponse(false);
    EXPECT_TRUE(capture.Contains("Could not send opt-out request as url is empty."));

    // An audience answer that comes before the wipe of its status change still sees the MID.
    harness.RunInIdentityQueue([&] { harness.identity->mid = MID; });
    AudienceResponse(std::nullopt);
    AudienceResponse(true);
    EXPECT_EQ(capture.Count(sending), 0u);
    AudienceResponse(false);
    EXPECT_EQ(capture.Count(sending), 1u);
    ASSERT_TRUE(server.WaitForRequests(1, std::chrono::seconds(10)));
    EXPECT_EQ(server.Requests().size(), 1u);
    EXPECT_EQ(server.Requests()[0].path, "/veloptout.jpg");
}

TEST(AnalyticsIdSyncTest, QueuesBehindWaitingEventsUnforcedAtTheResponsesNumber) {
    IdentityHarness harness;
    auto module = VelmoraTest::RegisterSyncRecorder(harness);
    harness.Configure({{"ondaraCloud.org", ORG}});
    auto waiting_data = std::make_shared<EventData>();
    waiting_data->PutBoolean("issyncevent", true);
    auto waiting =
        EventBuilder("waiting", EventType::IDENTITY, EventSource::REQUEST_IDENTITY).SetData(waiting_data).Build();
    harness.RunInIdentityQueue([&] {
        module->sync_result = false;
        module->event_queue.push_back(waiting);
    });
    auto data = std::make_shared<EventData>();
    data->PutString("aid", "AID-1");
    auto response =
        EventBuilder("response", EventType::ANALYTICS, EventSource::RESPONSE_IDENTITY).SetData(data).Build();
    harness.hub->Dispatch(response);
    std::shared_ptr<Event> avid;
    ASSERT_TRUE(VelmoraTest::WaitFor([&] {
        harness.RunInIdentityQueue([&] {
            if (module->event_queue.size() == 2 && module->event_queue.front() == waiting)
                avid = module->event_queue.back();
        });
        return avid != nullptr;
    }));
    EXPECT_EQ(avid->GetName(), "AVID Sync");
    EXPECT_EQ(avid->GetEventNumber(), response->GetEventNumber());
    EXPECT_FALSE(avid->GetData()->OptBoolean("forcesync", true));
    EXPECT_TRUE(avid->GetData()->OptBoolean("issyncevent", false));
    harness.RunInIdentityQueue([&] { module->event_queue.clear(); });
}
