#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ConfigurationSharedStateIdentity.h"
#include "EventBuilder.h"
#include "EventSource.h"
#include "EventType.h"
#include "Identity.h"
#include "IdentityHarness.h"
#include "InternalModule.h"
#include "SharedStatePending.h"
#include "TimeUtils.h"
#include "Variant.h"

using namespace VelmoraMobile;
using VelmoraTest::IdentityHarness;

namespace {

const std::string MID = "01234567890123456789012345678901234567";
const std::string AID = "5B3C1D8A";
const std::string ORG = "1234ABCD5678EFGH";
const std::string USER = "user1";
const std::string EXAMPLE_TIME = "1542312345";
// The decoration of the worked example, made at EXAMPLE_TIME.
const std::string EXAMPLE_DECORATION =
    "velmora_mc=TS%3D1542312345%7COCMID%3D01234567890123456789012345678901234567%7COCAID%3D5B3C1D8A%7COCORGID%"
    "3D1234ABCD5678EFGH&velmora_aa_vid=user1";

std::string ReplaceTime(const std::string& text, int64_t time) {
    std::string result = text;
    for (size_t at = result.find(EXAMPLE_TIME); at != std::string::npos; at = result.find(EXAMPLE_TIME)) {
        result.replace(at, EXAMPLE_TIME.size(), std::to_string(time));
    }
    return result;
}

// `actual` must equal `expected(t)` for some time stamp t in [from, to]: the payload reads the
// clock itself, so a test only knows the window around the call.
::testing::AssertionResult MadeWithin(const std::string& actual, int64_t from, int64_t to,
                                      const std::function<std::string(int64_t)>& expected) {
    for (int64_t time = from; time <= to; ++time) {
        if (actual == expected(time)) return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "\n  actual:   " << actual << "\n  expected: " << expected(from)
                                         << "\n  (time stamp between " << from << " and " << to << ")";
}

std::shared_ptr<ConfigurationSharedStateIdentity> ConfigWithOrg(const std::string& org_id) {
    auto data = std::make_shared<EventData>();
    if (!org_id.empty()) data->PutString("ondaraCloud.org", org_id);
    return std::make_shared<ConfigurationSharedStateIdentity>(data);
}

std::shared_ptr<EventData> AnalyticsState(const std::string& aid) {
    auto data = std::make_shared<EventData>();
    data->PutString("aid", aid);
    return data;
}

std::shared_ptr<EventData> UrlRequest(const std::string& url) {
    auto data = std::make_shared<EventData>();
    data->PutString("baseurl", url);
    return data;
}

// Stands in for the analytics extension: it only publishes shared states.
class FakeAnalytics : public InternalModule {
public:
    FakeAnalytics() : InternalModule("com.velmora.module.analytics") {}
    std::string GetSharedStateName() override { return "com.velmora.module.analytics"; }
};

struct Decorated {
    std::string url;
    int64_t from;
    int64_t to;
};

class UrlDecorationTest : public ::testing::Test {
protected:
    void SetUp() override { harness.RegisterIdentity(); }

    void SetFields(const std::string& mid, const std::string& user) {
        harness.RunInIdentityQueue([&] {
            harness.identity->mid = mid;
            harness.identity->user_identifier = user;
        });
    }

    // Calls AppendVisitorInfoForUrl in the module's queue and reads the paired response.
    Decorated Decorate(const std::string& base_url, const std::shared_ptr<ConfigurationSharedStateIdentity>& config,
                       const std::shared_ptr<EventData>& analytics) {
        const std::string pair_id = "decorate-" + std::to_string(++requests_);
        Decorated result{"", TimeUtils::GetUnixTime(), 0};
        harness.RunInIdentityQueue(
            [&] { harness.identity->AppendVisitorInfoForUrl(base_url, pair_id, config, analytics); });
        result.to = TimeUtils::GetUnixTime();
        auto response = harness.WaitForResponse(pair_id);
        EXPECT_NE(response, nullptr) << "no response for " << base_url;
        if (response) {
            EXPECT_EQ(response->GetName(), "IDENTITY_APPENDED_URL");
            EXPECT_TRUE(response->GetData()->GetString("updatedurl", result.url)) << "no updatedurl";
        }
        return result;
    }

    // The payload alone, made in the module's queue.
    Decorated Payload(const std::shared_ptr<ConfigurationSharedStateIdentity>& config,
                      const std::shared_ptr<EventData>& analytics) {
        Decorated result{"", TimeUtils::GetUnixTime(), 0};
        harness.RunInIdentityQueue([&] { result.url = harness.identity->GenerateVisitorIdPayload(config, analytics); });
        result.to = TimeUtils::GetUnixTime();
        return result;
    }

    IdentityHarness harness;
    int requests_ = 0;
};

}  // namespace

TEST_F(UrlDecorationTest, ParametersJoinWithEqualsAndBarAndSkipEmptyParts) {
    auto& identity = *harness.identity;
    EXPECT_EQ(identity.AppendParameterToVisitorIdString("", "TS", "1"), "TS=1");
    EXPECT_EQ(identity.AppendParameterToVisitorIdString("TS=1", "OCMID", "m"), "TS=1|OCMID=m");
    EXPECT_EQ(identity.AppendParameterToVisitorIdString("TS=1", "", "m"), "TS=1");
    EXPECT_EQ(identity.AppendParameterToVisitorIdString("TS=1", "OCMID", ""), "TS=1");
    EXPECT_EQ(identity.AppendParameterToVisitorIdString("", "", ""), "");
    // Nothing is escaped at this stage.
    EXPECT_EQ(identity.AppendParameterToVisitorIdString("a", "k|=", "v%s"), "a|k|==v%s");
}

TEST_F(UrlDecorationTest, WorkedExamplePayloadAndDecoration) {
    SetFields(MID, USER);
    auto made = Payload(ConfigWithOrg(ORG), AnalyticsState(AID));
    EXPECT_TRUE(
        MadeWithin(made.url, made.from, made.to, [](int64_t time) { return ReplaceTime(EXAMPLE_DECORATION, time); }));
}

TEST_F(UrlDecorationTest, EveryBaseUrlShapeOfTheTable) {
    SetFields(MID, USER);
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
        auto made = Decorate(row.base, ConfigWithOrg(ORG), AnalyticsState(AID));
        EXPECT_TRUE(MadeWithin(made.url, made.from, made.to, [&](int64_t time) {
            return row.before + ReplaceTime(EXAMPLE_DECORATION, time) + row.after;
        }));
    }

