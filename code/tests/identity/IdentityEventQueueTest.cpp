#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "EventBuilder.h"
#include "IdentityCoreTestSupport.h"
#include "IdentityHarness.h"
#include "LogCapture.h"
#include "TestIdentityServer.h"
#include "Variant.h"
#include "VisitorId.h"
#include "VisitorIdSerializer.h"
#include "WaitFor.h"

using namespace VelmoraMobile;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;
using VelmoraTest::MakeData;

namespace {

const std::string ORG = "ORG@VelmoraOrg";
const std::string PENDING_MESSAGE = "Config not available at the time to process identity event.";
const std::string REFUSED_MESSAGE =
    "Config settings not valid to process the identity event. Processing will resume when a valid configuration is "
    "obtained.";

std::shared_ptr<Event> Request(const std::shared_ptr<EventType>& type, const std::shared_ptr<EventSource>& source,
                               const std::shared_ptr<EventData>& data, const std::string& name = "test request") {
    return EventBuilder(name, type, source).SetData(data).Build();
}

std::shared_ptr<EventData> SyncData() {
    auto data = std::make_shared<EventData>();
    data->PutBoolean("issyncevent", true);
    return data;
}

}  // namespace

TEST(IdentityEventQueueTest, RequestForIdentifiersIsAnsweredWithTheRecordAndThePairId) {
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    harness.Configure({{"ondaraCloud.org", ORG}});
    harness.RunInIdentityQueue([&] {
        identity->mid = "12345678901234567890123456789012345678";
        identity->blob = "BLOB";
    });

    auto request = harness.DispatchIdentityRequest(MakeData({{"unrelated", "key"}}));
    auto response = harness.WaitForResponse(request->GetResponsePairID());
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(response->GetName(), "IDENTITY_RESPONSE_CONTENT_ONE_TIME");
    EXPECT_EQ(response->GetEventType(), EventType::IDENTITY);
    EXPECT_GT(response->GetEventNumber(), request->GetEventNumber());
    EXPECT_EQ(response->GetData()->OptString("mid", ""), "12345678901234567890123456789012345678");
    EXPECT_EQ(response->GetData()->OptString("blob", ""), "BLOB");
    // A request for identifiers publishes nothing.
    EXPECT_EQ(harness.IdentityState(), nullptr);
}

TEST(IdentityEventQueueTest, RequestWaitsForAPendingConfigurationAndIsAnsweredWhenItComes) {
    LogCapture log;
    IdentityHarness harness;
    harness.RegisterIdentity();

    auto request = harness.DispatchIdentityRequest(MakeData());
    ASSERT_TRUE(VelmoraTest::WaitFor([&] { return log.Contains(PENDING_MESSAGE); }));
    VelmoraTest::Settle(harness);
    EXPECT_TRUE(VelmoraTest::ResponsesTo(harness, request->GetResponsePairID()).empty());
    harness.RunInIdentityQueue([&] { EXPECT_EQ(harness.identity->event_queue.size(), 1u); });

    harness.Configure({{"global.privacy", "optedin"}});
    ASSERT_NE(harness.WaitForResponse(request->GetResponsePairID()), nullptr);
    harness.RunInIdentityQueue([&] { EXPECT_TRUE(harness.identity->event_queue.empty()); });
}

TEST(IdentityEventQueueTest, SyncWithoutOrgIdBlocksWhatStandsBehindItUntilOneComes) {
    LogCapture log;
    VelmoraTestServer::TestIdentityServer server;
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    VelmoraTest::ConfigureWithServer(harness, server.Host(), {{"global.privacy", "optedin"}});

    auto sync = harness.DispatchIdentityRequest(SyncData(), "test sync");
    auto request = harness.DispatchIdentityRequest(MakeData());
    VelmoraTest::Settle(harness);
    EXPECT_TRUE(log.Contains(REFUSED_MESSAGE));
    EXPECT_TRUE(VelmoraTest::ResponsesTo(harness, request->GetResponsePairID()).empty());
    harness.RunInIdentityQueue([&] {
        ASSERT_EQ(identity->event_queue.size(), 2u);
        EXPECT_EQ(identity->event_queue.front(), sync);
    });

    // A configuration with an org id becomes the sync's configuration of last resort.
    VelmoraTest::ConfigureWithServer(harness, server.Host(), {{"ondaraCloud.org", ORG}});
    auto response = harness.WaitForResponse(request->GetResponsePairID());
    ASSERT_NE(response, nullptr);
    // The sync ran first: it made the MID that the answer carries, and published at its number.
    EXPECT_FALSE(response->GetData()->OptString("mid", "").empty());
    auto state = harness.IdentityState(sync);
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(state->OptString("mid", ""), response->GetData()->OptString("mid", "x"));
}

