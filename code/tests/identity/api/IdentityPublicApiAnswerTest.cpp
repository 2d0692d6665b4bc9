// How IdentityPublicApi turns one answer into a callback, and how it sends a request, on a hub
// that captures the one-time listener instead of delivering.

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "identity/api/IdentityPublicApi.h"
#include "identity/ids/VisitorIdSerializer.h"
#include "runtime/bus/EventBuilder.h"
#include "runtime/bus/EventHub.h"
#include "runtime/values/SdkError.h"
#include "runtime/values/StringUtils.h"
#include "runtime/values/Variant.h"
#include "tests/identity/api/Answers.h"
#include "tests/support/LogCapture.h"

using namespace VelmoraMobile;
using VelmoraTest::IdAnswers;
using VelmoraTest::LogCapture;
using VelmoraTest::StringAnswers;

namespace {

/// Records what the api asks of the hub, in order, and keeps the one-time listener.
class CapturingHub : public EventHub {
public:
    CapturingHub() : EventHub(nullptr) {}

    bool IsRegisteredModule(const std::string&) override { return true; }
    void RegisterOneTimeListener(size_t, const std::shared_ptr<EventType>& type,
                                 const std::shared_ptr<EventSource>& source, const std::string& pair_id,
                                 const OneTimeCallback& callback) override {
        calls.push_back("listen");
        if (refuse_listener) {
            VELMORA_THROW("event_hub.invalid_listener", "refused by the test");
        }
        listener_type = type;
        listener_source = source;
        listener_pair_id = pair_id;
        listener = callback;
    }
    void Dispatch(const std::shared_ptr<Event>& event) override {
        calls.push_back("dispatch");
        dispatched.push_back(event);
    }

    /// Hands the listener an answer carrying `data`.
    void Answer(const std::shared_ptr<EventData>& data) {
        ASSERT_TRUE(listener);
        listener(EventBuilder("answer", EventType::IDENTITY, EventSource::RESPONSE_IDENTITY).SetData(data).Build());
    }

