#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Identity.h"
#include "IdentityHarness.h"
#include "IdentityStateTestSupport.h"
#include "LogCapture.h"
#include "TempDir.h"
#include "VisitorId.h"

using namespace VelmoraMobile;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;
using VelmoraTest::TempDir;
using VelmoraTest::IdentityState::LinesAmong;
using VelmoraTest::IdentityState::Store;

namespace {

// The image keys, as they stand in the store file.
const std::string KEY_IDS = "VELMORAMOBILE_VISITORID_IDS";
const std::string KEY_MID = "VELMORAMOBILE_PERSISTED_MID";
const std::string KEY_VID = "VELMORAMOBILE_VISITOR_ID";
const std::string KEY_ADID = "VELMORAMOBILE_ADVERTISING_IDENTIFIER";
const std::string KEY_HINT = "VELMORAMOBILE_PERSISTED_MID_HINT";
const std::string KEY_BLOB = "VELMORAMOBILE_PERSISTED_MID_BLOB";
const std::string KEY_TTL = "VELMORAMOBILE_VISITORID_TTL";
const std::string KEY_SYNC = "VELMORAMOBILE_VISITORID_SYNC";
const std::string KEY_PUSH_DIGEST = "VELMORAMOBILE_PUSH_IDENTIFIER";
const std::string KEY_PUSH_FLAG = "VELMORAMOBILE_PUSH_ENABLED";

struct Snapshot {
    std::string mid, location_hint, blob, advertising_identifier, push_identifier, user_identifier;
    std::vector<std::shared_ptr<VisitorId>> customer_ids;
    int64_t ttl = -1;
    int64_t last_sync = -1;
};

Snapshot Read(IdentityHarness& harness) {
    Snapshot s;
    harness.RunInIdentityQueue([&] {
        auto& id = *harness.identity;
        s.mid = id.mid;
        s.location_hint = id.location_hint;
        s.blob = id.blob;
        s.advertising_identifier = id.advertising_identifier;
        s.push_identifier = id.push_identifier;
        s.user_identifier = id.user_identifier;
        s.customer_ids = id.customer_ids;
        s.ttl = id.ttl.count();
        s.last_sync = id.last_sync.count();
    });
    return s;
}

void FillAndSave(IdentityHarness& harness) {
    harness.RunInIdentityQueue([&] {
        auto& id = *harness.identity;
        id.mid = "01234567890123456789012345678901234567";
        id.location_hint = "9";
        id.blob = "blob-value";
        id.advertising_identifier = "ad-id";
        id.user_identifier = "user-1";
        id.customer_ids = {
            std::make_shared<VisitorId>("d_cid_ic", "crm", "abc", VisitorIdAuthenticationState::AUTHENTICATED),
            std::make_shared<VisitorId>("d_cid_ic", "loyalty", "77", VisitorIdAuthenticationState::LOGGED_OUT)};
        id.ttl = std::chrono::seconds(1800);
        id.last_sync = std::chrono::seconds(1700000000);
        id.SavePersistently();
    });
}

}  // namespace

TEST(IdentityPersistenceTest, StateSurvivesANewHubOnTheSameDataFolder) {
    TempDir dir;
    {
        IdentityHarness first(dir.Path());
        first.RegisterIdentity();
        FillAndSave(first);
    }
    IdentityHarness second(dir.Path());
    second.RegisterIdentity();
    Snapshot s = Read(second);
    EXPECT_EQ(s.mid, "01234567890123456789012345678901234567");
    EXPECT_EQ(s.location_hint, "9");
    EXPECT_EQ(s.blob, "blob-value");
    EXPECT_EQ(s.advertising_identifier, "ad-id");
    EXPECT_EQ(s.user_identifier, "user-1");
    EXPECT_EQ(s.ttl, 1800);
    EXPECT_EQ(s.last_sync, 1700000000);
    ASSERT_EQ(s.customer_ids.size(), 2u);
    EXPECT_EQ(s.customer_ids[0]->id_type, "crm");
    EXPECT_EQ(s.customer_ids[0]->id, "abc");
    EXPECT_EQ(s.customer_ids[0]->authentication_state, VisitorIdAuthenticationState::AUTHENTICATED);
    EXPECT_EQ(s.customer_ids[1]->id_type, "loyalty");
    EXPECT_EQ(s.customer_ids[1]->id, "77");
    EXPECT_EQ(s.customer_ids[1]->authentication_state, VisitorIdAuthenticationState::LOGGED_OUT);
    // Values are stored in the clear, exactly as the fields held them.
    auto store = Store(second);
    EXPECT_EQ(store->GetString(KEY_MID, ""), "01234567890123456789012345678901234567");
    EXPECT_EQ(store->GetString(KEY_IDS, ""), "&d_cid_ic=crm%01abc%011&d_cid_ic=loyalty%0177%012");
}

