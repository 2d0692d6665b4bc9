#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "runtime/bus/EventBuilder.h"
#include "runtime/configuration/ConfigurationExtension.h"
#include "runtime/values/StringUtils.h"
#include "tests/identity/support/IdentityCoreTestSupport.h"
#include "tests/identity/support/IdentityHarness.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"

using namespace VelmoraMobile;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;
using VelmoraTest::MakeData;
using VelmoraTest::ResponsesTo;
using VelmoraTest::Settle;

namespace {

const std::string ORG = "ORG@VelmoraOrg";
const std::string PENDING_MESSAGE = "Config not available at the time to process identity event.";

std::shared_ptr<Event> IdentityRequest(const std::shared_ptr<EventData>& data) {
    return EventBuilder("test request", EventType::IDENTITY, EventSource::REQUEST_IDENTITY).SetData(data).Build();
}

}  // namespace

TEST(IdentityEventQueueTest, PendingOrAtItsPlaceTheConfigurationJudgesEachEventOneRecordPerAnswerClearingSparesUrls) {
    LogCapture log;
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    auto first = harness.DispatchIdentityRequest(MakeData({{"unrelated", "key"}}));
    auto second = harness.DispatchIdentityRequest(MakeData());
    ASSERT_TRUE(VelmoraTest::WaitFor([&] { return log.Count(PENDING_MESSAGE) >= 2; }));
    // Only the configuration's own shared state wakes the queue; each drain logs once.
    auto state_of = [&](const std::string& owner) {
        auto data = owner == "none" ? MakeData() : MakeData({{"stateowner", owner}});
        harness.hub->Dispatch(EventBuilder("state", EventType::HUB, EventSource::SHARED_STATE).SetData(data).Build());
    };
    const size_t drains = log.Count(PENDING_MESSAGE);
    for (const std::string owner :
         {"com.velmora.module.analytics", "com.velmora.module.identity", "com.velmora.module.configuration.extra",
          "com.velmora.module.config", "COM.VELMORA.MODULE.CONFIGURATION", " com.velmora.module.configuration", "",
          "none"}) {
        state_of(owner);
    }
    Settle(harness);
    EXPECT_EQ(log.Count(PENDING_MESSAGE), drains);
    EXPECT_EQ(log.Count("Failed to process shared state update event (invalid state owner)"), 1u);
    state_of("com.velmora.module.configuration");
    Settle(harness);
    EXPECT_EQ(log.Count(PENDING_MESSAGE), drains + 1);

    harness.Configure({{"global.privacy", "optedin"}});
    auto first_response = harness.WaitForResponse(first->GetResponsePairID());
    auto second_response = harness.WaitForResponse(second->GetResponsePairID());
    ASSERT_TRUE(first_response && second_response);
    EXPECT_EQ(first_response->GetName(), "IDENTITY_RESPONSE_CONTENT_ONE_TIME");
    // Each receiver has its own record; a blank device's carries only its last sync.
    first_response->GetData()->PutString("mid", "written by one receiver");
    EXPECT_EQ(StringUtils::ToString(*second_response->GetData()), "{lastsync: 0}");
    EXPECT_EQ(harness.IdentityState(), nullptr);  // answering publishes nothing
    harness.RunInIdentityQueue([&] { EXPECT_EQ(identity->latest_valid_config, nullptr); });  // it had no org id

    // An empty user identifier clears it: the state at the request's own number is the answer.
    auto request = harness.DispatchIdentityRequest(MakeData({{"vid", ""}}));
    Settle(harness);
    auto state = harness.IdentityState(request);
    ASSERT_NE(state, nullptr);
    EXPECT_FALSE(state->ContainsKey("vid"));
    auto just_before = EventBuilder("probe", EventType::HUB, EventSource::SHARED_STATE)
                           .SetEventNumber(request->GetEventNumber() - 1)
                           .Build();
    EXPECT_EQ(harness.IdentityState(just_before), nullptr);

    // Each queued event is judged by the configuration at its place.
    auto numbered = [](const std::string& vid, int32_t number) {
        return EventBuilder("vid", EventType::IDENTITY, EventSource::REQUEST_IDENTITY)
            .SetData(MakeData({{"vid", vid}}))
            .SetEventNumber(number)
            .Build();
    };
    // A marker dispatched after a configuration is published is numbered after its state.
    auto number_now = [&] {
        auto marker =
            EventBuilder("mark", EventType::Get("velmora.test"), EventSource::Get("velmora.test.mark")).Build();
        harness.hub->Dispatch(marker);
        return marker->GetEventNumber();
    };
    const int32_t opted_in_at = number_now();  // still opted in
    harness.Configure({{"global.privacy", "optedout"}});
    const int32_t opted_out_at = number_now();
    harness.RunInIdentityQueue([&] {
        identity->event_queue = {numbered("first", opted_in_at), numbered("second", opted_out_at)};
        identity->ProcessEventQueue();
        EXPECT_TRUE(identity->event_queue.empty());
        EXPECT_EQ(identity->user_identifier, "first");
    });

    // At an opt-out the queue is cleared: each request but a URL one is answered, in order.
    auto url_first = IdentityRequest(MakeData({{"baseurl", "https://one.example"}}));
    auto vid = IdentityRequest(MakeData({{"vid", "user"}}));
    auto url_second = IdentityRequest(MakeData({{"baseurl", "https://two.example"}}));
    auto plain = IdentityRequest(MakeData());

    harness.RunInIdentityQueue([&] {
        identity->event_queue = {url_first, vid, url_second, plain};
        identity->ClearEventsQueue();
        EXPECT_EQ(identity->event_queue, (std::deque<std::shared_ptr<Event>>{url_first, url_second}));
        identity->event_queue.clear();
    });
    Settle(harness);
    for (const auto& event : {vid, plain}) {
        auto responses = ResponsesTo(harness, event->GetResponsePairID());
        ASSERT_EQ(responses.size(), 1u);
        EXPECT_TRUE(responses[0]->GetName() == "IDENTITY_RESPONSE" && responses[0]->GetData()->ContainsKey("lastsync"));
    }

    // Without any configuration module the defaults decide: nothing waits.
    ASSERT_TRUE(harness.hub->UnregisterModule(ConfigurationExtension::SHARED_STATE_NAME));
    EXPECT_NE(harness.WaitForResponse(harness.DispatchIdentityRequest(MakeData())->GetResponsePairID()), nullptr);
}

