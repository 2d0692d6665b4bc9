#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "ConfigurationSharedStateIdentity.h"
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
using VelmoraTest::IdentityState::LinesAmong;
using VelmoraTest::IdentityState::PushHits;
using VelmoraTest::IdentityState::Store;
using VelmoraTestServer::TestIdentityServer;

namespace {

const std::string ORG = "1234ABCD5678EFGH@VelmoraOrg";
const std::string MID = "01234567890123456789012345678901234567";
const std::string URL_EMPTY = "Could not send opt-out request as url is empty.";
const std::string NO_NETWORK = "Could not send opt-out request as network service is unavailable.";

std::shared_ptr<ConfigurationSharedStateIdentity> Config(const Variant::VariantMap& values) {
    auto data = std::make_shared<EventData>();
    for (const auto& entry : values) data->PutVariant(entry.first, entry.second);
    return std::make_shared<ConfigurationSharedStateIdentity>(data);
}

// Rows of the hit table in the module's SQLite file; -1 when the table cannot be read.
int64_t QueuedHits(const std::string& data_dir) {
    sqlite3* db = nullptr;
    int64_t count = -1;
    if (sqlite3_open_v2((data_dir + "/VLBMobileIdentity.sqlite").c_str(), &db, SQLITE_OPEN_READONLY, nullptr) ==
        SQLITE_OK) {
        sqlite3_busy_timeout(db, 5000);
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(db, "SELECT COUNT(*) FROM IDENTITY_REQUESTS", -1, &statement, nullptr) == SQLITE_OK &&
            sqlite3_step(statement) == SQLITE_ROW) {
            count = sqlite3_column_int64(statement, 0);
        }
        sqlite3_finalize(statement);
    }
    sqlite3_close(db);
    return count;
}

std::shared_ptr<EventData> PrivacyData(const std::string& status) {
    auto data = std::make_shared<EventData>();
    data->PutString("global.privacy", status);
    return data;
}

// A started module configured against the local identity server over plain HTTP, holding a
// full identity, an analytics-sync mark and a push token on record.
class OptOutFixture : public ::testing::Test {
protected:
    void SetUp() override {
        harness.RegisterIdentity();
        harness.ConfigureVariants({{"ondaraCloud.org", Variant::FromString(ORG)},
                                   {"ondaraCloud.server", Variant::FromString(server.Host())},
                                   {"global.ssl", Variant::FromBoolean(false)}});
        harness.RunInIdentityQueue([&] {
            auto& id = *harness.identity;
            id.mid = MID;
            id.user_identifier = "user-1";
            id.advertising_identifier = "ad-id";
            id.blob = "blob";
            id.location_hint = "9";
            id.customer_ids = {
                std::make_shared<VisitorId>("d_cid_ic", "crm", "abc", VisitorIdAuthenticationState::AUTHENTICATED)};
            id.ttl = std::chrono::seconds(1800);
            id.last_sync = std::chrono::seconds(1700000000);
            id.SavePersistently();
            id.UpdatePushIdentifier("push-token");
        });
        Store(harness)->SetBoolean("VELMORAMOBILE_AID_SYNCED", true);
    }

    // Opts out through the configuration and waits until the module has saved the wipe.
    void OptOut(const Variant::VariantMap& extra = {}) {
        Variant::VariantMap values = extra;
        values["global.privacy"] = Variant::FromString("optedout");
        harness.ConfigureVariants(values);
        auto store = Store(harness);
        ASSERT_TRUE(WaitFor([&] { return !store->Contains("VELMORAMOBILE_PERSISTED_MID"); }));
        harness.Drain();
    }

    TestIdentityServer server;
    IdentityHarness harness;
};

}  // namespace

TEST(IdentityOptOutUrlTest, BuildsTheOptOutUrlFromTheConfigurationAndTheMid) {
    auto owner = std::make_shared<Identity>();
    Identity& identity = *owner;
    identity.mid = MID;
    auto config = Config({{"ondaraCloud.org", Variant::FromString("1234ABCD5678EFGH")},
                          {"ondaraCloud.server", Variant::FromString("identity.example")}});
    EXPECT_EQ(identity.BuildOptOutUrlString(config),
              "https://identity.example/veloptout.jpg?d_mid=01234567890123456789012345678901234567&d_orgid="
              "1234ABCD5678EFGH");

    auto plain = Config({{"ondaraCloud.org", Variant::FromString("ORG")},
                         {"ondaraCloud.server", Variant::FromString("127.0.0.1:8080")},
                         {"global.ssl", Variant::FromBoolean(false)}});
    EXPECT_EQ(identity.BuildOptOutUrlString(plain),
              "http://127.0.0.1:8080/veloptout.jpg?d_mid=" + MID + "&d_orgid=ORG");

    // Without a configured server the default identity server is used.
    auto default_server = Config({{"ondaraCloud.org", Variant::FromString("ORG")}});
    EXPECT_EQ(identity.BuildOptOutUrlString(default_server),
              "https://id.velmora.net/veloptout.jpg?d_mid=" + MID + "&d_orgid=ORG");

    EXPECT_EQ(identity.BuildOptOutUrlString(nullptr), "");
    EXPECT_EQ(identity.BuildOptOutUrlString(Config({})), "");
    identity.mid.clear();
    EXPECT_EQ(identity.BuildOptOutUrlString(config), "");
}