TEST(IdentityEventQueueTest, EventsAreRoutedByTheirFlagsInTheirOrder) {
    IdentityHarness harness;
    auto module = std::make_shared<VelmoraTest::SyncRecordingIdentity>();
    VelmoraTest::RegisterModuleInHarness(harness, module);
    harness.Configure({{"ondaraCloud.org", ORG}});

    // GENERIC_IDENTITY is a sync without any flag.
    auto generic = Request(EventType::GENERIC_IDENTITY, EventSource::REQUEST_CONTENT, MakeData({{"any", "thing"}}));
    harness.hub->Dispatch(generic);
    // The sync flag beats "vid" and "baseurl".
    auto flagged_data = SyncData();
    flagged_data->PutString("vid", "user");
    flagged_data->PutString("baseurl", "https://example.test");
    auto flagged = harness.DispatchIdentityRequest(flagged_data);
    // A false flag with other keys is a request for the identifiers.
    auto unflagged_data = MakeData({{"visitoridentifiers", "x"}});
    unflagged_data->PutBoolean("issyncevent", false);
    auto unflagged = harness.DispatchIdentityRequest(unflagged_data);

    ASSERT_NE(harness.WaitForResponse(unflagged->GetResponsePairID()), nullptr);
    harness.RunInIdentityQueue([&] {
        ASSERT_EQ(module->syncs.size(), 2u);
        EXPECT_EQ(module->syncs[0].event, generic);
        EXPECT_EQ(module->syncs[0].org_id, ORG);
        EXPECT_EQ(module->syncs[1].event, flagged);
        EXPECT_EQ(module->user_identifier, "");
    });
    EXPECT_TRUE(VelmoraTest::ResponsesTo(harness, generic->GetResponsePairID()).empty());
    EXPECT_TRUE(VelmoraTest::ResponsesTo(harness, flagged->GetResponsePairID()).empty());
}

TEST(IdentityEventQueueTest, RefusedSyncIsJudgedAgainFromTheStartAtTheNextDrain) {
    IdentityHarness harness;
    auto module = std::make_shared<VelmoraTest::SyncRecordingIdentity>();
    VelmoraTest::RegisterModuleInHarness(harness, module);
    harness.RunInIdentityQueue([&] { module->sync_result = false; });
    harness.Configure({{"global.privacy", "optedin"}});

    auto sync = harness.DispatchIdentityRequest(SyncData(), "test sync");
    VelmoraTest::Settle(harness);
    harness.RunInIdentityQueue([&] {
        ASSERT_EQ(module->syncs.size(), 1u);
        module->sync_result = true;
    });
    module->TryProcessEventQueue();
    harness.Drain();
    harness.RunInIdentityQueue([&] {
        ASSERT_EQ(module->syncs.size(), 2u);
        EXPECT_EQ(module->syncs[1].event, sync);
        EXPECT_TRUE(module->event_queue.empty());
    });
}

TEST(IdentityEventQueueTest, EmptyUserIdentifierClearsItAndPublishesAtTheRequestsNumber) {
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    harness.Configure({{"ondaraCloud.org", ORG}});
    harness.RunInIdentityQueue([&] { identity->user_identifier = "old-user"; });

    auto request = harness.DispatchIdentityRequest(MakeData({{"vid", ""}}));
    ASSERT_TRUE(VelmoraTest::WaitFor([&] { return harness.IdentityState(request) != nullptr; }));
    VelmoraTest::Settle(harness);

    auto state = harness.IdentityState(request);
    EXPECT_FALSE(state->ContainsKey("vid"));
    EXPECT_TRUE(state->ContainsKey("lastsync"));
    auto just_before = EventBuilder("probe", EventType::HUB, EventSource::SHARED_STATE)
                           .SetEventNumber(request->GetEventNumber() - 1)
                           .Build();
    EXPECT_EQ(harness.IdentityState(just_before), nullptr);
    harness.RunInIdentityQueue([&] { EXPECT_EQ(identity->user_identifier, ""); });
    // Setting the user identifier is answered by the shared state alone.
    EXPECT_TRUE(VelmoraTest::ResponsesTo(harness, request->GetResponsePairID()).empty());
}