    bool refuse_listener = false;
    std::vector<std::string> calls;
    std::vector<std::shared_ptr<Event>> dispatched;
    std::shared_ptr<EventType> listener_type;
    std::shared_ptr<EventSource> listener_source;
    std::string listener_pair_id;
    OneTimeCallback listener;
};

std::shared_ptr<EventData> Data(const std::string& key, const std::shared_ptr<Variant>& value) {
    auto data = std::make_shared<EventData>();
    if (value) data->PutVariant(key, value);
    return data;
}

std::shared_ptr<Variant> IdMap(const std::string& type, const std::string& id) {
    return VisitorIdSerializer().Serialize(
        VisitorId("d_cid_ic", type, id, VisitorIdAuthenticationState::AUTHENTICATED));
}

TEST(IdentityPublicApiAnswer, ListenerStandsBeforeTheRequestLeavesOnItsPairId) {
    auto hub = std::make_shared<CapturingHub>();
    auto answers = std::make_shared<StringAnswers>();
    IdentityPublicApi::Create(hub, nullptr)->GetOndaraCloudId(answers->StringCallback());
    EXPECT_EQ(hub->calls, (std::vector<std::string>{"listen", "dispatch"}));
    ASSERT_EQ(hub->dispatched.size(), 1u);
    EXPECT_EQ(hub->listener_pair_id, hub->dispatched[0]->GetResponsePairID());
    EXPECT_EQ(hub->listener_type, EventType::IDENTITY);
    EXPECT_EQ(hub->listener_source, EventSource::RESPONSE_IDENTITY);
    EXPECT_EQ(hub->dispatched[0]->GetEventType(), EventType::IDENTITY);
    EXPECT_EQ(hub->dispatched[0]->GetEventSource(), EventSource::REQUEST_IDENTITY);
}

TEST(IdentityPublicApiAnswer, StringFormReadsItsKeyAndFallsBackToEmpty) {
    const struct {
        std::shared_ptr<EventData> answer;
        std::string expected;
    } cases[] = {
        {Data("updatedurl", Variant::FromString("https://a.example/?x=1")), "https://a.example/?x=1"},
        {Data("updatedurl", nullptr), ""},
        {Data("mid", Variant::FromString("not this key")), ""},
        {Data("updatedurl", Variant::FromInteger(5)), ""},
    };
    for (const auto& c : cases) {
        auto hub = std::make_shared<CapturingHub>();
        auto answers = std::make_shared<StringAnswers>();
        IdentityPublicApi::Create(hub, nullptr)->AppendToUrl("https://a.example/", answers->StringCallback());
        hub->Answer(c.answer);
        EXPECT_EQ(answers->Values(), std::vector<std::string>{c.expected}) << StringUtils::ToString(*c.answer);
    }
}

TEST(IdentityPublicApiAnswer, ListFormCallsBackOnlyWithAReadableList) {
    const struct {
        std::shared_ptr<EventData> answer;
        int expected_count;  // -1: no callback
    } cases[] = {
        {Data("visitoridslist", Variant::FromVariantVector({IdMap("crm", "a"), IdMap("club", "b")})), 2},
        {Data("visitoridslist", Variant::FromVariantVector({})), 0},
        {Data("visitoridslist", nullptr), -1},
        {Data("visitoridslist", Variant::FromString("crm=a")), -1},
        {Data("visitoridslist", Variant::FromVariantVector({IdMap("crm", "a"), Variant::FromInteger(3)})), -1},
    };
    for (const auto& c : cases) {
        auto hub = std::make_shared<CapturingHub>();
        auto answers = std::make_shared<IdAnswers>();
        IdentityPublicApi::Create(hub, nullptr)->GetIdentifiers(answers->IdsCallback());
        hub->Answer(c.answer);
        if (c.expected_count < 0) {
            EXPECT_EQ(answers->Count(), 0u) << StringUtils::ToString(*c.answer);
            continue;
        }
        ASSERT_EQ(answers->Count(), 1u) << StringUtils::ToString(*c.answer);
        auto ids = answers->Values()[0];
        ASSERT_EQ(ids.size(), size_t(c.expected_count));
        if (!ids.empty()) {
            EXPECT_EQ(ids[0]->id_type, "crm");
            EXPECT_EQ(ids[1]->id, "b");
        }
    }
}

TEST(IdentityPublicApiAnswer, ARefusedListenerIsLoggedUnderTheEmptyTagAndTheRequestStillGoes) {
    auto hub = std::make_shared<CapturingHub>();
    hub->refuse_listener = true;
    LogCapture log;
    auto answers = std::make_shared<StringAnswers>();
    IdentityPublicApi::Create(hub, nullptr)
        ->CreateIdentityRequestWithOneTimeCallbackWithStringCallbackParam(
            "mid", nullptr, [answers](const std::string& value) { answers->Add(value); });
    EXPECT_EQ(hub->dispatched.size(), 1u);
    auto lines = log.Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].tag, "");
    EXPECT_EQ(lines[0].mode, LoggingMode::DEBUG_LOG);
    EXPECT_EQ(lines[0].message.rfind("Failed to register the RESPONSE_IDENTITY listener (", 0), 0u) << lines[0].message;
    EXPECT_NE(lines[0].message.find("refused by the test"), std::string::npos) << lines[0].message;
}

TEST(IdentityPublicApiAnswer, CreateIdentityRequestEventNamesTheRequestAndKeepsItsData) {
    auto api = IdentityPublicApi::Create(std::make_shared<CapturingHub>(), nullptr);
    auto data = Data("baseurl", Variant::FromString("u"));
    auto with_data = api->CreateIdentityRequestEvent(data);
    auto without = api->CreateIdentityRequestEvent(nullptr);
    EXPECT_EQ(with_data->GetName(), "IdentityRequestIdentity");
    EXPECT_EQ(with_data->GetData(), data);
    ASSERT_NE(without->GetData(), nullptr);
    EXPECT_TRUE(without->GetData()->IsEmpty());
    EXPECT_NE(with_data->GetResponsePairID(), without->GetResponsePairID());
}

}  // namespace