TEST(IdentityPersistenceTest, FirstStartOnAnEmptyStoreGivesDefaultsAndWritesNothing) {
    IdentityHarness harness;
    harness.RegisterIdentity();
    Snapshot s = Read(harness);
    EXPECT_EQ(s.mid, "");
    EXPECT_TRUE(s.customer_ids.empty());
    EXPECT_EQ(s.ttl, 600);
    EXPECT_EQ(s.last_sync, 0);
    auto store = Store(harness);
    for (const auto& key : {KEY_IDS, KEY_MID, KEY_VID, KEY_ADID, KEY_HINT, KEY_BLOB, KEY_TTL, KEY_SYNC}) {
        EXPECT_FALSE(store->Contains(key)) << key;
    }
}

TEST(IdentityPersistenceTest, EmptyFieldsRemoveTheirKeysAndNumbersAreAlwaysWritten) {
    TempDir dir;
    {
        IdentityHarness first(dir.Path());
        first.RegisterIdentity();
        FillAndSave(first);
        auto store = Store(first);
        for (const auto& key : {KEY_IDS, KEY_MID, KEY_VID, KEY_ADID, KEY_HINT, KEY_BLOB}) {
            ASSERT_TRUE(store->Contains(key)) << key;
        }
        first.RunInIdentityQueue([&] {
            auto& id = *first.identity;
            id.mid.clear();
            id.location_hint.clear();
            id.blob.clear();
            id.advertising_identifier.clear();
            id.user_identifier.clear();
            id.customer_ids.clear();
            id.ttl = std::chrono::seconds(0);
            id.last_sync = std::chrono::seconds(0);
            id.SavePersistently();
        });
        // A stored "" never occurs: the keys are gone, the numbers stay, zero included.
        for (const auto& key : {KEY_IDS, KEY_MID, KEY_VID, KEY_ADID, KEY_HINT, KEY_BLOB}) {
            EXPECT_FALSE(store->Contains(key)) << key;
        }
        EXPECT_EQ(store->GetLong(KEY_TTL, -1), 0);
        EXPECT_EQ(store->GetLong(KEY_SYNC, -1), 0);
    }
    IdentityHarness second(dir.Path());
    second.RegisterIdentity();
    Snapshot s = Read(second);
    EXPECT_EQ(s.mid, "");
    EXPECT_EQ(s.user_identifier, "");
    EXPECT_TRUE(s.customer_ids.empty());
    // A ttl of zero from the server is kept as zero; only an absent key gives 600.
    EXPECT_EQ(s.ttl, 0);
    EXPECT_EQ(s.last_sync, 0);
}

TEST(IdentityPersistenceTest, PushIdentifierIsNotRestoredButItsDigestAndFlagAre) {
    TempDir dir;
    std::string digest;
    {
        IdentityHarness first(dir.Path());
        first.RegisterIdentity();
        first.RunInIdentityQueue([&] { first.identity->UpdatePushIdentifier("push-token-1"); });
        EXPECT_EQ(Read(first).push_identifier, "push-token-1");
        digest = first.services->GetCryptoService()->GetDigest("push-token-1");
    }
    IdentityHarness second(dir.Path());
    second.RegisterIdentity();
    EXPECT_EQ(Read(second).push_identifier, "");
    auto store = Store(second);
    EXPECT_EQ(store->GetString(KEY_PUSH_DIGEST, ""), digest);
    EXPECT_TRUE(store->GetBoolean(KEY_PUSH_FLAG, false));

    // The same token again matches the stored digest: it is ignored and the field stays empty.
    LogCapture capture;
    second.RunInIdentityQueue([&] { second.identity->UpdatePushIdentifier("push-token-1"); });
    EXPECT_TRUE(capture.Contains("Provided push token matches existing push token.  Ignoring."));
    EXPECT_EQ(Read(second).push_identifier, "");
}

