#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "EventBuilder.h"
#include "EventSource.h"
#include "EventType.h"
#include "Identity.h"
#include "IdentityHarness.h"
#include "IdentityStateTestSupport.h"
#include "LogCapture.h"
#include "TestIdentityServer.h"
#include "Variant.h"
#include "VisitorId.h"
#include "WaitFor.h"

using namespace VelmoraMobile;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;
using VelmoraTest::WaitFor;
using VelmoraTest::IdentityState::EventBarrier;
using VelmoraTest::IdentityState::Store;
using VelmoraTestServer::TestIdentityServer;

namespace {

const std::string ORG = "1234ABCD5678EFGH@VelmoraOrg";
const std::string MID = "01234567890123456789012345678901234567";
const std::string AID_SYNCED = "VELMORAMOBILE_AID_SYNCED";
const std::string SENDING = "Sending opt-out request to ";
const std::string URL_EMPTY = "Could not send opt-out request as url is empty.";
const std::string AUDIENCE_PENDING = "Configuration state not available at time to proces Audience event.";

// "type=id" for each customer id, in list order.
std::vector<std::string> Describe(const std::vector<std::shared_ptr<VisitorId>>& ids) {
    std::vector<std::string> result;
    for (const auto& id : ids) result.push_back(id->id_type + "=" + id->id);
    return result;
}

// The customer ids of a published identity state; empty when there is no state or no list.
std::vector<std::string> PublishedIds(const std::shared_ptr<EventData>& state) {
    if (!state) return {};
    auto ids = state->GetTypedVector<VisitorId>("visitoridslist");
    return ids.HasValue() ? Describe(ids.Value()) : std::vector<std::string>{};
}

size_t CountStartingWith(const LogCapture& capture, const std::string& prefix) {
    size_t count = 0;
    for (const auto& line : capture.Lines()) {
        if (line.message.rfind(prefix, 0) == 0) ++count;
    }
    return count;
}

// A started module configured for the local identity server over plain HTTP.
class SideChannelTest : public ::testing::Test {
protected:
    void SetUp() override {
        harness.RegisterIdentity();
        Configure({});
    }

    void Configure(const Variant::VariantMap& extra) {
        Variant::VariantMap values = extra;
        values["ondaraCloud.org"] = Variant::FromString(ORG);
        values["ondaraCloud.server"] = Variant::FromString(server.Host());
        values["global.ssl"] = Variant::FromBoolean(false);
        harness.ConfigureVariants(values);
    }

    // Opts out and waits until the module has wiped (the wipe removes the analytics mark).
    void OptOut(const Variant::VariantMap& extra = {}) {
        Variant::VariantMap values = extra;
        values["global.privacy"] = Variant::FromString("optedout");
        Configure(values);
        ASSERT_TRUE(WaitFor([&] {
            bool wiped = false;
            harness.RunInIdentityQueue(
                [&] { wiped = harness.identity->privacy_status == MobilePrivacyStatus::OPT_OUT; });
            return wiped;
        }));
    }

    void OptIn() {
        Configure({{"global.privacy", Variant::FromString("optedin")}});
        ASSERT_TRUE(WaitFor([&] {
            bool opted_in = false;
            harness.RunInIdentityQueue(
                [&] { opted_in = harness.identity->privacy_status == MobilePrivacyStatus::OPT_IN; });
            return opted_in;
        }));
    }

    // Dispatches what the analytics extension answers and waits until the module has handled it.
    std::shared_ptr<Event> AnalyticsResponse(const std::optional<std::string>& aid) {
        auto data = std::make_shared<EventData>();
        if (aid) data->PutString("aid", *aid);
        auto event = EventBuilder("analytics response", EventType::ANALYTICS, EventSource::RESPONSE_IDENTITY)
                         .SetData(data)
                         .Build();
        harness.hub->Dispatch(event);
        Settle();
        return event;
    }

    // Dispatches what the audience extension answers and waits until the module has handled it.
    std::shared_ptr<Event> AudienceResponse(const std::optional<bool>& opted_out_hit_sent) {
        auto data = std::make_shared<EventData>();
        if (opted_out_hit_sent) data->PutBoolean("optedouthitsent", *opted_out_hit_sent);
        auto event =
            EventBuilder("audience response", EventType::ZUMA, EventSource::RESPONSE_CONTENT).SetData(data).Build();
        harness.hub->Dispatch(event);
        Settle();
        return event;
    }

    // Every event so far has been heard, and every task it added has run.
    void Settle() {
        EventBarrier(harness);
        harness.Drain();
    }

