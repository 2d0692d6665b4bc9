// IdentityPublicApi on a hub that captures the one-time listener (how one answer becomes a
// callback).

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "identity/api/IdentityPublicApi.h"
#include "identity/ids/VisitorIdSerializer.h"
#include "runtime/bus/EventBuilder.h"
#include "runtime/values/SdkError.h"
#include "runtime/values/StringUtils.h"
#include "runtime/values/Variant.h"
#include "tests/identity/support/IdentityCoreTestSupport.h"
#include "tests/support/LogCapture.h"

using namespace VelmoraMobile;
using VelmoraTest::LogCapture;

namespace {

using State = VisitorIdAuthenticationState;

/// Records what the api asks of the hub, in order, and keeps the one-time listener.
class CapturingHub : public EventHub {
public:
    CapturingHub() : EventHub(nullptr) {}

    bool IsRegisteredModule(const std::string&) override { return registered; }
    void RegisterOneTimeListener(size_t, const std::shared_ptr<EventType>& type,
                                 const std::shared_ptr<EventSource>& source, const std::string& pair_id,
                                 const OneTimeCallback& callback) override {
        calls.push_back("listen " + type->GetName() + " " + source->GetName());
        if (refuse_listener) VELMORA_THROW("event_hub.invalid_listener", "refused by the test");
        listeners.push_back(callback);
        listened_pair_id = pair_id;
    }
    void Dispatch(const std::shared_ptr<Event>& event) override {
        calls.push_back(event->GetEventType()->GetName() + " " + event->GetEventSource()->GetName() + " " +
                        event->GetName() + " " + StringUtils::ToString(*event->GetData()) +
                        (event->GetResponsePairID() == listened_pair_id ? " answered" : ""));
    }
    /// Answers every listener with `data`.
    void Answer(const std::shared_ptr<EventData>& data) {
        ASSERT_FALSE(listeners.empty());
        for (const auto& listener : listeners) {
            listener(EventBuilder("answer", EventType::IDENTITY, EventSource::RESPONSE_IDENTITY).SetData(data).Build());
        }
    }

