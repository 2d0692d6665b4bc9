#include "tests/identity/state/IdentityStateTestSupport.h"
#include "tests/identity/support/IdentityCoreTestSupport.h"
#include "tests/support/LogCapture.h"
using namespace VelmoraMobile;
using namespace VelmoraTest;

namespace {

const std::string KEY_PUSH_DIGEST = "VELMORAMOBILE_PUSH_IDENTIFIER";
const std::string KEY_FLAG = "VELMORAMOBILE_PUSH_ENABLED";
const std::string MATCH_LINE = "Provided push token matches existing push token.  Ignoring.";
// The keys of the text fields, which are removed rather than stored empty.
const std::vector<std::string> TEXT_KEYS = {
    "VELMORAMOBILE_VISITORID_IDS",      "VELMORAMOBILE_PERSISTED_MID",          "VELMORAMOBILE_VISITOR_ID",
    "VELMORAMOBILE_PERSISTED_MID_HINT", "VELMORAMOBILE_ADVERTISING_IDENTIFIER", "VELMORAMOBILE_PERSISTED_MID_BLOB"};

std::string Digest(IdentityHarness& harness, const std::string& token) {
    return harness.services->GetCryptoService()->GetDigest(token);
}

void UpdatePush(IdentityHarness& harness, const std::string& token) {
    harness.RunInIdentityQueue([&] { harness.identity->UpdatePushIdentifier(token); });
}

// The data of every push hit so far.
std::string PushHits(IdentityHarness& harness) {
    Settle(harness);
    std::string hits;
    for (const auto& event : harness.Events(EventType::ANALYTICS, EventSource::REQUEST_CONTENT)) {
        hits += StringUtils::ToString(*event->GetData());
    }
    return hits;
}

}  // namespace

TEST(IdentityPersistenceTest, StateSurvivesANewHubEmptyFieldsRemoveTheirKeysWrongTypesLoadAsDefaults) {
    TempDir dir;
    {
        IdentityHarness first(dir.Path());
        first.RegisterIdentity();
        FillIdentity(first);
    }
    {
        // The push token is not restored (only its digest is stored).
        IdentityHarness second(dir.Path());
        second.RegisterIdentity();
        EXPECT_EQ(Fields(second), STATE_MID +
                                      "|user-1|ad-id|9|blob-value||&d_cid_ic=crm%01abc%011&d_cid_ic=loyalty%0177%012"
                                      "|1800|1700000000");
        auto store = Store(second);

        second.RunInIdentityQueue([&] {
            auto& id = *second.identity;
            id.mid = id.location_hint = id.blob = id.advertising_identifier = id.user_identifier = "";
            id.customer_ids.clear();
            id.ttl = id.last_sync = std::chrono::seconds(0);
            id.SavePersistently();
        });
        for (const auto& key : TEXT_KEYS) EXPECT_FALSE(store->Contains(key)) << key;
    }
    // A ttl of zero from the server stays zero; only an absent key gives 600. A value of another
    // type reads as absent.
    IdentityHarness third(dir.Path());
    Store(third)->SetBoolean("VELMORAMOBILE_VISITORID_SYNC", true);
    third.RegisterIdentity();
    EXPECT_EQ(Fields(third), "|||||||0|0");
}

TEST(IdentityPersistenceTest, WithoutStorageTheModuleRunsOnDefaultsLogsEachAttemptAndReportsNoPush) {
    IdentityHarness harness;
    harness.services->SetLocalStorageService(nullptr);
    LogCapture capture;
    harness.RegisterIdentity();
    harness.RunInIdentityQueue([&] {
        harness.identity->mid = "kept-in-memory";
        harness.identity->SavePersistently();
    });
    UpdatePush(harness, "token-A");
    EXPECT_EQ(Fields(harness), "kept-in-memory|||||||600|0");
    EXPECT_EQ(capture.Count("data storage service is null. cannot load persistent data"), 3u);
    EXPECT_EQ(capture.Count("load from persistence failed. null data store"), 1u);
    EXPECT_EQ(capture.Count("saving into persistence failed. null data store"), 1u);
    EXPECT_EQ(capture.Count("cannot update push flag without local storage service."), 1u);
    EXPECT_EQ(capture.Count(MATCH_LINE), 1u);
    EXPECT_EQ(PushHits(harness), "");

    // A module no hub registered has no platform services at all.
    capture.Clear();
    std::make_shared<Identity>()->LoadVariablesFromPersistentData();
    EXPECT_EQ(capture.Count("platform services is null. cannot load persistent data"), 1u);
    EXPECT_EQ(capture.Count("load from persistence failed. null data store"), 1u);
}

TEST(IdentityPersistenceTest, PushTokenChangesStoreTheDigestAndReportFlagChanges) {
    IdentityHarness harness;
    harness.RegisterIdentity();
    auto store = Store(harness);
    LogCapture capture(LoggingMode::DEBUG_LOG);
    UpdatePush(harness, "");  // empty on a fresh store: no flag, no hit
    EXPECT_FALSE(store->Contains(KEY_FLAG));
    UpdatePush(harness, "token-A");
    EXPECT_EQ(store->GetString(KEY_PUSH_DIGEST, ""), Digest(harness, "token-A"));

    // The same token matches the stored digest and is ignored.
    harness.RunInIdentityQueue([&] { harness.identity->push_identifier = "changed-in-memory"; });
    UpdatePush(harness, "token-A");
    EXPECT_EQ(Fields(harness), "|||||changed-in-memory||600|0");

    // A new token while the flag stands sends no hit; with the flag off it turns it on again.
    UpdatePush(harness, "token-B");
    EXPECT_EQ(Fields(harness), "|||||token-B||600|0");
    store->SetBoolean(KEY_FLAG, false);
    UpdatePush(harness, "token-C");

    // An empty token clears the identifier and reports "False"; the digest of "" replaces the old one.
    UpdatePush(harness, "");
    EXPECT_EQ(Fields(harness), "|||||||600|0");
    EXPECT_EQ(store->GetString(KEY_PUSH_DIGEST, ""), Digest(harness, ""));
    EXPECT_FALSE(store->GetBoolean(KEY_FLAG, true));
    UpdatePush(harness, "");
    EXPECT_EQ(capture.Count(MATCH_LINE), 2u);
    auto hit = [](const std::string& optin) {
        return "{action: \"Push\", contextdata: {a.push.optin: \"" + optin + "\"}, trackinternal: true}";
    };
    EXPECT_EQ(PushHits(harness), hit("True") + hit("True") + hit("False"));
}