    std::vector<std::string> CustomerIds() {
        std::vector<std::string> ids;
        harness.RunInIdentityQueue([&] { ids = Describe(harness.identity->customer_ids); });
        return ids;
    }

    TestIdentityServer server;
    IdentityHarness harness;
};

}  // namespace

TEST_F(SideChannelTest, AnalyticsIdIsSyncedOnceAsAvidAtTheResponsesPlace) {
    auto earlier =
        EventBuilder("marker", EventType::Get("velmora.test.marker"), EventSource::Get("velmora.test.marker")).Build();
    harness.hub->Dispatch(earlier);
    auto first = AnalyticsResponse("AID-1");

    EXPECT_TRUE(Store(harness)->GetBoolean(AID_SYNCED, false));
    EXPECT_EQ(CustomerIds(), (std::vector<std::string>{"AVID=AID-1"}));
    // The sync took the response's number: its state is published exactly there.
    EXPECT_EQ(PublishedIds(harness.IdentityState(first)), (std::vector<std::string>{"AVID=AID-1"}));
    EXPECT_TRUE(PublishedIds(harness.IdentityState(earlier)).empty());
    auto state = harness.IdentityState(first);
    ASSERT_NE(state, nullptr);
    EXPECT_FALSE(state->OptString("mid", "").empty());
    // The sync goes to the identity server as an ordinary hit.
    ASSERT_TRUE(server.WaitForRequests(1, std::chrono::seconds(10)));
    auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].path, "/id");
    EXPECT_NE(requests[0].query.find("d_cid_ic=AVID%01AID-1%010"), std::string::npos) << requests[0].query;
    EXPECT_EQ(requests[0].params["d_orgid"], ORG);
    // It went straight into the module's queue, never over the bus.
    for (const auto& event : harness.Events()) EXPECT_NE(event->GetName(), "AVID Sync");

    // The mark says that a sync happened, not for which id: a new id is not synced.
    auto second = AnalyticsResponse("AID-2");
    EXPECT_EQ(CustomerIds(), (std::vector<std::string>{"AVID=AID-1"}));
    EXPECT_EQ(PublishedIds(harness.IdentityState(second)), (std::vector<std::string>{"AVID=AID-1"}));
}

TEST_F(SideChannelTest, AnalyticsIdIsSyncedAgainOnlyAfterAnOptOutRemovedTheMark) {
    AnalyticsResponse("AID-1");
    ASSERT_TRUE(Store(harness)->Contains(AID_SYNCED));

    OptOut();
    EXPECT_FALSE(Store(harness)->Contains(AID_SYNCED));
    EXPECT_TRUE(CustomerIds().empty());
    OptIn();

    auto again = AnalyticsResponse("AID-3");
    EXPECT_TRUE(Store(harness)->Contains(AID_SYNCED));
    EXPECT_EQ(CustomerIds(), (std::vector<std::string>{"AVID=AID-3"}));
    EXPECT_EQ(PublishedIds(harness.IdentityState(again)), (std::vector<std::string>{"AVID=AID-3"}));

    AnalyticsResponse("AID-4");
    EXPECT_EQ(CustomerIds(), (std::vector<std::string>{"AVID=AID-3"}));
}

TEST_F(SideChannelTest, AnalyticsIdWhileOptedOutSetsTheMarkButTheSyncIsDropped) {
    OptOut();
    LogCapture capture(LoggingMode::DEBUG_LOG);
    AnalyticsResponse("AID-1");
    EXPECT_TRUE(Store(harness)->Contains(AID_SYNCED));
    EXPECT_TRUE(capture.Contains("Ignoring ID Sync due to privacy status opt out."));
    EXPECT_TRUE(CustomerIds().empty());

    // The mark stands after the opt-in, so the id is not synced.
    OptIn();
    AnalyticsResponse("AID-2");
    EXPECT_TRUE(CustomerIds().empty());
}

TEST_F(SideChannelTest, AnalyticsResponseWithoutAnIdDoesNothing) {
    AnalyticsResponse(std::nullopt);
    AnalyticsResponse("");
    EXPECT_FALSE(Store(harness)->Contains(AID_SYNCED));
    EXPECT_TRUE(CustomerIds().empty());

    // A later response with an id is still the first to sync.
    AnalyticsResponse("AID-1");
    EXPECT_EQ(CustomerIds(), (std::vector<std::string>{"AVID=AID-1"}));
}

