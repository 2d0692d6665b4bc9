#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

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
const std::string USER = "a%20b%26c%3Dd%2F%C3%A9";  // "a b&c=d/é" encoded

// What a payload holds: TS, then OCMID, OCAID and OCORGID when given, then the user.
std::string Payload(const std::string& mid, const std::string& aid, const std::string& org,
                    const std::string& user = "") {
    std::string payload = "velmora_mc=TS%3D*";
    if (!mid.empty()) payload += "%7COCMID%3D" + mid;
    if (!aid.empty()) payload += "%7COCAID%3D" + aid;
    if (!org.empty()) payload += "%7COCORGID%3D" + org;
    return user.empty() ? payload : payload + "&velmora_aa_vid=" + user;
}

// `url` with its TS value, which must be a second of [from, now], read as "*".
std::string WithoutTime(std::string url, int64_t from) {
    const size_t at = url.find("TS%3D") + 5, end = url.find_first_not_of("0123456789", at);
    const int64_t time = std::stoll(url.substr(at, end - at));
    EXPECT_TRUE(time >= from && time <= TimeUtils::GetUnixTime()) << url;
    return url.replace(at, end - at, "*");
}

// Stands in for the analytics extension: it only publishes shared states.
class FakeAnalytics : public InternalModule {
public:
    FakeAnalytics() : InternalModule("com.velmora.module.analytics") {}
    std::string GetSharedStateName() override { return "com.velmora.module.analytics"; }
};

}  // namespace

TEST(UrlDecorationTest, EveryBaseUrlShapeWhatIsMissingAndTheAnalyticsIdAtEachRequestsPlace) {
    VelmoraTest::IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    auto analytics = harness.hub->RegisterModule<FakeAnalytics>();
    ASSERT_NE(analytics, nullptr);
    harness.Configure({{"ondaraCloud.org", ORG}});
    // A URL request through the hub: the response's "updatedurl", its time read as "*".
    auto request = [&](const std::shared_ptr<EventData>& data) {
        const int64_t from = TimeUtils::GetUnixTime();
        auto response = harness.WaitForResponse(harness.DispatchIdentityRequest(data)->GetResponsePairID());
        std::string url = "no response";
        EXPECT_TRUE(response && response->GetName() == "IDENTITY_APPENDED_URL" &&
                    response->GetData()->GetString("updatedurl", url));
        return url.empty() ? url : WithoutTime(url, from);
    };
    // An empty, absent, ill-typed or pending analytics id, and an empty org id, MID or user, are left out.
    auto other_kind = std::make_shared<EventData>();
    other_kind->PutInteger("aid", 42);
    for (const auto& state :
         {MakeData({{"aid", ""}}), other_kind, std::shared_ptr<EventData>(), SHARED_STATE_PENDING}) {
        const int64_t from = TimeUtils::GetUnixTime();
        std::string payload;
        harness.RunInIdentityQueue(
            [&] { payload = identity->GenerateVisitorIdPayload(VelmoraTest::MakeConfig(""), state); });
        EXPECT_EQ(WithoutTime(payload, from), Payload("", "", ""));
    }

    harness.RunInIdentityQueue([&] {
        identity->mid = MID;
        identity->user_identifier = "a b&c=d/é";
    });
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
        {"https://site.example/page?#top", "https://site.example/page?&", "#top"},
        {"https://site.example/#a?b", "https://site.example/&", "#a?b"},
        {"#top", "#top?", ""},
        {"https://x.example/%41 b?velmora_mc=1", "https://x.example/%41 b?velmora_mc=1&", ""},  // left as it is
    };
    for (const auto& row : rows) {
        EXPECT_EQ(request(MakeData({{"baseurl", row.base}})), row.before + Payload(MID, AID, ORG, USER) + row.after);
    }
    EXPECT_EQ(request(MakeData({{"baseurl", ""}})), "");
    auto number = std::make_shared<EventData>();
    number->PutInteger("baseurl", 7);
    EXPECT_EQ(request(number), "");

    // A new analytics state after a request is not the one it sees.
    ASSERT_TRUE(analytics->CreateOrUpdateSharedState(MakeData({{"aid", "AAA"}})));
    auto first = harness.DispatchIdentityRequest(MakeData({{"baseurl", "first"}}));
    ASSERT_TRUE(analytics->CreateOrUpdateSharedState(MakeData({{"aid", "BBB"}})));
    auto response = harness.WaitForResponse(first->GetResponsePairID());
    ASSERT_NE(response, nullptr);
    EXPECT_NE(response->GetData()->OptString("updatedurl", "").find("OCAID%3DAAA"), std::string::npos);
}