TEST(IdentityPersistenceTest, ForeignValuesInTheStoreLoadAsDefaults) {
    IdentityHarness harness;
    auto store = Store(harness);
    // Wrong types under every image key, and a value under the reserved organisation key.
    store->SetLong(KEY_MID, 42);
    store->SetBoolean(KEY_BLOB, true);
    store->SetLong(KEY_HINT, 7);
    store->SetLong(KEY_VID, 1);
    store->SetBoolean(KEY_ADID, false);
    store->SetString(KEY_TTL, "1800");
    store->SetBoolean(KEY_SYNC, true);
    store->SetLong(KEY_IDS, 3);
    store->SetString("VELMORAMOBILE_PERSISTED_ORG_ID", "FOREIGN@Org");
    harness.RegisterIdentity();

    Snapshot s = Read(harness);
    EXPECT_EQ(s.mid, "");
    EXPECT_EQ(s.blob, "");
    EXPECT_EQ(s.location_hint, "");
    EXPECT_EQ(s.user_identifier, "");
    EXPECT_EQ(s.advertising_identifier, "");
    EXPECT_EQ(s.ttl, 600);
    EXPECT_EQ(s.last_sync, 0);
    EXPECT_TRUE(s.customer_ids.empty());

    // A stored string the reader cannot use gives no ids and costs nothing else.
    store->SetString(KEY_IDS, "&&=&d_cid_ic=&nonsense");
    store->SetString(KEY_MID, "mid-after");
    harness.RunInIdentityQueue([&] { harness.identity->LoadVariablesFromPersistentData(); });
    s = Read(harness);
    EXPECT_TRUE(s.customer_ids.empty());
    EXPECT_EQ(s.mid, "mid-after");

    // A push digest of the wrong type reads as none, so a token is taken as new.
    store->SetLong(KEY_PUSH_DIGEST, 5);
    harness.RunInIdentityQueue([&] { harness.identity->UpdatePushIdentifier("token"); });
    EXPECT_EQ(Read(harness).push_identifier, "token");
    EXPECT_EQ(store->GetString(KEY_PUSH_DIGEST, ""), harness.services->GetCryptoService()->GetDigest("token"));
}

TEST(IdentityPersistenceTest, WithoutLocalStorageTheModuleRunsOnDefaultsFromMemory) {
    IdentityHarness harness;
    harness.services->SetLocalStorageService(nullptr);
    const std::vector<std::string> load_lines = {"data storage service is null. cannot load persistent data",
                                                 "load from persistence failed. null data store"};
    LogCapture capture;
    harness.RegisterIdentity();
    EXPECT_EQ(LinesAmong(capture, load_lines), load_lines);

    Snapshot s = Read(harness);
    EXPECT_EQ(s.mid, "");
    EXPECT_EQ(s.ttl, 600);
    EXPECT_EQ(s.last_sync, 0);

    capture.Clear();
    harness.RunInIdentityQueue([&] {
        harness.identity->mid = "kept-in-memory";
        harness.identity->SavePersistently();
    });
    EXPECT_EQ(LinesAmong(capture, {"data storage service is null. cannot load persistent data",
                                   "saving into persistence failed. null data store"}),
              (std::vector<std::string>{"data storage service is null. cannot load persistent data",
                                        "saving into persistence failed. null data store"}));
    EXPECT_EQ(Read(harness).mid, "kept-in-memory");

    // The defaults also clear what only memory holds, but leave the customer ids alone.
    harness.RunInIdentityQueue([&] {
        auto& id = *harness.identity;
        id.push_identifier = "token";
        id.customer_ids = {
            std::make_shared<VisitorId>("d_cid_ic", "crm", "abc", VisitorIdAuthenticationState::UNKNOWN)};
        id.ttl = std::chrono::seconds(5);
        id.LoadVariablesFromPersistentData();
    });
    s = Read(harness);
    EXPECT_EQ(s.mid, "");
    EXPECT_EQ(s.push_identifier, "");
    EXPECT_EQ(s.ttl, 600);
    EXPECT_EQ(s.customer_ids.size(), 1u);
}

TEST(IdentityPersistenceTest, WithoutPlatformServicesThereIsNoStore) {
    // A module the hub never registered has no platform services.
    auto identity = std::make_shared<Identity>();
    LogCapture capture;
    EXPECT_EQ(identity->GetIdentityDataStore(), nullptr);
    EXPECT_TRUE(capture.Contains("platform services is null. cannot load persistent data"));
    identity->mid = "m";
    identity->LoadVariablesFromPersistentData();
    EXPECT_EQ(identity->mid, "");
    EXPECT_EQ(identity->ttl.count(), 600);
    EXPECT_TRUE(capture.Contains("load from persistence failed. null data store"));
}
