#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "identity/module/Identity.h"
#include "runtime/bus/EventSource.h"
#include "runtime/bus/EventType.h"
#include "tests/identity/state/IdentityStateTestSupport.h"
#include "tests/identity/support/IdentityCoreTestSupport.h"
#include "tests/identity/support/IdentityHarness.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"

using namespace VelmoraMobile;
using VelmoraTest::Fields;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;
using VelmoraTest::Store;
using Strings = std::vector<std::string>;

namespace {

// The messages that were logged, in order, restricted to those in `wanted`.
Strings LinesAmong(const LogCapture& capture, const Strings& wanted) {
    Strings found;
    for (const auto& line : capture.Lines()) {
        if (std::find(wanted.begin(), wanted.end(), line.message) != wanted.end()) found.push_back(line.message);
    }
    return found;
}

const std::string KEY_PUSH_DIGEST = "VELMORAMOBILE_PUSH_IDENTIFIER";
const std::string KEY_FLAG = "VELMORAMOBILE_PUSH_ENABLED";
// The keys of the text fields, which are removed rather than stored empty.
const Strings TEXT_KEYS = {
    "VELMORAMOBILE_VISITORID_IDS",      "VELMORAMOBILE_PERSISTED_MID",          "VELMORAMOBILE_VISITOR_ID",
    "VELMORAMOBILE_PERSISTED_MID_HINT", "VELMORAMOBILE_ADVERTISING_IDENTIFIER", "VELMORAMOBILE_PERSISTED_MID_BLOB"};

std::string Digest(IdentityHarness& harness, const std::string& token) {
    return harness.services->GetCryptoService()->GetDigest(token);
}

}  // namespace

TEST(IdentityPersistenceTest, StateSurvivesANewHubAndEmptyFieldsRemoveTheirKeys) {
    VelmoraTest::TempDir dir;
    {
        IdentityHarness first(dir.Path());
        first.RegisterIdentity();
        VelmoraTest::FillIdentity(first);
    }
    {
        // The push token is not restored; its digest and flag are.
        IdentityHarness second(dir.Path());
        second.RegisterIdentity();
        EXPECT_EQ(Fields(second), VelmoraTest::STATE_MID +
                                      "|user-1|ad-id|9|blob-value||&d_cid_ic=crm%01abc%011&d_cid_ic=loyalty%0177%012"
                                      "|1800|1700000000");
        auto store = Store(second);
        EXPECT_EQ(store->GetString(KEY_PUSH_DIGEST, ""), Digest(second, "push-token"));
        EXPECT_TRUE(store->GetBoolean(KEY_FLAG, false));

        second.RunInIdentityQueue([&] {
            auto& id = *second.identity;
            id.mid = id.location_hint = id.blob = id.advertising_identifier = id.user_identifier = "";
            id.customer_ids.clear();
            id.ttl = id.last_sync = std::chrono::seconds(0);
            id.SavePersistently();
        });
        for (const auto& key : TEXT_KEYS) EXPECT_FALSE(store->Contains(key)) << key;
    }
    // A ttl of zero from the server stays zero; only an absent key gives 600.
    IdentityHarness third(dir.Path());
    third.RegisterIdentity();
    EXPECT_EQ(Fields(third), "|||||||0|0");
}

TEST(IdentityPersistenceTest, ValuesOfTheWrongTypeLoadAsDefaults) {
    IdentityHarness harness;
    auto store = Store(harness);
    for (const auto& key : TEXT_KEYS) store->SetLong(key, 42);
    store->SetString("VELMORAMOBILE_VISITORID_TTL", "1800");
    store->SetBoolean("VELMORAMOBILE_VISITORID_SYNC", true);
    harness.RegisterIdentity();
    EXPECT_EQ(Fields(harness), "|||||||600|0");

    // A push digest of the wrong type reads as none, so a token is taken as new.
    store->SetLong(KEY_PUSH_DIGEST, 5);
    harness.RunInIdentityQueue([&] { harness.identity->UpdatePushIdentifier("token"); });
    EXPECT_EQ(Fields(harness), "|||||token||600|0");
}

