#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "identity/module/Identity.h"
#include "runtime/bus/EventSource.h"
#include "runtime/bus/EventType.h"
#include "tests/identity/support/IdentityCoreTestSupport.h"
#include "tests/identity/support/IdentityHarness.h"
#include "tests/support/LogCapture.h"

using namespace VelmoraMobile;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;

namespace {

std::shared_ptr<DataStoreInterface> Store(IdentityHarness& harness) {
    return harness.services->GetLocalStorageService()->GetDataStore("visitorIDServiceDataStore");
}

const std::string KEY_DIGEST = "VELMORAMOBILE_PUSH_IDENTIFIER";
const std::string KEY_FLAG = "VELMORAMOBILE_PUSH_ENABLED";
const std::string MATCH_LINE = "Provided push token matches existing push token.  Ignoring.";

class PushTest : public ::testing::Test {
protected:
    void SetUp() override {
        harness.RegisterIdentity();
        store = Store(harness);
    }

    // Updates the token and returns the push identifier the module then holds.
    std::string Update(const std::string& token) {
        std::string value;
        harness.RunInIdentityQueue([&] {
            harness.identity->UpdatePushIdentifier(token);
            value = harness.identity->push_identifier;
        });
        return value;
    }

    // The "a.push.optin" words of every push hit so far.
    std::vector<std::string> Hits() {
        VelmoraTest::Settle(harness);
        std::vector<std::string> words;
        for (const auto& event : harness.Events(EventType::ANALYTICS, EventSource::REQUEST_CONTENT)) {
            std::map<std::string, std::string> context;
            event->GetData()->GetStringMap("contextdata", context);
            words.push_back(context["a.push.optin"]);
        }
        return words;
    }

    IdentityHarness harness;
    std::shared_ptr<DataStoreInterface> store;
};

}  // namespace

TEST_F(PushTest, TokenChangesStoreTheDigestAndReportFlagChanges) {
    EXPECT_EQ(Update(""), "");  // empty on a fresh store: no flag, no hit
    EXPECT_FALSE(store->Contains(KEY_FLAG));
    EXPECT_TRUE(Hits().empty());

    EXPECT_EQ(Update("token-A"), "token-A");
    EXPECT_EQ(store->GetString(KEY_DIGEST, ""), harness.services->GetCryptoService()->GetDigest("token-A"));
    EXPECT_TRUE(store->GetBoolean(KEY_FLAG, false));
    VelmoraTest::Settle(harness);
    auto events = harness.Events(EventType::ANALYTICS, EventSource::REQUEST_CONTENT);
    ASSERT_EQ(events.size(), 1u);
    auto data = events[0]->GetData();
    EXPECT_EQ(data->OptString("action", ""), "Push");
    EXPECT_TRUE(data->OptBoolean("trackinternal", false));
    std::map<std::string, std::string> context;
    ASSERT_TRUE(data->GetStringMap("contextdata", context));
    EXPECT_EQ(context, (std::map<std::string, std::string>{{"a.push.optin", "True"}}));

    // The same token matches the stored digest and is ignored.
    harness.RunInIdentityQueue([&] { harness.identity->push_identifier = "changed-in-memory"; });
    LogCapture capture(LoggingMode::DEBUG_LOG);
    EXPECT_EQ(Update("token-A"), "changed-in-memory");
    EXPECT_TRUE(capture.Contains(MATCH_LINE));

    // A new token while the flag stands sends no hit; with the flag off it turns it on again.
    EXPECT_EQ(Update("token-B"), "token-B");
    EXPECT_EQ(Hits(), std::vector<std::string>{"True"});
    store->SetBoolean(KEY_FLAG, false);
    Update("token-C");
    EXPECT_TRUE(store->GetBoolean(KEY_FLAG, false));
    EXPECT_EQ(Hits(), (std::vector<std::string>{"True", "True"}));

    // An empty token clears the identifier and reports "False"; the digest of "" replaces the old one.
    EXPECT_EQ(Update(""), "");
    EXPECT_EQ(store->GetString(KEY_DIGEST, ""), harness.services->GetCryptoService()->GetDigest(""));
    EXPECT_FALSE(store->GetBoolean(KEY_FLAG, true));
    EXPECT_EQ(Hits(), (std::vector<std::string>{"True", "True", "False"}));
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
