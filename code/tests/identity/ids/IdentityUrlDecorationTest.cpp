#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "identity/module/Identity.h"
#include "runtime/bus/InternalModule.h"
#include "runtime/bus/SharedStatePending.h"
#include "runtime/services/helpers/TimeUtils.h"
#include "tests/identity/ids/IdentitySyncTestSupport.h"
#include "tests/identity/support/IdentityCoreTestSupport.h"

using namespace VelmoraMobile;
using VelmoraTest::MakeData;

namespace {

const std::string MID = "01234567890123456789012345678901234567";
const std::string AID = "5B3C1D8A";
const std::string ORG = "1234ABCD5678EFGH";

// What a payload holds at `time`: TS, then OCMID, OCAID and OCORGID when given, then the user.
std::function<std::string(int64_t)> Payload(const std::string& mid, const std::string& aid, const std::string& org,
                                            const std::string& user = "") {
    return [=](int64_t time) {
        std::string payload = "velmora_mc=TS%3D" + std::to_string(time);
        if (!mid.empty()) payload += "%7COCMID%3D" + mid;
        if (!aid.empty()) payload += "%7COCAID%3D" + aid;
        if (!org.empty()) payload += "%7COCORGID%3D" + org;
        return user.empty() ? payload : payload + "&velmora_aa_vid=" + user;
    };
}

// Stands in for the analytics extension: it only publishes shared states.
class FakeAnalytics : public InternalModule {
public:
    FakeAnalytics() : InternalModule("com.velmora.module.analytics") {}
    std::string GetSharedStateName() override { return "com.velmora.module.analytics"; }
};

// A URL made by the clock, with the window [from, to] of seconds around the call.
struct Made {
    std::string url;
    int64_t from;
    int64_t to;

    ::testing::AssertionResult Is(const std::function<std::string(int64_t)>& expected) const {
        for (int64_t time = from; time <= to; ++time) {
            if (url == expected(time)) return ::testing::AssertionSuccess();
        }
        return ::testing::AssertionFailure() << "\n  actual:   " << url << "\n  expected: " << expected(from);
    }
};

class UrlDecorationTest : public ::testing::Test {
protected:
    void SetUp() override {
        harness.RegisterIdentity();
        analytics = harness.hub->RegisterModule<FakeAnalytics>();
        ASSERT_NE(analytics, nullptr);
        harness.Configure({{"ondaraCloud.org", ORG}});
    }

    void SetFields(const std::string& mid, const std::string& user) {
        harness.RunInIdentityQueue([&] {
            harness.identity->mid = mid;
            harness.identity->user_identifier = user;
        });
    }

    // Dispatches a URL request through the hub and reads the response's "updatedurl".
    Made Request(const std::shared_ptr<EventData>& data) {
        Made made{"", TimeUtils::GetUnixTime(), 0};
        auto response = harness.WaitForResponse(harness.DispatchIdentityRequest(data)->GetResponsePairID());
        made.to = TimeUtils::GetUnixTime();
        EXPECT_NE(response, nullptr);
        if (response) {
            EXPECT_EQ(response->GetName(), "IDENTITY_APPENDED_URL");
            EXPECT_TRUE(response->GetData()->GetString("updatedurl", made.url));
        }
        return made;
    }

    VelmoraTest::IdentityHarness harness;
    std::shared_ptr<FakeAnalytics> analytics;
};

}  // namespace

TEST_F(UrlDecorationTest, EveryBaseUrlShapeOfTheTable) {
    SetFields(MID, "user1");
    ASSERT_TRUE(analytics->CreateOrUpdateSharedState(MakeData({{"aid", AID}})));
    const struct {
        std::string base;
        std::string before;  // text in front of the decoration
        std::string after;   // text behind it
    } rows[] = {
        {"https://site.example/page", "https://site.example/page?", ""},
        {"https://site.example/page?", "https://site.example/page?", ""},
        {"https://site.example/page?a=1", "https://site.example/page?a=1&", ""},
        {"https://site.example/page#top", "https://site.example/page?", "#top"},
        {"https://site.example/page?a=1#top", "https://site.example/page?a=1&", "#top"},
        {"https://site.example/page?#top", "https://site.example/page?&", "#top"},
        {"https://site.example/#a?b", "https://site.example/&", "#a?b"},
        {"#top", "#top?", ""},
    };
    for (const auto& row : rows) {
        EXPECT_TRUE(Request(MakeData({{"baseurl", row.base}})).Is([&](int64_t time) {
            return row.before + Payload(MID, AID, ORG, "user1")(time) + row.after;
        })) << row.base;
    }
    EXPECT_EQ(Request(MakeData({{"baseurl", ""}})).url, "");
    auto number = std::make_shared<EventData>();
    number->PutInteger("baseurl", 7);
    EXPECT_EQ(Request(number).url, "");

    // The user identifier is encoded while the base URL is left as it is; an existing
    // "velmora_mc" is not looked for, so a second one is appended.
    SetFields("", "a b&c=d/é");
    const std::string base = "https://site.example/p%41th with space?velmora_mc=old";
    EXPECT_TRUE(Request(MakeData({{"baseurl", base}})).Is([&](int64_t time) {
        return base + "&" + Payload("", AID, ORG, "a%20b%26c%3Dd%2F%C3%A9")(time);
    }));
}

TEST_F(UrlDecorationTest, PayloadLeavesOutWhatIsMissing) {
    SetFields("", "");
    // An empty, absent, ill-typed or pending analytics id, and an empty org id, are left out.
    auto other_kind = std::make_shared<EventData>();
    other_kind->PutInteger("aid", 42);
    for (const auto& state :
         {MakeData({{"aid", ""}}), other_kind, std::shared_ptr<EventData>(), SHARED_STATE_PENDING}) {
        Made made{"", TimeUtils::GetUnixTime(), 0};
        harness.RunInIdentityQueue(
            [&] { made.url = harness.identity->GenerateVisitorIdPayload(VelmoraTest::MakeConfig(""), state); });
        made.to = TimeUtils::GetUnixTime();
        EXPECT_TRUE(made.Is(Payload("", "", "")));
    }
}

TEST_F(UrlDecorationTest, EachRequestUsesTheAnalyticsIdAtItsPlace) {
    // Two queued requests with a new analytics state between them: each sees its own.
    ASSERT_TRUE(analytics->CreateOrUpdateSharedState(MakeData({{"aid", "AAA"}})));
    auto first = harness.DispatchIdentityRequest(MakeData({{"baseurl", "first"}}));
    ASSERT_TRUE(analytics->CreateOrUpdateSharedState(MakeData({{"aid", "BBB"}})));
    auto second = harness.DispatchIdentityRequest(MakeData({{"baseurl", "second"}}));
    for (const auto& [request, aid] : {std::make_pair(first, "AAA"), std::make_pair(second, "BBB")}) {
        auto response = harness.WaitForResponse(request->GetResponsePairID());
        ASSERT_NE(response, nullptr);
        EXPECT_NE(response->GetData()->OptString("updatedurl", "").find("OCAID%3D" + std::string(aid)),
                  std::string::npos);
    }
}