TEST(IdentityOptOutUrlTest, WithoutPlatformServicesNoRequestLeaves) {
    auto owner = std::make_shared<Identity>();
    Identity& identity = *owner;
    identity.mid = MID;
    LogCapture capture;
    identity.SendOptOutHit(Config({{"ondaraCloud.org", Variant::FromString("ORG")}}));
    EXPECT_EQ(LinesAmong(capture, {"Platform services are not available", NO_NETWORK}),
              (std::vector<std::string>{"Platform services are not available", NO_NETWORK}));
    std::shared_ptr<NetworkServiceInterface> service;
    EXPECT_FALSE(identity.GetNetworkService(service));
    EXPECT_EQ(service, nullptr);
}

TEST_F(OptOutFixture, OptOutTellsTheServerWithTheMidThenWipesEverything) {
    LogCapture capture(LoggingMode::DEBUG_LOG);
    OptOut();

    ASSERT_TRUE(server.WaitForRequests(1, std::chrono::seconds(10)));
    auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].method, "GET");
    EXPECT_EQ(requests[0].path, "/veloptout.jpg");
    EXPECT_EQ(requests[0].query, "d_mid=" + MID + "&d_orgid=" + ORG.substr(0, 16) + "%40VelmoraOrg");
    EXPECT_EQ(requests[0].params["d_mid"], MID);
    EXPECT_EQ(requests[0].params["d_orgid"], ORG);
    EXPECT_TRUE(capture.Contains("Sending opt-out request to http://" + server.Host() + "/veloptout.jpg?d_mid=" + MID +
                                 "&d_orgid=1234ABCD5678EFGH%40VelmoraOrg."));

    harness.RunInIdentityQueue([&] {
        auto& id = *harness.identity;
        EXPECT_EQ(id.privacy_status, MobilePrivacyStatus::OPT_OUT);
        EXPECT_EQ(id.mid, "");
        EXPECT_EQ(id.user_identifier, "");
        EXPECT_EQ(id.advertising_identifier, "");
        EXPECT_EQ(id.blob, "");
        EXPECT_EQ(id.location_hint, "");
        EXPECT_EQ(id.push_identifier, "");
        EXPECT_TRUE(id.customer_ids.empty());
        EXPECT_EQ(id.ttl.count(), 600);
        EXPECT_EQ(id.last_sync.count(), 0);
    });

    // Of the image only the two numbers remain; the analytics mark is gone.
    auto store = Store(harness);
    for (const auto& key : {"VELMORAMOBILE_VISITORID_IDS", "VELMORAMOBILE_PERSISTED_MID", "VELMORAMOBILE_VISITOR_ID",
                            "VELMORAMOBILE_ADVERTISING_IDENTIFIER", "VELMORAMOBILE_PERSISTED_MID_HINT",
                            "VELMORAMOBILE_PERSISTED_MID_BLOB", "VELMORAMOBILE_AID_SYNCED"}) {
        EXPECT_FALSE(store->Contains(key)) << key;
    }
    // The token's digest gives way to that of the empty token, which is not empty itself.
    EXPECT_EQ(store->GetString("VELMORAMOBILE_PUSH_IDENTIFIER", ""),
              harness.services->GetCryptoService()->GetDigest(""));
    EXPECT_EQ(store->GetLong("VELMORAMOBILE_VISITORID_TTL", -1), 600);
    EXPECT_EQ(store->GetLong("VELMORAMOBILE_VISITORID_SYNC", -1), 0);
    EXPECT_FALSE(store->GetBoolean("VELMORAMOBILE_PUSH_ENABLED", true));

    // The push flag went off with the token: reported as "False" after the earlier "True".
    EventBarrier(harness);
    auto hits = PushHits(harness);
    ASSERT_EQ(hits.size(), 2u);
    EXPECT_EQ(hits[0].at("a.push.optin"), "True");
    EXPECT_EQ(hits[1].at("a.push.optin"), "False");

    // The wiped record is published under the number of the configuration event.
    auto responses = harness.Events(EventType::CONFIGURATION, EventSource::RESPONSE_CONTENT);
    ASSERT_FALSE(responses.empty());
    auto state = harness.IdentityState(responses.back());
    ASSERT_NE(state, nullptr);
    EXPECT_FALSE(state->ContainsKey("mid"));
    EXPECT_FALSE(state->ContainsKey("vid"));
    EXPECT_FALSE(state->ContainsKey("pushidentifier"));
}

