#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "EventBuilder.h"
#include "EventData.h"
#include "EventSource.h"
#include "EventType.h"
#include "Identity.h"
#include "IdentityHarness.h"
#include "IdentitySyncTestSupport.h"
#include "LogCapture.h"
#include "TestIdentityServer.h"
#include "TimeUtils.h"
#include "Variant.h"
#include "VisitorId.h"
#include "WaitFor.h"

using namespace VelmoraMobile;
using VelmoraTest::CountIdentityLines;
using VelmoraTest::CryptoWithUuid;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;
using VelmoraTest::MakeConfig;

namespace {

using StringMap = std::map<std::string, std::string>;
using Config = std::shared_ptr<ConfigurationSharedStateIdentity>;

const std::string ORG = "1234ABCD5678EFGH";
// What the fixed UUID source below turns into.
const uint8_t UUID_BYTES[16] = {0, 0, 0, 0, 0, 0, 0, 1, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
const std::string FIXED_MID = "00000000000000000010000000000000000001";

const std::string NOTHING_NEW = "Ignoring ID sync because nothing new to sync after the last sync.";
const std::string CANNOT_SYNC = "Ignoring ID Sync due to privacy status opt out OR missing OrgID.";

class IdentitySyncTest : public ::testing::Test {
protected:
    void SetUp() override {
        harness.RegisterIdentity();
        harness.services->SetCryptoService(CryptoWithUuid(UUID_BYTES));
    }

    // A sync request as the queue hands it over, numbered after every state made so far.
    std::shared_ptr<Event> SyncEvent(const std::shared_ptr<EventData>& data) {
        return EventBuilder("sync", EventType::IDENTITY, EventSource::REQUEST_IDENTITY)
            .SetData(data)
            .SetEventNumber(next_event_number++)
            .Build();
    }

    static std::shared_ptr<EventData> SyncData(const StringMap& identifiers = {}, int32_t state = 0) {
        auto data = std::make_shared<EventData>();
        data->PutBoolean("issyncevent", true);
        if (!identifiers.empty()) data->PutStringMap("visitoridentifiers", identifiers);
        data->PutInteger("authenticationstate", state);
        return data;
    }

    // Runs HandleSyncIdentifiers the way the event queue does, inside the module's queue.
    bool Sync(const std::shared_ptr<Event>& event, const Config& config) {
        bool result = false;
        harness.RunInIdentityQueue([&] { result = harness.identity->HandleSyncIdentifiers(event, config); });
        return result;
    }

    // ShouldSync with the last sync `seconds_ago`; retried until the clock did not tick meanwhile.
    bool ShouldSyncAfter(int64_t seconds_ago, const StringMap& identifiers, const StringMap& dpids, bool force,
                         const Config& config) {
        bool result = false;
        bool steady = false;
        while (!steady) {
            harness.RunInIdentityQueue([&] {
                int64_t before = TimeUtils::GetUnixTimeInSeconds();
                harness.identity->last_sync = std::chrono::seconds(before - seconds_ago);
                result = harness.identity->ShouldSync(identifiers, dpids, force, config);
                steady = before == TimeUtils::GetUnixTimeInSeconds();
            });
        }
        return result;
    }

    void SetFields(const std::function<void(Identity&)>& change) {
        harness.RunInIdentityQueue([&] { change(*harness.identity); });
    }

    template <typename T>
    T Read(const std::function<T(Identity&)>& read) {
        T value{};
        harness.RunInIdentityQueue([&] { value = read(*harness.identity); });
        return value;
    }

    std::shared_ptr<DataStoreInterface> Store() {
        return harness.services->GetLocalStorageService()->GetDataStore("visitorIDServiceDataStore");
    }

    size_t DebugLines(const LogCapture& capture, const std::string& message) {
        return CountIdentityLines(capture, LoggingMode::DEBUG_LOG, message);
    }

    IdentityHarness harness;
    int32_t next_event_number = 100;
};

}  // namespace

TEST_F(IdentitySyncTest, TimeToLiveIsComparedStrictly) {
    auto config = MakeConfig(ORG);
    SetFields([](Identity& identity) {
        identity.mid = "m";
        identity.ttl = std::chrono::seconds(600);
    });
    EXPECT_FALSE(ShouldSyncAfter(600, {}, {}, false, config));
    EXPECT_TRUE(ShouldSyncAfter(601, {}, {}, false, config));
    EXPECT_FALSE(ShouldSyncAfter(0, {}, {}, false, config));
}

TEST_F(IdentitySyncTest, AnythingNewMakesASyncBeforeTheTimeToLive) {
    auto config = MakeConfig(ORG);
    SetFields([](Identity& identity) {
        identity.mid = "m";
        identity.ttl = std::chrono::seconds(600);
    });
    EXPECT_TRUE(ShouldSyncAfter(0, {{"crm", "abc"}}, {}, false, config));
    EXPECT_TRUE(ShouldSyncAfter(0, {}, {{"20920", ""}}, false, config));
    EXPECT_TRUE(ShouldSyncAfter(0, {}, {}, true, config));
    EXPECT_EQ(Read<std::string>([](Identity& identity) { return identity.mid; }), "m");
}

TEST_F(IdentitySyncTest, MissingMidIsMadeEvenWhenTheConfigurationMayNotSync) {
    LogCapture capture(LoggingMode::DEBUG_LOG);
    SetFields([](Identity& identity) {
        identity.mid.clear();
        identity.ttl = std::chrono::seconds(600);
    });
    EXPECT_FALSE(ShouldSyncAfter(0, {}, {}, false, MakeConfig("")));
    EXPECT_EQ(DebugLines(capture, CANNOT_SYNC), 1u);
    EXPECT_EQ(Read<std::string>([](Identity& identity) { return identity.mid; }), FIXED_MID);

    // With a usable configuration the first request ever syncs.
    SetFields([](Identity& identity) { identity.mid.clear(); });
    EXPECT_TRUE(ShouldSyncAfter(0, {}, {}, false, MakeConfig(ORG)));
    EXPECT_EQ(Read<std::string>([](Identity& identity) { return identity.mid; }), FIXED_MID);

    // Opted out with something new: the MID is there, the answer is still no.
    capture.Clear();
    EXPECT_FALSE(ShouldSyncAfter(0, {{"crm", "x"}}, {}, false, MakeConfig(ORG, "identity.example", true, "optedout")));
    EXPECT_EQ(DebugLines(capture, CANNOT_SYNC), 1u);
}

TEST_F(IdentitySyncTest, AdvertisingIdentifierHandling) {
    auto request = [](const std::string& ad_id, const StringMap& identifiers) {
        auto data = std::make_shared<EventData>();
        data->PutStringMap("visitoridentifiers", identifiers);
        data->PutString("advertisingidentifier", ad_id);
        return data;
    };
    auto enabled = MakeConfig(ORG, "identity.example", true, "optedin", true);
    auto disabled = MakeConfig(ORG, "identity.example", true, "optedin", false);

    StringMap result;
    std::string stored;
    auto extract = [&](const std::shared_ptr<EventData>& data, const Config& config) {
        harness.RunInIdentityQueue([&] {
            result = harness.identity->ExtractIdentifiers(data, config);
            stored = harness.identity->advertising_identifier;
        });
    };

    // A new id replaces the request's own entry of that type and is kept.
    SetFields([](Identity& identity) { identity.advertising_identifier = "OLD"; });
    extract(request("NEW", {{"crm", "abc"}, {"DSID_20915", "from-map"}}), enabled);
    EXPECT_EQ(result, (StringMap{{"crm", "abc"}, {"DSID_20915", "NEW"}}));
    EXPECT_EQ(stored, "NEW");
    EXPECT_EQ(Store()->GetString("VELMORAMOBILE_ADVERTISING_IDENTIFIER", ""), "NEW");

    // The same id again adds nothing.
    extract(request("NEW", {{"crm", "abc"}}), enabled);
    EXPECT_EQ(result, (StringMap{{"crm", "abc"}}));
    EXPECT_EQ(stored, "NEW");

    // An empty id is a change: sent empty, stored one cleared.
    extract(request("", {}), enabled);
    EXPECT_EQ(result, (StringMap{{"DSID_20915", ""}}));
    EXPECT_EQ(stored, "");

    // Disabled: the stored id is cleared and the new one never reaches the map.
    SetFields([](Identity& identity) { identity.advertising_identifier = "KEPT"; });
    extract(request("OTHER", {{"crm", "abc"}}), disabled);
    EXPECT_EQ(result, (StringMap{{"crm", "abc"}}));
    EXPECT_EQ(stored, "");

    // A request without the identifier map still carries the advertising id.
    auto only_ad_id = std::make_shared<EventData>();
    only_ad_id->PutString("advertisingidentifier", "AD");
    extract(only_ad_id, enabled);
    EXPECT_EQ(result, (StringMap{{"DSID_20915", "AD"}}));

    extract(nullptr, enabled);
    EXPECT_TRUE(result.empty());
    extract(std::make_shared<EventData>(), enabled);
    EXPECT_TRUE(result.empty());
}

TEST_F(IdentitySyncTest, PushIdentifierAlwaysBecomesADataProviderId) {
    StringMap dpids;
    auto extract = [&](const std::shared_ptr<EventData>& data) {
        harness.RunInIdentityQueue([&] { dpids = harness.identity->ExtractDpid(data); });
    };
    auto data = std::make_shared<EventData>();
    data->PutString("pushidentifier", "token");
    extract(data);
    EXPECT_EQ(dpids, (StringMap{{"20920", "token"}}));
    // Unchanged, it still goes out.
    extract(data);
    EXPECT_EQ(dpids, (StringMap{{"20920", "token"}}));

    auto empty_token = std::make_shared<EventData>();
    empty_token->PutString("pushidentifier", "");
    extract(empty_token);
    EXPECT_EQ(dpids, (StringMap{{"20920", ""}}));

    extract(SyncData({{"crm", "abc"}}));
    EXPECT_TRUE(dpids.empty());
    extract(nullptr);
    EXPECT_TRUE(dpids.empty());
}

TEST_F(IdentitySyncTest, OptedOutRequestIsDroppedUntouched) {
    LogCapture capture(LoggingMode::DEBUG_LOG);
    SetFields([](Identity& identity) {
        identity.mid = "m";
        identity.advertising_identifier = "AD";
        identity.customer_ids.clear();
    });
    auto data = SyncData({{"crm", "abc"}}, 1);
    data->PutString("advertisingidentifier", "NEW");
    data->PutString("pushidentifier", "token");
    auto event = SyncEvent(data);

    EXPECT_TRUE(Sync(event, MakeConfig(ORG, "identity.example", true, "optedout", true)));
    EXPECT_EQ(DebugLines(capture, "Ignoring ID Sync due to privacy status opt out."), 1u);
    EXPECT_EQ(Read<std::string>([](Identity& identity) { return identity.advertising_identifier; }), "AD");
    EXPECT_EQ(Read<std::string>([](Identity& identity) { return identity.push_identifier; }), "");
    EXPECT_EQ(Read<size_t>([](Identity& identity) { return identity.customer_ids.size(); }), 0u);
    EXPECT_EQ(harness.IdentityState(event), nullptr);
}

TEST_F(IdentitySyncTest, NoOrgIdAnywhereKeepsTheEventWaiting) {
    LogCapture capture(LoggingMode::VERBOSE_LOG);
    SetFields([](Identity& identity) {
        identity.latest_valid_config = nullptr;
        identity.mid.clear();
    });
    auto event = SyncEvent(SyncData({{"crm", "abc"}}));
    EXPECT_FALSE(Sync(event, MakeConfig("")));
    EXPECT_FALSE(capture.ContainsFragment("Ignoring ID"));
    EXPECT_EQ(Read<std::string>([](Identity& identity) { return identity.mid; }), "");
    EXPECT_EQ(Read<size_t>([](Identity& identity) { return identity.customer_ids.size(); }), 0u);
    EXPECT_EQ(harness.IdentityState(event), nullptr);
}

TEST_F(IdentitySyncTest, OptedOutLatestConfigurationHasItsOwnMessage) {
    LogCapture capture(LoggingMode::DEBUG_LOG);
    SetFields([](Identity& identity) {
        identity.latest_valid_config = MakeConfig(ORG, "identity.example", true, "optedout");
    });
    auto event = SyncEvent(SyncData({{"crm", "abc"}}));
    EXPECT_TRUE(Sync(event, MakeConfig("")));
    EXPECT_EQ(DebugLines(capture, "Ignoring ID Sync due to privacy status opt out!"), 1u);
    EXPECT_EQ(DebugLines(capture, "Ignoring ID Sync due to privacy status opt out."), 0u);
    EXPECT_EQ(harness.IdentityState(event), nullptr);
}

TEST_F(IdentitySyncTest, NothingNewEndsTheRequestWithoutState) {
    LogCapture capture(LoggingMode::DEBUG_LOG);
    auto config = MakeConfig(ORG, "identity.example", true, "optedin", true);
    SetFields([](Identity& identity) {
        identity.mid = "m";
        identity.advertising_identifier = "AD";
        identity.ttl = std::chrono::seconds(600);
        identity.last_sync = std::chrono::seconds(TimeUtils::GetUnixTimeInSeconds());
    });
    // An advertising id equal to the stored one is nothing new.
    auto data = SyncData();
    data->PutString("advertisingidentifier", "AD");
    auto event = SyncEvent(data);
    EXPECT_TRUE(Sync(event, config));
    EXPECT_EQ(DebugLines(capture, NOTHING_NEW), 1u);
    EXPECT_EQ(harness.IdentityState(event), nullptr);
}

TEST_F(IdentitySyncTest, SyncWithoutHitDatabaseUpdatesSavesAndPublishes) {
    int64_t earlier = TimeUtils::GetUnixTimeInSeconds() - 100;
    std::shared_ptr<IdentityHitDatabase> saved_database;
    SetFields([&](Identity& identity) {
        saved_database = identity.hit_database;
        identity.hit_database = nullptr;
        identity.mid.clear();
        identity.ttl = std::chrono::seconds(600);
        identity.last_sync = std::chrono::seconds(earlier);
        identity.customer_ids = {
            std::make_shared<VisitorId>("d_cid_ic", "loyalty", "77", VisitorIdAuthenticationState::AUTHENTICATED)};
    });

    auto data = SyncData({{"crm", "abc"}, {"loyalty", "88"}}, 2);
    data->PutString("pushidentifier", "token");
    auto event = SyncEvent(data);
    EXPECT_TRUE(Sync(event, MakeConfig(ORG)));

    std::string ids_string;
    int64_t last_sync = 0;
    std::string mid;
    harness.RunInIdentityQueue([&] {
        auto& identity = *harness.identity;
        ids_string = identity.ConvertVisitorIdObjectsVisitorIDsString(identity.customer_ids);
        last_sync = identity.last_sync.count();
        mid = identity.mid;
        identity.hit_database = saved_database;
    });
    // The merge keeps the stored entry's place and appends the new type.
    EXPECT_EQ(ids_string, "&d_cid_ic=loyalty%0188%012&d_cid_ic=crm%01abc%012");
    EXPECT_EQ(mid, FIXED_MID);
    // No hit, so the time of the last sync stays.
    EXPECT_EQ(last_sync, earlier);

    EXPECT_EQ(Store()->GetString("VELMORAMOBILE_PERSISTED_MID", ""), FIXED_MID);
    EXPECT_EQ(Store()->GetString("VELMORAMOBILE_VISITORID_IDS", ""), ids_string);

    auto state = harness.IdentityState(event);
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(state->OptString("mid", ""), FIXED_MID);
    EXPECT_EQ(state->OptLong("lastsync", -1), earlier);
    auto published = state->GetTypedVector<VisitorId>("visitoridslist");
    ASSERT_TRUE(published.HasValue());
    ASSERT_EQ(published.Value().size(), 2u);
    EXPECT_EQ(published.Value()[1]->id_type, "crm");
    // Exactly at the event's number: the event before it sees nothing.
    auto before = EventBuilder("before", EventType::IDENTITY, EventSource::REQUEST_IDENTITY)
                      .SetEventNumber(event->GetEventNumber() - 1)
                      .Build();
    EXPECT_EQ(harness.IdentityState(before), nullptr);
}

TEST_F(IdentitySyncTest, SyncQueuesOneHitBuiltFromTheLatestValidConfiguration) {
    VelmoraTestServer::TestIdentityServer server;
    int64_t earlier = TimeUtils::GetUnixTimeInSeconds() - 100;
    bool has_database = false;
    SetFields([&](Identity& identity) {
        has_database = identity.hit_database != nullptr;
        identity.latest_valid_config = MakeConfig("LATESTORG", server.Host(), false);
        identity.mid = "m1";
        identity.blob.clear();
        identity.location_hint.clear();
        identity.last_sync = std::chrono::seconds(earlier);
    });
    ASSERT_TRUE(has_database) << "the module made no hit database";

    auto data = SyncData({{"crm", "abc"}}, 1);
    data->PutString("pushidentifier", "token");
    auto event = SyncEvent(data);
    // The event's own configuration has no org id: the latest valid one is used.
    EXPECT_TRUE(Sync(event, MakeConfig("", "elsewhere.example")));

    ASSERT_TRUE(server.WaitForRequests(1, std::chrono::seconds(20)));
    auto request = server.Requests().front();
    EXPECT_EQ(request.path, "/id");
    EXPECT_EQ(request.query,
              "d_rtbd=json&d_ver=2&d_orgid=LATESTORG&d_mid=m1&d_cid_ic=crm%01abc%011&d_cid=20920%01token");

    int64_t last_sync = Read<int64_t>([](Identity& identity) { return identity.last_sync.count(); });
    EXPECT_GE(last_sync, earlier + 100);
    // The state of this sync still carries the previous time.
    auto state = harness.IdentityState(event);
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(state->OptLong("lastsync", -1), earlier);
}

TEST(IdentitySyncThroughTheBusTest, SyncRequestIsPublishedAtItsOwnNumber) {
    VelmoraTestServer::TestIdentityServer server;
    IdentityHarness harness;
    harness.RegisterIdentity();
    harness.services->SetCryptoService(CryptoWithUuid(UUID_BYTES));
    harness.ConfigureVariants({{"ondaraCloud.org", Variant::FromString(ORG)},
                               {"ondaraCloud.server", Variant::FromString(server.Host())},
                               {"global.ssl", Variant::FromBoolean(false)}});
    harness.Boot();

    auto data = std::make_shared<EventData>();
    data->PutBoolean("issyncevent", true);
    data->PutStringMap("visitoridentifiers", {{"crm", "abc"}});
    data->PutInteger("authenticationstate", 1);
    auto event = harness.DispatchIdentityRequest(data, "sync request");

    std::shared_ptr<EventData> state;
    ASSERT_TRUE(VelmoraTest::WaitFor([&] {
        state = harness.IdentityState(event);
        return state && state->ContainsKey("visitoridslist");
    }));
    EXPECT_EQ(state->OptString("mid", ""), FIXED_MID);
    auto ids = state->GetTypedVector<VisitorId>("visitoridslist");
    ASSERT_TRUE(ids.HasValue());
    ASSERT_EQ(ids.Value().size(), 1u);
    EXPECT_EQ(ids.Value()[0]->id, "abc");
    EXPECT_EQ(ids.Value()[0]->authentication_state, VisitorIdAuthenticationState::AUTHENTICATED);

    // The forced sync of the boot published before it, without customer ids.
    auto before = EventBuilder("before", EventType::IDENTITY, EventSource::REQUEST_IDENTITY)
                      .SetEventNumber(event->GetEventNumber() - 1)
                      .Build();
    auto boot_state = harness.IdentityState(before);
    ASSERT_NE(boot_state, nullptr);
    EXPECT_EQ(boot_state->OptString("mid", ""), FIXED_MID);
    EXPECT_FALSE(boot_state->ContainsKey("visitoridslist"));

    // Both syncs reach the server, the forced one first.
    ASSERT_TRUE(server.WaitForRequests(2, std::chrono::seconds(20)));
    auto requests = server.Requests();
    EXPECT_EQ(requests[0].query, "d_rtbd=json&d_ver=2&d_orgid=" + ORG + "&d_mid=" + FIXED_MID);
    EXPECT_EQ(requests[1].query.rfind("d_rtbd=json&d_ver=2&d_orgid=" + ORG + "&d_mid=" + FIXED_MID, 0), 0u);
    EXPECT_NE(requests[1].query.find("&d_cid_ic=crm%01abc%011"), std::string::npos);
}