    bool registered = true;
    bool refuse_listener = false;
    std::vector<std::string> calls;
    std::vector<OneTimeCallback> listeners;
    std::string listened_pair_id = "none";
};

std::shared_ptr<Variant> IdMap(const std::string& type, const std::string& id) {
    return VisitorIdSerializer().Serialize(VisitorId("d_cid_ic", type, id, State::AUTHENTICATED));
}

TEST(IdentityPublicApiAnswer,
     RequestsCarryTheirDataAnAnswerIsListenedForFirstAndReadsItsOwnKeyARefusedListenerOrAMissingModuleIsLogged) {
    auto hub = std::make_shared<CapturingHub>();
    auto api = IdentityPublicApi::Create(hub, nullptr);
    api->GetOndaraCloudId(nullptr);
    api->GetIdentifiers(nullptr);
    api->CreateIdentityRequestWithOneTimeCallbackWithStringCallbackParam("mid", nullptr, nullptr);
    api->SyncIdentifiers({});
    api->SyncIdentifier("", "v", State::AUTHENTICATED);
    api->SyncIdentifiers({{"a", "1"}, {"b", "2"}}, State::LOGGED_OUT);
    api->SetUserIdentifier("");
    api->AppendToUrl("", [](std::string) {});
    api->GetOndaraCloudId([](std::string) {});

    const std::string listen =
        "listen " + EventType::IDENTITY->GetName() + " " + EventSource::RESPONSE_IDENTITY->GetName();
    const std::string request =
        EventType::IDENTITY->GetName() + " " + EventSource::REQUEST_IDENTITY->GetName() + " IdentityRequestIdentity ";
    // Types show: strings are quoted, numbers and booleans are not.
    EXPECT_EQ(
        hub->calls,
        (std::vector<std::string>{
            request + R"({authenticationstate: 0, forcesync: false, issyncevent: true, visitoridentifiers: {}})",
            request + R"({authenticationstate: 1, forcesync: false, issyncevent: true, visitoridentifiers: {: "v"}})",
            request +
                R"({authenticationstate: 2, forcesync: false, issyncevent: true, visitoridentifiers: {a: "1", b: "2"}})",
            request + R"({vid: ""})", listen, request + R"({baseurl: ""} answered)", listen, request + "{} answered"}));

    // Each getter reads its own key; strings fall back to empty, lists need a readable list.
    std::vector<std::string> answers;
    const auto add = [&](std::string value) { answers.push_back(value); };
    api->GetOndaraCloudId(add);
    api->GetPushIdentifier(add);
    api->GetAdvertisingIdentifier(add);
    api->GetUserIdentifier(add);
    api->AppendToUrl("https://a.example/", add);
    hub->Answer(VelmoraTest::MakeData(
        {{"mid", "m"}, {"pushidentifier", "p"}, {"advertisingidentifier", "a"}, {"vid", "v"}, {"updatedurl", "u"}}));
    hub->listeners.clear();
    api->GetOndaraCloudId(add);
    auto five = std::make_shared<EventData>();
    five->PutInteger("mid", 5);
    hub->Answer(five);
    EXPECT_EQ(answers, (std::vector<std::string>{"m", "p", "a", "v", "u", ""}));
    const std::pair<std::shared_ptr<Variant>, std::vector<std::string>> lists[] = {
        {Variant::FromVariantVector({IdMap("crm", "a"), IdMap("club", "b")}), {"crm:a club:b "}},
        {Variant::FromVariantVector({}), {""}},
        {Variant::FromVariantVector({IdMap("crm", "a"), Variant::FromInteger(3)}), {}},
    };
    for (const auto& [list, expected] : lists) {
        auto hub = std::make_shared<CapturingHub>();
        std::vector<std::string> answers;
        IdentityPublicApi::Create(hub, nullptr)->GetIdentifiers([&](const auto& ids) {
            answers.emplace_back();
            for (const auto& id : ids) answers.back() += id->id_type + ":" + id->id + " ";
        });
        auto data = std::make_shared<EventData>();
        data->PutVariant("visitoridslist", list);
        hub->Answer(data);
        EXPECT_EQ(answers, expected);
    }

    // A refused listener is logged and the request still goes.
    hub = std::make_shared<CapturingHub>();
    hub->refuse_listener = true;
    LogCapture log;
    IdentityPublicApi::Create(hub, nullptr)
        ->CreateIdentityRequestWithOneTimeCallbackWithStringCallbackParam("mid", nullptr, [](const std::string&) {});
    EXPECT_EQ(hub->calls.size(), 2u);
    ASSERT_EQ(log.Lines().size(), 1u);
    const auto line = log.Lines()[0];
    EXPECT_TRUE(line.tag == "" && line.mode == LoggingMode::DEBUG_LOG);
    EXPECT_EQ(line.message.rfind("Failed to register the RESPONSE_IDENTITY listener (", 0), 0u) << line.message;
    EXPECT_NE(line.message.find("refused by the test"), std::string::npos) << line.message;

    // No core, or a hub without the module (as after a stop): logged and dropped.
    hub->registered = false;
    IdentityPublicApi::Create(nullptr, nullptr)->RegisterIdentity();
    IdentityPublicApi::Create(hub, nullptr)->SetUserIdentifier("vid");
    EXPECT_TRUE(
        log.Contains("RegisterIdentity ignored: no core is running. Start the core before calling the identity API"));
    EXPECT_TRUE(
        log.Contains("SetUserIdentifier ignored: the identity module is not registered on this hub (the core "
                     "is stopped or not started)"));
    EXPECT_EQ(hub->calls.size(), 2u);
}

// The request and sync paths' lines on a stopped core are pinned by CoreTest; these two calls check on their own.
}  // namespace