TEST_F(OptOutFixture, ASecondOptOutSendsNothing) {
    OptOut();
    ASSERT_TRUE(server.WaitForRequests(1, std::chrono::seconds(10)));
    server.ClearRequests();

    LogCapture capture(LoggingMode::DEBUG_LOG);
    harness.ConfigureVariants(
        {{"global.privacy", Variant::FromString("optedout")}, {"velmora.test.change", Variant::FromString("again")}});
    ASSERT_TRUE(WaitFor([&] { return capture.Contains(URL_EMPTY); }));
    harness.Drain();
    EXPECT_FALSE(capture.ContainsFragment("Sending opt-out request"));
    EXPECT_TRUE(server.Requests().empty());
}

TEST_F(OptOutFixture, WithAnAudienceServerTheModuleSendsNoOptOutRequestButStillWipes) {
    LogCapture capture(LoggingMode::DEBUG_LOG);
    OptOut({{"audience.server", Variant::FromString("audience.example")}});
    EXPECT_FALSE(capture.ContainsFragment("Sending opt-out request"));
    EXPECT_FALSE(capture.Contains(URL_EMPTY));
    EXPECT_TRUE(server.Requests().empty());
    harness.RunInIdentityQueue([&] { EXPECT_EQ(harness.identity->mid, ""); });
}

TEST_F(OptOutFixture, WithoutANetworkServiceTheWipeStillHappens) {
    harness.services->SetNetworkService(nullptr);
    LogCapture capture(LoggingMode::DEBUG_LOG);
    OptOut();
    EXPECT_EQ(LinesAmong(capture, {"Network services are not available", NO_NETWORK}),
              (std::vector<std::string>{"Network services are not available", NO_NETWORK}));
    EXPECT_TRUE(server.Requests().empty());
    harness.RunInIdentityQueue([&] { EXPECT_EQ(harness.identity->mid, ""); });
}

TEST_F(OptOutFixture, OptingInAgainRestoresNothing) {
    OptOut();
    harness.Configure({{"global.privacy", "optedin"}});
    ASSERT_TRUE(WaitFor([&] {
        bool opted_in = false;
        harness.RunInIdentityQueue([&] { opted_in = harness.identity->privacy_status == MobilePrivacyStatus::OPT_IN; });
        return opted_in;
    }));
    harness.RunInIdentityQueue([&] {
        EXPECT_EQ(harness.identity->mid, "");
        EXPECT_TRUE(harness.identity->customer_ids.empty());
    });
    EXPECT_FALSE(Store(harness)->Contains("VELMORAMOBILE_PERSISTED_MID"));
}

TEST(IdentityPrivacyTest, OnlyAChangeToOptedOutWipes) {
    IdentityHarness harness;
    harness.RegisterIdentity();
    harness.RunInIdentityQueue([&] {
        auto& id = *harness.identity;
        id.mid = MID;
        id.user_identifier = "user-1";
        // Nothing to compare, no key, or the status already held: nothing happens.
        id.ProcessPrivacyChange(1, nullptr);
        id.ProcessPrivacyChange(1, std::make_shared<EventData>());
        auto wrong_type = std::make_shared<EventData>();
        wrong_type->PutInteger("global.privacy", 1);
        id.ProcessPrivacyChange(1, wrong_type);
        id.ProcessPrivacyChange(1, PrivacyData("optedin"));
        EXPECT_EQ(id.privacy_status, MobilePrivacyStatus::OPT_IN);
        // Unknown is a change, but undoes nothing.
        id.ProcessPrivacyChange(1, PrivacyData("optunknown"));
        EXPECT_EQ(id.privacy_status, MobilePrivacyStatus::UNKNOWN);
        EXPECT_EQ(id.mid, MID);
        EXPECT_EQ(id.user_identifier, "user-1");
    });
    EXPECT_EQ(harness.IdentityState(), nullptr);
}