TEST(IdentityEventQueueTest, UserIdentifierOfAnotherKindClearsItToo) {
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    harness.Configure({{"ondaraCloud.org", ORG}});
    harness.RunInIdentityQueue([&] { identity->user_identifier = "old-user"; });

    auto data = std::make_shared<EventData>();
    data->PutInteger("vid", 7);
    auto request = harness.DispatchIdentityRequest(data);
    ASSERT_TRUE(VelmoraTest::WaitFor([&] { return harness.IdentityState(request) != nullptr; }));
    harness.RunInIdentityQueue([&] { EXPECT_EQ(identity->user_identifier, ""); });
}

TEST(IdentityEventQueueTest, UserIdentifierWhileOptedOutIsConsumedWithoutEffect) {
    LogCapture log;
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    harness.Configure({{"ondaraCloud.org", ORG}, {"global.privacy", "optedout"}});
    VelmoraTest::Settle(harness);
    auto state_before = harness.IdentityState();

    auto request = harness.DispatchIdentityRequest(MakeData({{"vid", "user-1"}}));
    ASSERT_TRUE(
        VelmoraTest::WaitFor([&] { return log.Contains("cannot set user identifier with privacy opt out. sharing"); }));
    VelmoraTest::Settle(harness);
    harness.RunInIdentityQueue([&] {
        EXPECT_EQ(identity->user_identifier, "");
        EXPECT_TRUE(identity->event_queue.empty());
    });
    EXPECT_EQ(harness.IdentityState(), state_before);
    EXPECT_TRUE(VelmoraTest::ResponsesTo(harness, request->GetResponsePairID()).empty());
}

TEST(IdentityEventQueueTest, UserIdentifierBeatsTheUrlWhoseSenderThenGetsNoAnswer) {
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    harness.Configure({{"ondaraCloud.org", ORG}});
    auto request = harness.DispatchIdentityRequest(MakeData({{"vid", "user-2"}, {"baseurl", "https://example.test"}}));
    ASSERT_TRUE(VelmoraTest::WaitFor([&] { return harness.IdentityState(request) != nullptr; }));
    VelmoraTest::Settle(harness);
    EXPECT_EQ(harness.IdentityState(request)->OptString("vid", ""), "user-2");
    EXPECT_TRUE(VelmoraTest::ResponsesTo(harness, request->GetResponsePairID()).empty());
}

TEST(IdentityEventQueueTest, TwoRequestsInOneDrainGetTwoResponsesWithTheirOwnData) {
    LogCapture log;
    IdentityHarness harness;
    harness.RegisterIdentity();
    // Both wait behind the pending configuration, so a single drain answers them.
    auto first = harness.DispatchIdentityRequest(MakeData());
    auto second = harness.DispatchIdentityRequest(MakeData());
    ASSERT_TRUE(VelmoraTest::WaitFor([&] { return log.Count(PENDING_MESSAGE) >= 2; }));

    harness.Configure({{"global.privacy", "optedin"}});
    auto first_response = harness.WaitForResponse(first->GetResponsePairID());
    auto second_response = harness.WaitForResponse(second->GetResponsePairID());
    ASSERT_NE(first_response, nullptr);
    ASSERT_NE(second_response, nullptr);
    EXPECT_LT(first_response->GetEventNumber(), second_response->GetEventNumber());
    EXPECT_NE(first_response->GetData(), second_response->GetData());
    first_response->GetData()->PutString("mid", "written by one receiver");
    EXPECT_FALSE(second_response->GetData()->ContainsKey("mid"));
}

TEST(IdentityEventQueueTest, BlankDeviceRecordHoldsLastSyncAlone) {
    IdentityHarness harness;
    harness.RegisterIdentity();
    harness.Configure({{"global.privacy", "optedin"}});
    auto request = harness.DispatchIdentityRequest(MakeData());
    auto response = harness.WaitForResponse(request->GetResponsePairID());
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(VelmoraTest::KeysOf(response->GetData()), std::vector<std::string>{"lastsync"});
    int64_t last_sync = -1;
    ASSERT_TRUE(response->GetData()->GetLong("lastsync", last_sync));
    EXPECT_EQ(last_sync, 0);
}