    auto empty = Decorate("", ConfigWithOrg(ORG), AnalyticsState(AID));
    EXPECT_EQ(empty.url, "");
}

TEST_F(UrlDecorationTest, PayloadLeavesOutWhatIsMissing) {
    // No MID and no user identifier: TS, then OCAID, then OCORGID, and no velmora_aa_vid.
    SetFields("", "");
    auto made = Payload(ConfigWithOrg(ORG), AnalyticsState(AID));
    EXPECT_TRUE(MadeWithin(made.url, made.from, made.to, [](int64_t time) {
        return "velmora_mc=TS%3D" + std::to_string(time) + "%7COCAID%3D5B3C1D8A%7COCORGID%3D1234ABCD5678EFGH";
    }));

    SetFields(MID, "");
    auto mid_only = [](int64_t time) { return "velmora_mc=TS%3D" + std::to_string(time) + "%7COCMID%3D" + MID; };
    // An analytics id of "", a state without "aid", one with "aid" of another kind, no state at
    // all and a pending one all leave OCAID out; an empty organisation id leaves OCORGID out.
    auto other_kind = std::make_shared<EventData>();
    other_kind->PutInteger("aid", 42);
    const std::vector<std::shared_ptr<EventData>> no_analytics_id = {AnalyticsState(""), std::make_shared<EventData>(),
                                                                     other_kind, nullptr, SHARED_STATE_PENDING};
    for (const auto& analytics : no_analytics_id) {
        auto payload = Payload(ConfigWithOrg(""), analytics);
        EXPECT_TRUE(MadeWithin(payload.url, payload.from, payload.to, mid_only));
    }

    // Nothing but the clock: the decoration is still made.
    SetFields("", "");
    auto bare = Payload(ConfigWithOrg(""), nullptr);
    EXPECT_TRUE(MadeWithin(bare.url, bare.from, bare.to,
                           [](int64_t time) { return "velmora_mc=TS%3D" + std::to_string(time); }));
}