TEST(IdentityPrivacyTest, WithoutAStoreTheWipeKeepsOnlyThePushIdentifier) {
    IdentityHarness harness;
    harness.RegisterIdentity();
    auto store = Store(harness);
    store->SetString("VELMORAMOBILE_PERSISTED_MID", MID);
    store->SetBoolean("VELMORAMOBILE_AID_SYNCED", true);
    harness.RunInIdentityQueue([&] { harness.identity->LoadVariablesFromPersistentData(); });
    harness.services->SetLocalStorageService(nullptr);

    LogCapture capture;
    harness.RunInIdentityQueue([&] {
        auto& id = *harness.identity;
        id.push_identifier = "token-of-this-run";
        id.blob = "blob";
        id.ProcessPrivacyChange(7, PrivacyData("optedout"));
        EXPECT_EQ(id.mid, "");
        EXPECT_EQ(id.blob, "");
        EXPECT_EQ(id.push_identifier, "token-of-this-run");
    });
    EXPECT_TRUE(capture.Contains("cannot update push flag without local storage service."));
    EXPECT_TRUE(capture.Contains("Provided push token matches existing push token.  Ignoring."));
    EXPECT_TRUE(capture.Contains("saving into persistence failed. null data store"));
    // The store itself was out of reach, so it keeps everything.
    EXPECT_EQ(store->GetString("VELMORAMOBILE_PERSISTED_MID", ""), MID);
    EXPECT_TRUE(store->Contains("VELMORAMOBILE_AID_SYNCED"));
    auto state = harness.hub->GetSharedEventState("com.velmora.module.identity", nullptr);
    ASSERT_NE(state, nullptr);
    EXPECT_FALSE(state->ContainsKey("mid"));
}

TEST(IdentityPrivacyTest, ABootThatFindsTheStatusOptedOutWipesWithoutARequest) {
    TestIdentityServer server;
    IdentityHarness harness;
    auto store = Store(harness);
    store->SetString("VELMORAMOBILE_PERSISTED_MID", MID);
    store->SetString("VELMORAMOBILE_VISITOR_ID", "user-1");
    // The configuration is opted out before the module comes: only the boot can apply it.
    harness.ConfigureVariants({{"ondaraCloud.org", Variant::FromString(ORG)},
                               {"ondaraCloud.server", Variant::FromString(server.Host())},
                               {"global.ssl", Variant::FromBoolean(false)},
                               {"global.privacy", Variant::FromString("optedout")}});
    // The response event must be gone past before the module is there to hear it.
    ASSERT_NE(harness.WaitForEvent([](const std::shared_ptr<Event>& event) {
        return event->GetEventType() == EventType::CONFIGURATION &&
               event->GetEventSource() == EventSource::RESPONSE_CONTENT &&
               event->GetData()->OptString("global.privacy", "") == "optedout";
    }),
              nullptr);
    harness.RegisterIdentity();
    harness.RunInIdentityQueue([&] { EXPECT_EQ(harness.identity->mid, MID); });

    LogCapture capture(LoggingMode::DEBUG_LOG);
    harness.Boot();
    ASSERT_TRUE(WaitFor([&] { return !store->Contains("VELMORAMOBILE_PERSISTED_MID"); }));
    harness.Drain();
    harness.RunInIdentityQueue([&] {
        EXPECT_EQ(harness.identity->privacy_status, MobilePrivacyStatus::OPT_OUT);
        EXPECT_EQ(harness.identity->mid, "");
        EXPECT_EQ(harness.identity->user_identifier, "");
    });
    EXPECT_FALSE(store->Contains("VELMORAMOBILE_VISITOR_ID"));
    EXPECT_FALSE(capture.ContainsFragment("Sending opt-out request"));
    EXPECT_TRUE(server.Requests().empty());
}

TEST(IdentityPrivacyTest, OptOutDeletesTheQueuedHits) {
    TestIdentityServer server;
    IdentityHarness harness;
    harness.RegisterIdentity();
    // Unknown holds the queue: the forced sync of the boot leaves its row unsent.
    harness.ConfigureVariants({{"ondaraCloud.org", Variant::FromString(ORG)},
                               {"ondaraCloud.server", Variant::FromString(server.Host())},
                               {"global.ssl", Variant::FromBoolean(false)},
                               {"global.privacy", Variant::FromString("optunknown")}});
    harness.Boot();
    ASSERT_TRUE(WaitFor([&] { return QueuedHits(harness.DataDir()) == 1; }));

    harness.Configure({{"global.privacy", "optedout"}});
    ASSERT_TRUE(WaitFor([&] { return QueuedHits(harness.DataDir()) == 0; }));
    // Only the opt-out request ever reached the server, carrying the MID the sync had made.
    ASSERT_TRUE(server.WaitForRequests(1, std::chrono::seconds(10)));
    harness.Drain();
    auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].path, "/veloptout.jpg");
    EXPECT_EQ(requests[0].params["d_mid"].size(), 38u);
}