TEST(IdentityEventQueueTest, RecordCarriesEveryNonEmptyFieldAndNoEmptyList) {
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    harness.RunInIdentityQueue([&] {
        identity->mid = "MID";
        identity->user_identifier = "VID";
        identity->advertising_identifier = "ADID";
        identity->push_identifier = "PUSH";
        identity->blob = "BLOB";
        identity->location_hint = "9";
        identity->last_sync = std::chrono::seconds(1700000000);
        identity->customer_ids = {
            std::make_shared<VisitorId>("d_cid_ic", "crm", "c-1", VisitorIdAuthenticationState::AUTHENTICATED)};
    });
    std::shared_ptr<EventData> full;
    harness.RunInIdentityQueue([&] { full = identity->PackageEventData(); });
    EXPECT_EQ(VelmoraTest::KeysOf(full),
              (std::vector<std::string>{"advertisingidentifier", "blob", "lastsync", "locationhint", "mid",
                                        "pushidentifier", "vid", "visitoridslist"}));
    EXPECT_EQ(full->OptString("mid", ""), "MID");
    EXPECT_EQ(full->OptString("vid", ""), "VID");
    EXPECT_EQ(full->OptString("advertisingidentifier", ""), "ADID");
    EXPECT_EQ(full->OptString("pushidentifier", ""), "PUSH");
    EXPECT_EQ(full->OptString("blob", ""), "BLOB");
    EXPECT_EQ(full->OptString("locationhint", ""), "9");
    EXPECT_EQ(full->OptLong("lastsync", 0), 1700000000);
    auto ids = full->GetTypedVector<VisitorId>("visitoridslist");
    ASSERT_TRUE(ids.HasValue());
    ASSERT_EQ(ids.Value().size(), 1u);
    EXPECT_EQ(ids.Value()[0]->id_type, "crm");
    EXPECT_EQ(ids.Value()[0]->id, "c-1");
    EXPECT_EQ(ids.Value()[0]->authentication_state, VisitorIdAuthenticationState::AUTHENTICATED);

    std::shared_ptr<EventData> without_ids;
    std::shared_ptr<EventData> again;
    harness.RunInIdentityQueue([&] {
        identity->customer_ids.clear();
        without_ids = identity->PackageEventData();
        again = identity->PackageEventData();
    });
    EXPECT_FALSE(without_ids->ContainsKey("visitoridslist"));
    EXPECT_NE(without_ids, again);
}

TEST(IdentityEventQueueTest, NullEventAtTheHeadIsDropped) {
    LogCapture log;
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    harness.RunInIdentityQueue([&] {
        EXPECT_TRUE(identity->ProcessEvent(nullptr, std::make_shared<ConfigurationSharedStateIdentity>(nullptr)));
    });
    EXPECT_TRUE(log.Contains("Null event."));
    // A null event never enters the queue.
    identity->HandleIdentityRequest(nullptr);
    harness.RunInIdentityQueue([&] { EXPECT_TRUE(identity->event_queue.empty()); });
}

TEST(IdentityEventQueueTest, ClearingAtOptOutAnswersAllButUrlRequestsAndKeepsTheirOrder) {
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    auto url_first =
        Request(EventType::IDENTITY, EventSource::REQUEST_IDENTITY, MakeData({{"baseurl", "https://one.example"}}));
    auto sync = Request(EventType::IDENTITY, EventSource::REQUEST_IDENTITY, SyncData());
    auto vid = Request(EventType::IDENTITY, EventSource::REQUEST_IDENTITY, MakeData({{"vid", "user"}}));
    auto url_second =
        Request(EventType::IDENTITY, EventSource::REQUEST_IDENTITY, MakeData({{"baseurl", "https://two.example"}}));
    auto plain = Request(EventType::IDENTITY, EventSource::REQUEST_IDENTITY, MakeData());

    harness.RunInIdentityQueue([&] {
        identity->mid = "";
        identity->event_queue = {url_first, sync, vid, url_second, plain};
        identity->ClearEventsQueue();
        ASSERT_EQ(identity->event_queue.size(), 2u);
        EXPECT_EQ(identity->event_queue[0], url_first);
        EXPECT_EQ(identity->event_queue[1], url_second);
        identity->event_queue.clear();
    });
    for (const auto& answered : {sync, vid, plain}) {
        auto response = harness.WaitForResponse(answered->GetResponsePairID());
        ASSERT_NE(response, nullptr);
        EXPECT_EQ(response->GetName(), "IDENTITY_RESPONSE");
        EXPECT_TRUE(response->GetData()->ContainsKey("lastsync"));
    }
    VelmoraTest::Settle(harness);
    EXPECT_TRUE(VelmoraTest::ResponsesTo(harness, url_first->GetResponsePairID()).empty());
    EXPECT_TRUE(VelmoraTest::ResponsesTo(harness, url_second->GetResponsePairID()).empty());
}