TEST(IdentityEventQueueTest, ForcedSyncAtBootASecondModuleRefusedThenEventsRouteByTheSyncFlagUserIdentifierAndUrl) {
    LogCapture log;
    IdentityHarness harness;
    auto module = VelmoraTest::RegisterSyncRecorder(harness);
    harness.Configure({{"ondaraCloud.org", ORG}});
    harness.Boot();  // numbers the booted event at once
    // A later configuration must not be the one the forced sync sees.
    harness.Configure({{"ondaraCloud.org", "LATER-ORG"}});
    VelmoraTest::Settle(harness);
    const auto booted = harness.Events(EventType::HUB, EventSource::BOOTED);
    harness.RunInIdentityQueue([&] {
        ASSERT_EQ(module->syncs.size(), 1u);
        const auto& sync = module->syncs[0].event;
        EXPECT_EQ(module->syncs[0].org_id + " " + sync->GetName() + " " + std::to_string(sync->GetEventNumber()) + " " +
                      StringUtils::ToString(*sync->GetData()),
                  ORG + " id-construct-forced-sync " + std::to_string(booted.at(0)->GetEventNumber()) +
                      " {authenticationstate: 0, forcesync: true, issyncevent: true}");
    });
    // It goes straight into the queue, never over the bus.
    for (const auto& event : harness.Events()) EXPECT_NE(event->GetName(), "id-construct-forced-sync");

    EXPECT_EQ(harness.hub->RegisterModule<Identity>(), nullptr);  // one identity module per hub

    const std::string refused = "cannot set user identifier with privacy opt out. sharing";
    auto request = [](const std::shared_ptr<Variant>& vid, const std::optional<bool>& sync, bool url = true) {
        auto data = url ? MakeData({{"baseurl", "https://site.example"}}) : MakeData();
        if (vid) data->PutVariant("vid", vid);
        if (sync) data->PutBoolean("issyncevent", *sync);
        return IdentityRequest(data);
    };
    const auto NEW = Variant::FromString("new");
    // Outcome: the user identifier after "old", then whether it was refused, synced, answered.
    const std::vector<std::tuple<std::shared_ptr<Event>, std::string, std::string>> cases = {
        // The URL part of a request is never answered here: "vid" decided it.
        {request(NEW, {}), "optedin", "new 0 0 0"},
        {request(Variant::FromInteger(5), {}), "optedin", " 0 0 0"},  // no string: cleared
        {request(NEW, {}), "optedout", "old 1 0 0"},
        {request(NEW, true), "optedin", "old 0 1 0"},  // the flag beats "vid"
        {request(nullptr, false, false), "optedin", "old 0 0 1"},
        // GENERIC_IDENTITY is a sync without any flag; it comes over the bus.
        {EventBuilder("generic", EventType::GENERIC_IDENTITY, EventSource::REQUEST_CONTENT).SetData(MakeData()).Build(),
         "", "old 0 1 0"},
    };
    for (const auto& [event, privacy, outcome] : cases) {
        SCOPED_TRACE(event->GetName() + " " + privacy);
        log.Clear();
        auto config = std::make_shared<ConfigurationSharedStateIdentity>(MakeData({{"global.privacy", privacy}}));
        const bool over_the_bus = event->GetEventType() == EventType::GENERIC_IDENTITY;
        harness.RunInIdentityQueue([&] {
            module->user_identifier = "old";
            module->syncs.clear();
            EXPECT_TRUE(over_the_bus || module->ProcessEvent(event, config));
        });
        if (over_the_bus) harness.hub->Dispatch(event);
        Settle(harness);
        std::string seen;
        harness.RunInIdentityQueue([&] {
            seen = module->user_identifier + " " + std::to_string(log.Count(refused)) + " " +
                   std::to_string(module->syncs.size());
        });
        EXPECT_EQ(seen + " " + std::to_string(ResponsesTo(harness, event->GetResponsePairID()).size()), outcome);
    }
}