TEST_F(UrlDecorationTest, UserIdentifierIsEncodedWhileTheBaseUrlIsLeftAsItIs) {
    SetFields("", "a b&c=d/é");
    const std::string base = "https://site.example/p%41th with space?velmora_mc=old";
    auto made = Decorate(base, ConfigWithOrg(""), nullptr);
    // The existing "velmora_mc" is not looked for: a second one is appended.
    EXPECT_TRUE(MadeWithin(made.url, made.from, made.to, [&](int64_t time) {
        return base + "&velmora_mc=TS%3D" + std::to_string(time) + "&velmora_aa_vid=a%20b%26c%3Dd%2F%C3%A9";
    }));
}

TEST_F(UrlDecorationTest, TheDecorationWritesNothingIntoTheModule) {
    SetFields(MID, USER);
    harness.Drain();
    auto before = harness.IdentityState();
    Decorate("https://site.example/page", ConfigWithOrg(ORG), AnalyticsState(AID));
    EXPECT_EQ(harness.IdentityState(), before);
    harness.RunInIdentityQueue([&] {
        EXPECT_EQ(harness.identity->mid, MID);
        EXPECT_EQ(harness.identity->user_identifier, USER);
    });
}

// Through the hub: a "baseurl" request goes through the event queue to HandleAppendUrl, which
// takes the organisation id from the configuration and the analytics id from the analytics
// state at the request's place.
class UrlRequestTest : public UrlDecorationTest {
protected:
    void SetUp() override {
        UrlDecorationTest::SetUp();
        analytics = harness.hub->RegisterModule<FakeAnalytics>();
        ASSERT_NE(analytics, nullptr);
        harness.Configure({{"ondaraCloud.org", ORG}});
    }

    // Dispatches a URL request and gives the response's "updatedurl" with the time window.
    Decorated Request(const std::shared_ptr<EventData>& data) {
        Decorated result{"", TimeUtils::GetUnixTime(), 0};
        auto request = harness.DispatchIdentityRequest(data);
        auto response = harness.WaitForResponse(request->GetResponsePairID());
        result.to = TimeUtils::GetUnixTime();
        EXPECT_NE(response, nullptr);
        if (response) {
            EXPECT_EQ(response->GetName(), "IDENTITY_APPENDED_URL");
            EXPECT_EQ(response->GetEventType(), EventType::IDENTITY);
            EXPECT_TRUE(response->GetData()->GetString("updatedurl", result.url)) << "no updatedurl";
        }
        return result;
    }

    void PublishAnalyticsId(const std::string& aid) {
        ASSERT_TRUE(analytics->CreateOrUpdateSharedState(AnalyticsState(aid)));
    }

    std::shared_ptr<FakeAnalytics> analytics;
};

TEST_F(UrlRequestTest, WorkedExampleEndToEnd) {
    SetFields(MID, USER);
    PublishAnalyticsId(AID);
    auto made = Request(UrlRequest("https://site.example/page?a=1#top"));
    EXPECT_TRUE(MadeWithin(made.url, made.from, made.to, [](int64_t time) {
        return "https://site.example/page?a=1&" + ReplaceTime(EXAMPLE_DECORATION, time) + "#top";
    }));
}