TEST(IdentityPersistenceTest, WithoutStorageTheModuleRunsOnDefaultsAndLogsEachAttempt) {
    const std::string NO_STORAGE = "data storage service is null. cannot load persistent data";
    const std::string NO_PLATFORM = "platform services is null. cannot load persistent data";
    const std::string LOAD_FAILED = "load from persistence failed. null data store";
    const std::string SAVE_FAILED = "saving into persistence failed. null data store";
    IdentityHarness harness;
    harness.services->SetLocalStorageService(nullptr);
    LogCapture capture;
    harness.RegisterIdentity();
    harness.RunInIdentityQueue([&] {
        harness.identity->mid = "kept-in-memory";
        harness.identity->SavePersistently();
    });
    EXPECT_EQ(LinesAmong(capture, {NO_STORAGE, LOAD_FAILED, SAVE_FAILED}),
              (Strings{NO_STORAGE, LOAD_FAILED, NO_STORAGE, SAVE_FAILED}));
    EXPECT_EQ(Fields(harness), "kept-in-memory|||||||600|0");

    // A module no hub registered has no platform services at all.
    capture.Clear();
    std::make_shared<Identity>()->LoadVariablesFromPersistentData();
    EXPECT_EQ(LinesAmong(capture, {NO_PLATFORM, LOAD_FAILED}), (Strings{NO_PLATFORM, LOAD_FAILED}));
}

namespace {

const std::string MATCH_LINE = "Provided push token matches existing push token.  Ignoring.";

class PushTest : public ::testing::Test {
protected:
    void SetUp() override { harness.RegisterIdentity(); }

    // Updates the token and returns the push identifier the module then holds.
    std::string Update(const std::string& token) {
        std::string value;
        harness.RunInIdentityQueue([&] {
            harness.identity->UpdatePushIdentifier(token);
            value = harness.identity->push_identifier;
        });
        return value;
    }

    // "action a.push.optin=word" for every push hit so far; the context holds nothing else.
    Strings Hits() {
        VelmoraTest::Settle(harness);
        Strings hits;
        for (const auto& event : harness.Events(EventType::ANALYTICS, EventSource::REQUEST_CONTENT)) {
            std::string hit = event->GetData()->OptString("action", "");
            std::map<std::string, std::string> context;
            event->GetData()->GetStringMap("contextdata", context);
            for (const auto& [key, value] : context) hit += " " + key + "=" + value;
            hits.push_back(hit);
        }
        return hits;
    }

    IdentityHarness harness;
    std::shared_ptr<DataStoreInterface> store = Store(harness);
};

const std::string OPT_IN_HIT = "Push a.push.optin=True";

}  // namespace

TEST_F(PushTest, TokenChangesStoreTheDigestAndReportFlagChanges) {
    EXPECT_EQ(Update(""), "");  // empty on a fresh store: no flag, no hit
    EXPECT_FALSE(store->Contains(KEY_FLAG));
    EXPECT_TRUE(Hits().empty());

    EXPECT_EQ(Update("token-A"), "token-A");
    EXPECT_EQ(store->GetString(KEY_PUSH_DIGEST, ""), Digest(harness, "token-A"));
    EXPECT_TRUE(store->GetBoolean(KEY_FLAG, false));
    EXPECT_EQ(Hits(), Strings{OPT_IN_HIT});

    // The same token matches the stored digest and is ignored.
    harness.RunInIdentityQueue([&] { harness.identity->push_identifier = "changed-in-memory"; });
    LogCapture capture(LoggingMode::DEBUG_LOG);
    EXPECT_EQ(Update("token-A"), "changed-in-memory");
    EXPECT_TRUE(capture.Contains(MATCH_LINE));

    // A new token while the flag stands sends no hit; with the flag off it turns it on again.
    EXPECT_EQ(Update("token-B"), "token-B");
    EXPECT_EQ(Hits(), Strings{OPT_IN_HIT});
    store->SetBoolean(KEY_FLAG, false);
    Update("token-C");
    EXPECT_TRUE(store->GetBoolean(KEY_FLAG, false));

    // An empty token clears the identifier and reports "False"; the digest of "" replaces the old one.
    EXPECT_EQ(Update(""), "");
    EXPECT_EQ(store->GetString(KEY_PUSH_DIGEST, ""), Digest(harness, ""));
    EXPECT_FALSE(store->GetBoolean(KEY_FLAG, true));
    EXPECT_EQ(Hits(), (Strings{OPT_IN_HIT, OPT_IN_HIT, "Push a.push.optin=False"}));
    capture.Clear();
    Update("");
    EXPECT_TRUE(capture.Contains(MATCH_LINE));
    EXPECT_EQ(Hits().size(), 3u);
}

TEST_F(PushTest, WithoutAStoreNothingIsStoredOrReported) {
    harness.services->SetLocalStorageService(nullptr);
    LogCapture capture;
    EXPECT_EQ(Update("token-A"), "");
    EXPECT_EQ(capture.Count("cannot update push flag without local storage service."), 1u);
    EXPECT_TRUE(capture.Contains(MATCH_LINE));
    EXPECT_TRUE(Hits().empty());
}