TEST_F(SideChannelTest, AnalyticsIdIsNotSyncedWithoutADataStore) {
    auto storage = harness.services->GetLocalStorageService();
    harness.services->SetLocalStorageService(nullptr);
    LogCapture capture(LoggingMode::WARNING_LOG);
    AnalyticsResponse("AID-1");
    EXPECT_TRUE(capture.Contains("data storage service is null. cannot load persistent data"));
    EXPECT_TRUE(CustomerIds().empty());

    // The next response, with the store back, tries again.
    harness.services->SetLocalStorageService(storage);
    AnalyticsResponse("AID-2");
    EXPECT_EQ(CustomerIds(), (std::vector<std::string>{"AVID=AID-2"}));
}

TEST_F(SideChannelTest, AudienceThatDidNotSendTheOptOutMakesTheModuleSendIt) {
    // With an audience server configured the module leaves the opt-out hit to the audience
    // extension; the wipe happens all the same.
    OptOut({{"audience.server", Variant::FromString("audience.example")}});
    harness.Drain();
    EXPECT_TRUE(server.Requests().empty());

    // The audience answer that comes before the wipe of its status change still sees the MID.
    harness.RunInIdentityQueue([&] { harness.identity->mid = MID; });
    LogCapture capture(LoggingMode::DEBUG_LOG);
    AudienceResponse(false);

    ASSERT_TRUE(server.WaitForRequests(1, std::chrono::seconds(10)));
    auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].method, "GET");
    EXPECT_EQ(requests[0].path, "/veloptout.jpg");
    EXPECT_EQ(requests[0].params["d_mid"], MID);
    EXPECT_EQ(requests[0].params["d_orgid"], ORG);
    EXPECT_TRUE(capture.Contains(SENDING + server.BaseUrl() + "/veloptout.jpg?d_mid=" + MID +
                                 "&d_orgid=1234ABCD5678EFGH%40VelmoraOrg."));
}

TEST_F(SideChannelTest, OnlyAnExplicitFalseWhileOptedOutSends) {
    harness.RunInIdentityQueue([&] { harness.identity->mid = MID; });
    LogCapture capture(LoggingMode::DEBUG_LOG);
    // Opted in: neither an absent flag, nor true, nor false sends anything.
    AudienceResponse(std::nullopt);
    AudienceResponse(true);
    AudienceResponse(false);
    EXPECT_EQ(CountStartingWith(capture, SENDING), 0u);
    EXPECT_FALSE(capture.Contains(URL_EMPTY));

    OptOut({{"audience.server", Variant::FromString("audience.example")}});
    harness.RunInIdentityQueue([&] { harness.identity->mid = MID; });
    capture.Clear();
    // Opted out: the flag absent or true means the audience extension has sent it.
    AudienceResponse(std::nullopt);
    AudienceResponse(true);
    EXPECT_EQ(CountStartingWith(capture, SENDING), 0u);
    AudienceResponse(false);
    EXPECT_EQ(CountStartingWith(capture, SENDING), 1u);
    ASSERT_TRUE(server.WaitForRequests(1, std::chrono::seconds(10)));
    EXPECT_EQ(server.Requests().size(), 1u);
}

TEST_F(SideChannelTest, AudienceAnswerAfterTheWipeFindsNoMid) {
    OptOut({{"audience.server", Variant::FromString("audience.example")}});
    LogCapture capture(LoggingMode::DEBUG_LOG);
    AudienceResponse(false);
    EXPECT_TRUE(capture.Contains(URL_EMPTY));
    EXPECT_EQ(CountStartingWith(capture, SENDING), 0u);
}

TEST(SideChannelPendingTest, AudienceAnswerBeforeAnyConfigurationIsNotTriedAgain) {
    TestIdentityServer server;
    IdentityHarness harness;
    harness.RegisterIdentity();
    harness.RunInIdentityQueue([&] { harness.identity->mid = MID; });
    LogCapture capture;
    auto data = std::make_shared<EventData>();
    data->PutBoolean("optedouthitsent", false);
    harness.hub->Dispatch(
        EventBuilder("audience response", EventType::ZUMA, EventSource::RESPONSE_CONTENT).SetData(data).Build());
    EventBarrier(harness);
    harness.Drain();
    EXPECT_TRUE(capture.Contains(AUDIENCE_PENDING));

    // The configuration that arrives later says opted out, yet the old answer is not replayed.
    harness.ConfigureVariants({{"ondaraCloud.org", Variant::FromString(ORG)},
                               {"ondaraCloud.server", Variant::FromString(server.Host())},
                               {"global.ssl", Variant::FromBoolean(false)},
                               {"audience.server", Variant::FromString("audience.example")},
                               {"global.privacy", Variant::FromString("optedout")}});
    EventBarrier(harness);
    harness.Drain();
    EXPECT_EQ(CountStartingWith(capture, SENDING), 0u);
}