TEST_F(UrlRequestTest, EmptyOrNonTextUrlIsAnsweredWithTheEmptyString) {
    SetFields(MID, USER);
    auto empty = Request(UrlRequest(""));
    EXPECT_EQ(empty.url, "");

    auto number = std::make_shared<EventData>();
    number->PutInteger("baseurl", 7);
    auto not_text = Request(number);
    EXPECT_EQ(not_text.url, "");
}

TEST_F(UrlRequestTest, AnalyticsIdIsTheOneAtTheRequestsPlace) {
    SetFields("", "");
    auto expect_aid = [](const std::string& aid) {
        return [aid](int64_t time) {
            std::string payload = "velmora_mc=TS%3D" + std::to_string(time);
            if (!aid.empty()) payload += "%7COCAID%3D" + aid;
            return payload + "%7COCORGID%3D" + ORG;
        };
    };
    // No analytics state at all yet.
    auto none = Request(UrlRequest("u"));
    EXPECT_TRUE(MadeWithin(none.url, none.from, none.to, [&](int64_t time) { return "u?" + expect_aid("")(time); }));

    // Two requests queued behind each other, with a new analytics state between them: each sees
    // the state of its own place in the order, whenever the module gets to it.
    PublishAnalyticsId("AAA");
    const int64_t from = TimeUtils::GetUnixTime();
    auto first = harness.DispatchIdentityRequest(UrlRequest("first"));
    PublishAnalyticsId("BBB");
    auto second = harness.DispatchIdentityRequest(UrlRequest("second"));
    auto first_response = harness.WaitForResponse(first->GetResponsePairID());
    auto second_response = harness.WaitForResponse(second->GetResponsePairID());
    const int64_t to = TimeUtils::GetUnixTime();
    ASSERT_NE(first_response, nullptr);
    ASSERT_NE(second_response, nullptr);
    EXPECT_TRUE(MadeWithin(first_response->GetData()->OptString("updatedurl", ""), from, to,
                           [&](int64_t time) { return "first?" + expect_aid("AAA")(time); }));
    EXPECT_TRUE(MadeWithin(second_response->GetData()->OptString("updatedurl", ""), from, to,
                           [&](int64_t time) { return "second?" + expect_aid("BBB")(time); }));

    // A pending analytics state yields no analytics id and holds nothing up.
    auto marker =
        EventBuilder("marker", EventType::Get("velmora.test.marker"), EventSource::Get("velmora.test.marker")).Build();
    harness.hub->Dispatch(marker);
    // Announced for the next number, which the request below takes or passes.
    ASSERT_TRUE(analytics->CreateSharedState(marker->GetEventNumber() + 1, SHARED_STATE_PENDING));
    auto pending = Request(UrlRequest("p"));
    EXPECT_TRUE(
        MadeWithin(pending.url, pending.from, pending.to, [&](int64_t time) { return "p?" + expect_aid("")(time); }));
}

TEST_F(UrlRequestTest, OptedOutStillDecoratesWithWhatTheWipeLeft) {
    SetFields(MID, USER);
    PublishAnalyticsId(AID);
    harness.Configure({{"ondaraCloud.org", ORG}, {"global.privacy", "optedout"}});
    // Once the configuration's response is on the bus, the request below is heard after it and
    // so handled after the wipe.
    ASSERT_NE(harness.WaitForEvent([](const std::shared_ptr<Event>& event) {
        return event->GetEventType() == EventType::CONFIGURATION &&
               event->GetEventSource() == EventSource::RESPONSE_CONTENT &&
               event->GetData()->OptString("global.privacy", "") == "optedout";
    }),
              nullptr);
    auto made = Request(UrlRequest("https://site.example/page"));
    EXPECT_TRUE(MadeWithin(made.url, made.from, made.to, [](int64_t time) {
        return "https://site.example/page?velmora_mc=TS%3D" + std::to_string(time) +
               "%7COCAID%3D5B3C1D8A%7COCORGID%3D1234ABCD5678EFGH";
    }));
}
