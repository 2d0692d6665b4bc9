#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "identity/hits/IdentityHitDatabase.h"
#include "identity/ids/VisitorId.h"
#include "identity/module/Identity.h"
#include "runtime/bus/EventBuilder.h"
#include "runtime/services/helpers/TimeUtils.h"
#include "tests/identity/ids/IdentitySyncTestSupport.h"
#include "tests/identity/support/HitRows.h"
#include "tests/identity/support/IdentityHarness.h"
#include "tests/support/LogCapture.h"

using namespace VelmoraMobile;
using VelmoraTest::FakeCryptoService;
using VelmoraTest::IdentityLines;
using VelmoraTest::LogCapture;
using VelmoraTest::MakeConfig;

namespace {

using StringMap = std::map<std::string, std::string>;
using Config = std::shared_ptr<ConfigurationSharedStateIdentity>;
using Lines = std::vector<std::string>;

const std::string ORG = "1234ABCD5678EFGH";
// What the fixed UUID source below turns into.
const uint8_t UUID_BYTES[16] = {0, 0, 0, 0, 0, 0, 0, 1, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

class IdentitySyncTest : public ::testing::Test {
protected:
    void SetUp() override {
        harness.RegisterIdentity();
        harness.services->SetCryptoService(std::make_shared<FakeCryptoService>(UUID_BYTES));
    }

    // A sync request as the queue hands it over, numbered after every state made so far.
    std::shared_ptr<Event> SyncEvent(const StringMap& identifiers = {}, int32_t state = 0) {
        auto data = std::make_shared<EventData>();
        data->PutBoolean("issyncevent", true);
        if (!identifiers.empty()) data->PutStringMap("visitoridentifiers", identifiers);
        data->PutInteger("authenticationstate", state);
        return EventBuilder("sync", EventType::IDENTITY, EventSource::REQUEST_IDENTITY)
            .SetData(data)
            .SetEventNumber(next_event_number++)
            .Build();
    }

    bool Sync(const std::shared_ptr<Event>& event, const Config& config) {
        bool result = false;
        harness.RunInIdentityQueue([&] { result = harness.identity->HandleSyncIdentifiers(event, config); });
        return result;
    }

    // ShouldSync with the last sync `seconds_ago` (and no ids); retried until the clock did not tick meanwhile.
    bool ShouldSyncAfter(int64_t seconds_ago, const StringMap& dpids, const Config& config, bool force = false) {
        bool result = false;
        for (bool steady = false; !steady;) {
            harness.RunInIdentityQueue([&] {
                int64_t before = TimeUtils::GetUnixTimeInSeconds();
                harness.identity->last_sync = std::chrono::seconds(before - seconds_ago);
                result = harness.identity->ShouldSync({}, dpids, force, config);
                steady = before == TimeUtils::GetUnixTimeInSeconds();
            });
        }
        return result;
    }

    void InQueue(const std::function<void(Identity&)>& work) {
        harness.RunInIdentityQueue([&] { work(*harness.identity); });
    }
    VelmoraTest::IdentityHarness harness;
    int32_t next_event_number = 100;
};

}  // namespace

TEST_F(IdentitySyncTest, TimeToLiveIsStrictAMissingMidIsMadeAndAdvertisingAndPushIdsAreExtracted) {
    auto config = MakeConfig(ORG);
    InQueue([](Identity& identity) {
        identity.mid = "m";
        identity.ttl = std::chrono::seconds(600);
    });
    EXPECT_FALSE(ShouldSyncAfter(600, {}, config));
    EXPECT_TRUE(ShouldSyncAfter(601, {}, config));
    EXPECT_TRUE(ShouldSyncAfter(0, {{"20920", ""}}, config));
    EXPECT_TRUE(ShouldSyncAfter(0, {}, config, true));

    // A missing MID is made even when the configuration may not sync.
    LogCapture capture(LoggingMode::DEBUG_LOG);
    InQueue([](Identity& identity) { identity.mid.clear(); });
    EXPECT_FALSE(ShouldSyncAfter(0, {}, MakeConfig("")));
    EXPECT_EQ(IdentityLines(capture, LoggingMode::DEBUG_LOG),
              Lines{"Ignoring ID Sync due to privacy status opt out OR missing OrgID."});
    InQueue([](Identity& identity) { EXPECT_EQ(identity.mid, "00000000000000000010000000000000000001"); });

    // Advertising and push identifiers taken from a request.
    StringMap result;
    auto extract = [&](const std::string& ad_id, const StringMap& identifiers, bool ad_id_enabled) {
        auto data = SyncEvent(identifiers)->GetData();
        data->PutString("advertisingidentifier", ad_id);
        auto config = MakeConfig(ORG, "identity.example", true, "optedin", ad_id_enabled);
        InQueue([&](Identity& identity) { result = identity.ExtractIdentifiers(data, config); });
        return result;
    };
    // A new id replaces the request's own entry of that type; the same id again adds nothing.
    EXPECT_EQ(extract("NEW", {{"crm", "abc"}, {"DSID_20915", "from-map"}}, true),
              (StringMap{{"crm", "abc"}, {"DSID_20915", "NEW"}}));
    EXPECT_EQ(extract("NEW", {{"crm", "abc"}}, true), (StringMap{{"crm", "abc"}}));
    // Emptied is a change too, and a request may carry the advertising id alone.
    EXPECT_EQ(extract("", {}, true), (StringMap{{"DSID_20915", ""}}));
    EXPECT_EQ(extract("AGAIN", {}, true), (StringMap{{"DSID_20915", "AGAIN"}}));
    // Disabled: the stored id is cleared and the new one never reaches the map.
    EXPECT_EQ(extract("OTHER", {{"crm", "abc"}}, false), (StringMap{{"crm", "abc"}}));
    InQueue([](Identity& identity) { EXPECT_EQ(identity.advertising_identifier, ""); });

    // The push token always goes out as a data provider id, even unchanged or empty.
    for (const std::string token : {"token", "token", ""}) {
        auto data = SyncEvent()->GetData();
        data->PutString("pushidentifier", token);
        InQueue([&](Identity& identity) { result = identity.ExtractDpid(data); });
        EXPECT_EQ(result, (StringMap{{"20920", token}}));
    }
}

TEST_F(IdentitySyncTest, WithNoOrgYetASyncWaitsUnlessOptedOutABorrowedOptedOutOneOrNothingNewSkipsItStateless) {
    LogCapture capture(LoggingMode::DEBUG_LOG);
    EXPECT_FALSE(Sync(SyncEvent({{"crm", "abc"}}), MakeConfig("")));
    EXPECT_TRUE(Sync(SyncEvent({{"crm", "abc"}}), MakeConfig("", "identity.example", true, "optedout")));
    InQueue([](Identity& identity) {
        identity.latest_valid_config = MakeConfig(ORG, "identity.example", true, "optedout");
        identity.mid = "m1";
        identity.ttl = std::chrono::seconds(600);
        identity.last_sync = std::chrono::seconds(TimeUtils::GetUnixTimeInSeconds());
    });
    auto nothing_new = SyncEvent();
    EXPECT_TRUE(Sync(SyncEvent({{"crm", "abc"}}), MakeConfig("")));
    EXPECT_TRUE(Sync(nothing_new, MakeConfig(ORG)));
    EXPECT_EQ(
        IdentityLines(capture, LoggingMode::DEBUG_LOG),
        (Lines{"Ignoring ID Sync due to privacy status opt out.", "Ignoring ID Sync due to privacy status opt out!",
               "Ignoring ID sync because nothing new to sync after the last sync."}));
    EXPECT_EQ(harness.IdentityState(nothing_new), nullptr);
    InQueue([](Identity& identity) { EXPECT_TRUE(identity.customer_ids.empty()); });
}

TEST_F(IdentitySyncTest, AQueuedSyncSendsOnlyItsOwnIdsUnderTheChosenConfigurationAndKeepsTheMergedList) {
    // The chosen configuration's status is unknown: the rows stay in the table to be read.
    const Config latest = MakeConfig("LATESTORG", "latest.example", false, "optunknown");
    const Config own = MakeConfig("", "own.example", true, "optedin");
    InQueue([&](Identity& identity) {
        identity.hit_database->UpdatePrivacyStatus(MobilePrivacyStatus::UNKNOWN);
        identity.latest_valid_config = latest;
        identity.mid = "m1";
        identity.customer_ids = {
            std::make_shared<VisitorId>("d_cid_ic", "old", "o1", VisitorIdAuthenticationState::AUTHENTICATED)};
    });
    const int64_t before = TimeUtils::GetUnixTimeInSeconds();
    auto event = SyncEvent({{"crm", "abc"}}, 7);
    ASSERT_TRUE(Sync(event, own));
    auto rows = VelmoraTest::ReadHitRows(harness.DataDir() + "/VLBMobileIdentity.sqlite");
    ASSERT_EQ(rows.size(), 1u);
    // Only this request's ids, its state read as 0 to 2, under the chosen configuration's org, host and SSL.
    EXPECT_EQ(Lines(rows[0].begin(), rows[0].begin() + 4),
              (Lines{"http://latest.example/id?d_rtbd=json&d_ver=2&d_orgid=LATESTORG&d_mid=m1&d_cid_ic=crm%01abc%010",
                     event->GetResponsePairID(), std::to_string(event->GetEventNumber()), "0"}));
    EXPECT_NEAR(std::stoll(rows[0][4]), before, 2) << "the row keeps the request's time in seconds";
    auto state = harness.IdentityState(event);
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(state->OptLong("lastsync", -1), 0) << "published before the last sync moves";
    InQueue([&](Identity& identity) { EXPECT_GE(identity.last_sync.count(), before); });

    // Without a hit database nothing is queued, so the last sync stays where it was.
    std::shared_ptr<IdentityHitDatabase> aside;
    InQueue([&](Identity& identity) {
        identity.hit_database.swap(aside);
        identity.last_sync = std::chrono::seconds(5);
    });
    ASSERT_TRUE(Sync(SyncEvent({{"crm", "new"}}), own));
    InQueue([&](Identity& identity) {
        EXPECT_EQ(identity.last_sync.count(), 5);
        identity.hit_database.swap(aside);
    });
    // Read only now: the first state keeps the ids it was published with, though the merge has
    // since changed the "crm" record in place.
    EXPECT_EQ(VelmoraTest::DescribeIds(state->GetTypedVector<VisitorId>("visitoridslist").Value()),
              (Lines{"d_cid_ic:old:o1:1", "d_cid_ic:crm:abc:0"}));
}

// The fixed UUID source's MID is asserted where a missing MID is made.
TEST_F(IdentitySyncTest, MidHalvesAreBigEndianSignedNumbersPaddedToNineteenAndUrlWorkedExamples) {
    const uint8_t bytes[][16] = {// 0xFEFDFCFBFAF9F8F8 = -(0x0102030405060708): absolute values.
                                 {1, 2, 3, 4, 5, 6, 7, 8, 0xFE, 0xFD, 0xFC, 0xFB, 0xFA, 0xF9, 0xF8, 0xF8},
                                 // The lowest value has no absolute value and keeps its sign: 40 characters.
                                 {0x80, 0, 0, 0, 0, 0, 0, 0, 0x80, 0, 0, 0, 0, 0, 0, 0}};
    const struct {
        std::shared_ptr<CryptoServiceInterface> crypto;
        std::string mid;
        Lines warnings;
    } cases[] = {{std::make_shared<FakeCryptoService>(bytes[0]), "00726238597903828560072623859790382856", {}},
                 {std::make_shared<FakeCryptoService>(bytes[1]), "-9223372036854775808-9223372036854775808", {}},
                 {nullptr, "", {"Unable to generate mid. Crypto services is null."}},
                 {std::make_shared<FakeCryptoService>(), "", {"Unable to generate mid. UUID Interface is null."}}};
    for (const auto& c : cases) {
        LogCapture capture(LoggingMode::WARNING_LOG);
        harness.services->SetCryptoService(c.crypto);
        InQueue([&](Identity& identity) { EXPECT_EQ(identity.GenerateMID(), c.mid); });
        EXPECT_EQ(IdentityLines(capture, LoggingMode::WARNING_LOG), c.warnings);
    }
    LogCapture capture(LoggingMode::WARNING_LOG);
    EXPECT_EQ(std::make_shared<Identity>()->GenerateMID(), "");
    EXPECT_EQ(IdentityLines(capture, LoggingMode::WARNING_LOG),
              Lines{"Unable to generate mid. Platform services is null."});

    const std::string head = "://identity.example/id?d_rtbd=json&d_ver=2&d_orgid=" + ORG;
    auto build = [&](const std::string& mid, const std::string& blob, const std::string& hint,
                     const StringMap& identifiers, VisitorIdAuthenticationState state, const StringMap& dpids,
                     bool ssl) {
        std::string url;
        InQueue([&](Identity& identity) {
            identity.mid = mid;
            identity.blob = blob;
            identity.location_hint = hint;
            // Stored customer ids are never sent.
            identity.customer_ids =
                identity.GenerateCustomerIds({{"stored", "old"}}, VisitorIdAuthenticationState::UNKNOWN);
            url = identity.BuildUrlString(identity.GenerateCustomerIds(identifiers, state), dpids,
                                          MakeConfig(ORG, "identity.example", ssl));
        });
        return url;
    };
    EXPECT_EQ(build("", "", "", {{"crm", ""}}, VisitorIdAuthenticationState::UNKNOWN, {}, false),
              "http" + head + "&d_cid_ic=crm%01%010");
    // Server values go out unescaped while ids are encoded.
    EXPECT_EQ(build("m", "a+b/c=d&e", "x y", {{"e mail", "a b&c%01"}, {"crm", "abc"}},
                    VisitorIdAuthenticationState::AUTHENTICATED, {{"20920", ""}, {"1 2", "v&w"}}, true),
              "https" + head +
                  "&d_mid=m&d_blob=a+b/c=d&e&dcs_region=x y&d_cid_ic=crm%01abc%011&d_cid_ic=email%01a%20b%26c%2501%011"
                  "&d_cid=1%202%01v%26w&d_cid=20920%01");
    // Without a configuration the default server is used.
    EXPECT_EQ(std::make_shared<Identity>()->BuildUrlString({}, {}, nullptr),
              "https://id.velmora.net/id?d_rtbd=json&d_ver=2&d_orgid=");
}
