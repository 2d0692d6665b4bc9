#include <optional>

#include "tests/identity/state/IdentityStateTestSupport.h"
#include "tests/identity/support/IdentityCoreTestSupport.h"
#include "tests/support/LogCapture.h"
#include "tools/server/TestIdentityServer.h"
using namespace VelmoraMobile;
using namespace VelmoraTest;
using namespace VelmoraTestServer;

TEST(SideChannelTest, OnlyAnExplicitFalseWhileOptedOutMakesTheModuleSendTheOptOut) {
    TestIdentityServer server;
    IdentityHarness harness;
    harness.RegisterIdentity();
    // Configures `privacy`, with an audience server, and waits until the module has applied it.
    auto configure = [&](const std::string& privacy) {
        ConfigureWithServer(
            harness, server.Host(),
            {{"ondaraCloud.org", STATE_ORG}, {"audience.server", "audience.example"}, {"global.privacy", privacy}});
        const auto wanted = privacy == "optedout" ? MobilePrivacyStatus::OPT_OUT : MobilePrivacyStatus::OPT_IN;
        ASSERT_TRUE(WaitFor([&] {
            bool applied = false;
            harness.RunInIdentityQueue([&] { applied = harness.identity->privacy_status == wanted; });
            return applied;
        }));
    };
    // Dispatches an audience response and waits until the module has handled it.
    auto audience_response = [&](const std::optional<bool>& opted_out_hit_sent) {
        auto data = std::make_shared<EventData>();
        if (opted_out_hit_sent) data->PutBoolean("optedouthitsent", *opted_out_hit_sent);
        harness.hub->Dispatch(
            EventBuilder("response", EventType::ZUMA, EventSource::RESPONSE_CONTENT).SetData(data).Build());
        Settle(harness);
    };
    configure("optedin");
    LogCapture capture(LoggingMode::DEBUG_LOG);
    // The configuration at the response decides, not the module's own status.
    harness.RunInIdentityQueue([&] {
        harness.identity->mid = STATE_MID;
        harness.identity->privacy_status = MobilePrivacyStatus::OPT_OUT;
    });
    audience_response(false);
    harness.RunInIdentityQueue([&] { harness.identity->privacy_status = MobilePrivacyStatus::OPT_IN; });
    // With an audience server the module leaves the opt-out hit to the audience extension; after
    // the wipe no MID is left to send.
    configure("optedout");
    audience_response(false);
    EXPECT_TRUE(capture.Contains("Could not send opt-out request as url is empty."));

    // An audience answer that comes before the wipe of its status change still sees the MID.
    harness.RunInIdentityQueue([&] { harness.identity->mid = STATE_MID; });
    audience_response(std::nullopt);
    audience_response(true);
    EXPECT_FALSE(capture.ContainsFragment("Sending opt-out request"));
    audience_response(false);
    EXPECT_EQ(capture.Count("Sending opt-out request to " + server.BaseUrl() + "/veloptout.jpg?d_mid=" + STATE_MID +
                            "&d_orgid=1234ABCD5678EFGH%40VelmoraOrg."),
              1u);
    EXPECT_TRUE(server.WaitForRequests(1, std::chrono::seconds(10)));
}

TEST(AnalyticsIdSyncTest, OnlyTheFirstIdEverIsQueuedBehindWaitingEventsUnforcedAtTheResponsesNumber) {
    IdentityHarness harness;
    auto module = RegisterSyncRecorder(harness);
    harness.Configure({{"ondaraCloud.org", STATE_ORG}});
    auto waiting_data = std::make_shared<EventData>();
    waiting_data->PutBoolean("issyncevent", true);
    auto waiting =
        EventBuilder("waiting", EventType::IDENTITY, EventSource::REQUEST_IDENTITY).SetData(waiting_data).Build();
    harness.RunInIdentityQueue([&] {
        module->sync_result = false;
        module->event_queue.push_back(waiting);
    });
    auto respond = [&](const std::optional<std::string>& aid) {
        auto data = std::make_shared<EventData>();
        if (aid) data->PutString("aid", *aid);
        auto response =
            EventBuilder("response", EventType::ANALYTICS, EventSource::RESPONSE_IDENTITY).SetData(data).Build();
        harness.hub->Dispatch(response);
        Settle(harness);
        return response;
    };
    // No id, or an empty one, does nothing: not even the mark that would block the next. The mark
    // says that a sync happened, not for which id; only an opt-out removes it.
    respond(std::nullopt);
    respond("");
    auto response = respond("AID-1");
    respond("AID-2");
    std::deque<std::shared_ptr<Event>> events;
    harness.RunInIdentityQueue([&] { events.swap(module->event_queue); });
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events.front(), waiting);
    const auto& avid = events.back();
    EXPECT_EQ(avid->GetName(), "AVID Sync");
    EXPECT_EQ(avid->GetEventNumber(), response->GetEventNumber());
    EXPECT_EQ(StringUtils::ToString(*avid->GetData()),
              "{authenticationstate: 0, forcesync: false, issyncevent: true, visitoridentifiers: {AVID: \"AID-1\"}}");
}
