#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "EventSource.h"
#include "EventType.h"
#include "Identity.h"
#include "IdentityHarness.h"
#include "IdentityStateTestSupport.h"
#include "LogCapture.h"

using namespace VelmoraMobile;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;
using VelmoraTest::IdentityState::EventBarrier;
using VelmoraTest::IdentityState::PushHits;
using VelmoraTest::IdentityState::Store;

namespace {

const std::string KEY_DIGEST = "VELMORAMOBILE_PUSH_IDENTIFIER";
const std::string KEY_FLAG = "VELMORAMOBILE_PUSH_ENABLED";
const std::string MATCH_LINE = "Provided push token matches existing push token.  Ignoring.";
const std::string NO_STORE_LINE = "cannot update push flag without local storage service.";

class PushTest : public ::testing::Test {
protected:
    void SetUp() override {
        harness.RegisterIdentity();
        store = Store(harness);
    }

    std::string Digest(const std::string& token) { return harness.services->GetCryptoService()->GetDigest(token); }

    void Update(const std::string& token) {
        harness.RunInIdentityQueue([&] { harness.identity->UpdatePushIdentifier(token); });
    }

    std::string PushIdentifier() {
        std::string value;
        harness.RunInIdentityQueue([&] { value = harness.identity->push_identifier; });
        return value;
    }

    // The "a.push.optin" words of every push hit so far.
    std::vector<std::string> Hits() {
        EventBarrier(harness);
        std::vector<std::string> words;
        for (const auto& context : PushHits(harness)) {
            auto it = context.find("a.push.optin");
            words.push_back(it == context.end() ? "<missing>" : it->second);
        }
        return words;
    }

    IdentityHarness harness;
    std::shared_ptr<DataStoreInterface> store;
};

}  // namespace

TEST_F(PushTest, ANewTokenStoresItsDigestSetsTheFlagAndReportsTrue) {
    EXPECT_FALSE(store->Contains(KEY_FLAG));
    Update("token-A");
    EXPECT_EQ(PushIdentifier(), "token-A");
    // Only the digest is stored, never the token itself.
    EXPECT_EQ(store->GetString(KEY_DIGEST, ""), Digest("token-A"));
    EXPECT_NE(store->GetString(KEY_DIGEST, ""), "token-A");
    EXPECT_TRUE(store->GetBoolean(KEY_FLAG, false));

    EventBarrier(harness);
    auto events = harness.Events(EventType::ANALYTICS, EventSource::REQUEST_CONTENT);
    ASSERT_EQ(events.size(), 1u);
    auto data = events[0]->GetData();
    EXPECT_EQ(data->OptString("action", ""), "Push");
    EXPECT_TRUE(data->OptBoolean("trackinternal", false));
    std::map<std::string, std::string> context;
    ASSERT_TRUE(data->GetStringMap("contextdata", context));
    EXPECT_EQ(context, (std::map<std::string, std::string>{{"a.push.optin", "True"}}));
}

TEST_F(PushTest, TheSameTokenAgainIsIgnored) {
    Update("token-A");
    harness.RunInIdentityQueue([&] { harness.identity->push_identifier = "changed-in-memory"; });
    LogCapture capture(LoggingMode::DEBUG_LOG);
    Update("token-A");
    EXPECT_TRUE(capture.Contains(MATCH_LINE));
    EXPECT_EQ(PushIdentifier(), "changed-in-memory");
    EXPECT_EQ(Hits(), std::vector<std::string>{"True"});
}

TEST_F(PushTest, ANewTokenWhileTheFlagStandsSendsNoHit) {
    Update("token-A");
    Update("token-B");
    EXPECT_EQ(PushIdentifier(), "token-B");
    EXPECT_EQ(store->GetString(KEY_DIGEST, ""), Digest("token-B"));
    EXPECT_EQ(Hits(), std::vector<std::string>{"True"});
}

TEST_F(PushTest, ANewTokenWithTheFlagOffTurnsItOnAgain) {
    Update("token-A");
    store->SetBoolean(KEY_FLAG, false);
    Update("token-B");
    EXPECT_TRUE(store->GetBoolean(KEY_FLAG, false));
    EXPECT_EQ(Hits(), (std::vector<std::string>{"True", "True"}));
}

TEST_F(PushTest, AnEmptyTokenClearsTheIdentifierAndReportsFalse) {
    Update("token-A");
    Update("");
    EXPECT_EQ(PushIdentifier(), "");
    // The digest of "" is not empty, so it replaces the old one rather than removing the key.
    EXPECT_EQ(store->GetString(KEY_DIGEST, ""), Digest(""));
    EXPECT_FALSE(store->GetBoolean(KEY_FLAG, true));
    EXPECT_TRUE(store->Contains(KEY_FLAG));
    EXPECT_EQ(Hits(), (std::vector<std::string>{"True", "False"}));

    // A second empty token matches and changes nothing.
    LogCapture capture(LoggingMode::DEBUG_LOG);
    Update("");
    EXPECT_TRUE(capture.Contains(MATCH_LINE));
    EXPECT_EQ(Hits(), (std::vector<std::string>{"True", "False"}));
}

TEST_F(PushTest, AnEmptyTokenOnAFreshStoreSendsNoHit) {
    Update("");
    EXPECT_EQ(PushIdentifier(), "");
    EXPECT_FALSE(store->Contains(KEY_FLAG));
    EXPECT_TRUE(Hits().empty());
}

TEST_F(PushTest, TheFlagReadsFalseWhenAbsentAndFollowsTheStore) {
    harness.RunInIdentityQueue([&] {
        auto& id = *harness.identity;
        EXPECT_FALSE(id.IsPushEnabled());
        EXPECT_FALSE(store->Contains(KEY_FLAG));
        EXPECT_TRUE(id.SetPushEnabled(true));
        EXPECT_TRUE(id.push_enabled);
        EXPECT_TRUE(id.IsPushEnabled());
        store->SetBoolean(KEY_FLAG, false);
        EXPECT_FALSE(id.IsPushEnabled());
        EXPECT_FALSE(id.push_enabled);
    });
}

TEST_F(PushTest, WithoutCryptoTheTokenIsIgnored) {
    Update("token-A");
    harness.services->SetCryptoService(nullptr);
    LogCapture capture;
    Update("token-B");
    EXPECT_TRUE(capture.Contains("crypto services is null."));
    EXPECT_TRUE(capture.Contains(MATCH_LINE));
    EXPECT_EQ(PushIdentifier(), "token-A");
    EXPECT_EQ(Hits(), std::vector<std::string>{"True"});
}

TEST_F(PushTest, WithoutAStoreNothingIsStoredOrReported) {
    harness.services->SetLocalStorageService(nullptr);
    LogCapture capture;
    harness.RunInIdentityQueue([&] {
        auto& id = *harness.identity;
        id.push_enabled = true;
        EXPECT_FALSE(id.IsPushEnabled());
        EXPECT_TRUE(id.push_enabled);  // left as it was
        EXPECT_FALSE(id.SetPushEnabled(false));
        id.ChangePushStatusAndHitAnalytics(true);
        id.UpdatePushIdentifier("token-A");
        EXPECT_EQ(id.push_identifier, "");
    });
    EXPECT_EQ(capture.Count(NO_STORE_LINE), 4u);
    EXPECT_TRUE(capture.Contains(MATCH_LINE));
    EXPECT_TRUE(Hits().empty());
}
