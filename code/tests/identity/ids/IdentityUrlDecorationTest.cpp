#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "identity/module/ConfigurationSharedStateIdentity.h"
#include "identity/module/Identity.h"
#include "runtime/bus/EventBuilder.h"
#include "runtime/bus/InternalModule.h"
#include "runtime/bus/SharedStatePending.h"
#include "runtime/services/helpers/TimeUtils.h"
#include "tests/identity/support/IdentityHarness.h"

using namespace VelmoraMobile;
using VelmoraTest::IdentityHarness;

namespace {

const std::string MID = "01234567890123456789012345678901234567";
const std::string AID = "5B3C1D8A";
const std::string ORG = "1234ABCD5678EFGH";

// The decoration of the worked example (MID, AID, ORG, user "user1") made at `time`.
std::string Example(int64_t time) {
    return "velmora_mc=TS%3D" + std::to_string(time) + "%7COCMID%3D" + MID + "%7COCAID%3D" + AID + "%7COCORGID%3D" +
           ORG + "&velmora_aa_vid=user1";
}

// What a payload holds without MID and user: TS, then OCAID and OCORGID when given.
std::function<std::string(int64_t)> Bare(const std::string& aid, const std::string& org) {
    return [aid, org](int64_t time) {
        std::string payload = "velmora_mc=TS%3D" + std::to_string(time);
        if (!aid.empty()) payload += "%7COCAID%3D" + aid;
        return org.empty() ? payload : payload + "%7COCORGID%3D" + org;
    };
}

std::shared_ptr<ConfigurationSharedStateIdentity> ConfigWithOrg(const std::string& org_id) {
    auto data = std::make_shared<EventData>();
    if (!org_id.empty()) data->PutString("ondaraCloud.org", org_id);
    return std::make_shared<ConfigurationSharedStateIdentity>(data);
}

std::shared_ptr<EventData> Data(const std::string& key, const std::string& value) {
    auto data = std::make_shared<EventData>();
    data->PutString(key, value);
    return data;
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

    // The URL equals `expected(t)` for some t in the window.
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

    Made Payload(const std::string& org, const std::shared_ptr<EventData>& analytics_state) {
        Made made{"", TimeUtils::GetUnixTime(), 0};
        harness.RunInIdentityQueue(
            [&] { made.url = harness.identity->GenerateVisitorIdPayload(ConfigWithOrg(org), analytics_state); });
        made.to = TimeUtils::GetUnixTime();
        return made;
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

    IdentityHarness harness;
    std::shared_ptr<FakeAnalytics> analytics;
};

}  // namespace

TEST_F(UrlDecorationTest, EveryBaseUrlShapeOfTheTable) {
    SetFields(MID, "user1");
    ASSERT_TRUE(analytics->CreateOrUpdateSharedState(Data("aid", AID)));
    struct Row {
        std::string base;
        std::string before;  // text in front of the decoration
        std::string after;   // text behind it
    };
    const std::vector<Row> rows = {
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
        SCOPED_TRACE(row.base);
        EXPECT_TRUE(Request(Data("baseurl", row.base)).Is([&](int64_t time) {
            return row.before + Example(time) + row.after;
        }));
    }
    EXPECT_EQ(Request(Data("baseurl", "")).url, "");
    auto number = std::make_shared<EventData>();
    number->PutInteger("baseurl", 7);
    EXPECT_EQ(Request(number).url, "");
}

TEST_F(UrlDecorationTest, PayloadLeavesOutWhatIsMissing) {
    SetFields("", "");
    EXPECT_TRUE(Payload(ORG, Data("aid", AID)).Is(Bare(AID, ORG)));
    // An empty, absent, ill-typed or pending analytics id, and an empty org id, are left out.
    auto other_kind = std::make_shared<EventData>();
    other_kind->PutInteger("aid", 42);
    for (const auto& state : {Data("aid", ""), other_kind, std::shared_ptr<EventData>(), SHARED_STATE_PENDING}) {
        EXPECT_TRUE(Payload("", state).Is(Bare("", "")));
    }
}

TEST_F(UrlDecorationTest, UserIdentifierIsEncodedWhileTheBaseUrlIsLeftAsItIs) {
    SetFields("", "a b&c=d/é");
    const std::string base = "https://site.example/p%41th with space?velmora_mc=old";
    // The existing "velmora_mc" is not looked for: a second one is appended.
    EXPECT_TRUE(Request(Data("baseurl", base)).Is([&](int64_t time) {
        return base + "&" + Bare("", ORG)(time) + "&velmora_aa_vid=a%20b%26c%3Dd%2F%C3%A9";
    }));
}

TEST_F(UrlDecorationTest, EachRequestUsesTheAnalyticsIdAtItsPlace) {
    // Two queued requests with a new analytics state between them: each sees its own.
    ASSERT_TRUE(analytics->CreateOrUpdateSharedState(Data("aid", "AAA")));
    auto first = harness.DispatchIdentityRequest(Data("baseurl", "first"));
    ASSERT_TRUE(analytics->CreateOrUpdateSharedState(Data("aid", "BBB")));
    auto second = harness.DispatchIdentityRequest(Data("baseurl", "second"));
    for (const auto& [request, aid] : {std::make_pair(first, "AAA"), std::make_pair(second, "BBB")}) {
        auto response = harness.WaitForResponse(request->GetResponsePairID());
        ASSERT_NE(response, nullptr);
        EXPECT_NE(response->GetData()->OptString("updatedurl", "").find("OCAID%3D" + std::string(aid)),
                  std::string::npos);
    }
}
