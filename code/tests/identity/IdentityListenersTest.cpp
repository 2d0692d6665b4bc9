#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "EventBuilder.h"
#include "IdentityCoreTestSupport.h"
#include "IdentityHarness.h"
#include "IdentityListenerAnalyticsResponseIdentity.h"
#include "IdentityListenerAudienceResponseContent.h"
#include "IdentityListenerBootedEvent.h"
#include "IdentityListenerConfigurationResponseContent.h"
#include "IdentityListenerGenericIdentityRequestContent.h"
#include "IdentityListenerHubSharedState.h"
#include "IdentityListenerRequestIdentity.h"
#include "LogCapture.h"

using namespace VelmoraMobile;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;
using VelmoraTest::MakeData;

namespace {

const std::string PENDING_MESSAGE = "Config not available at the time to process identity event.";
const std::string NO_MODULE_MESSAGE = "Parent module not available";

/// Records which member each listener called; used from the test thread only.
class ForwardRecordingIdentity : public Identity {
public:
    void HandleIdentityRequest(const std::shared_ptr<Event>& event) override { calls.push_back({"request", event}); }
    void Bootup(const std::shared_ptr<Event>& event) override { calls.push_back({"bootup", event}); }
    void HandleAnalyticsResponseIdentity(const std::shared_ptr<Event>& event) override {
        calls.push_back({"analytics", event});
    }
    void TryProcessEventQueue() override { calls.push_back({"drain", nullptr}); }

    std::vector<std::pair<std::string, std::shared_ptr<Event>>> calls;
};

template <typename TListener>
std::shared_ptr<TListener> ListenerOf(const std::shared_ptr<Module>& module, const std::shared_ptr<EventType>& type,
                                      const std::shared_ptr<EventSource>& source) {
    auto listener = std::make_shared<TListener>();
    listener->Init(module, type, source);
    return listener;
}

std::shared_ptr<Event> SharedStateEvent(const std::shared_ptr<EventData>& data) {
    return EventBuilder("test shared state", EventType::HUB, EventSource::SHARED_STATE).SetData(data).Build();
}

}  // namespace

TEST(IdentityListenersTest, EachListenerHandsTheEventToItsMember) {
    auto module = std::make_shared<ForwardRecordingIdentity>();
    auto event = EventBuilder("heard", EventType::IDENTITY, EventSource::REQUEST_IDENTITY).Build();

    ListenerOf<IdentityListenerRequestIdentity>(module, EventType::IDENTITY, EventSource::REQUEST_IDENTITY)
        ->Hear(event);
    ListenerOf<IdentityListenerGenericIdentityRequestContent>(module, EventType::GENERIC_IDENTITY,
                                                              EventSource::REQUEST_CONTENT)
        ->Hear(event);
    ListenerOf<IdentityListenerBootedEvent>(module, EventType::HUB, EventSource::BOOTED)->Hear(event);
    ListenerOf<IdentityListenerAnalyticsResponseIdentity>(module, EventType::ANALYTICS, EventSource::RESPONSE_IDENTITY)
        ->Hear(event);

    ASSERT_EQ(module->calls.size(), 4u);
    EXPECT_EQ(module->calls[0], std::make_pair(std::string("request"), event));
    EXPECT_EQ(module->calls[1], std::make_pair(std::string("request"), event));
    EXPECT_EQ(module->calls[2], std::make_pair(std::string("bootup"), event));
    EXPECT_EQ(module->calls[3], std::make_pair(std::string("analytics"), event));
}

TEST(IdentityListenersTest, ListenersOfAGoneModuleLogOncePerEventAndReturn) {
    LogCapture log;
    auto module = std::make_shared<Identity>();
    std::vector<std::shared_ptr<ModuleEventListenerBase>> listeners = {
        ListenerOf<IdentityListenerRequestIdentity>(module, EventType::IDENTITY, EventSource::REQUEST_IDENTITY),
        ListenerOf<IdentityListenerHubSharedState>(module, EventType::HUB, EventSource::SHARED_STATE),
        ListenerOf<IdentityListenerBootedEvent>(module, EventType::HUB, EventSource::BOOTED),
        ListenerOf<IdentityListenerConfigurationResponseContent>(module, EventType::CONFIGURATION,
                                                                 EventSource::RESPONSE_CONTENT),
        ListenerOf<IdentityListenerAudienceResponseContent>(module, EventType::ZUMA, EventSource::RESPONSE_CONTENT),
        ListenerOf<IdentityListenerAnalyticsResponseIdentity>(module, EventType::ANALYTICS,
                                                              EventSource::RESPONSE_IDENTITY),
        ListenerOf<IdentityListenerGenericIdentityRequestContent>(module, EventType::GENERIC_IDENTITY,
                                                                  EventSource::REQUEST_CONTENT),
    };
    module.reset();

    auto event = SharedStateEvent(MakeData({{"stateowner", "com.velmora.module.configuration"}}));
    for (const auto& listener : listeners) {
        listener->Hear(event);
        listener->Hear(event);
    }
    EXPECT_EQ(log.Count(NO_MODULE_MESSAGE), 14u);
    for (const auto& line : log.Lines()) {
        if (line.message == NO_MODULE_MESSAGE) {
            EXPECT_EQ(line.mode, LoggingMode::ERROR_LOG);
            EXPECT_EQ(line.tag, "com.velmora.module.identity");
        }
    }
}

TEST(IdentityListenersTest, SharedStateFilterRejectsMissingDataAndOwnersThatAreNoString) {
    LogCapture log;
    auto module = std::make_shared<ForwardRecordingIdentity>();
    auto listener = ListenerOf<IdentityListenerHubSharedState>(module, EventType::HUB, EventSource::SHARED_STATE);

    EXPECT_FALSE(listener->ShouldProcessEvent(nullptr));
    EXPECT_TRUE(log.Contains("Failed to process event (data was null)"));

    auto numeric_owner = std::make_shared<EventData>();
    numeric_owner->PutInteger("stateowner", 1);
    EXPECT_FALSE(listener->ShouldProcessEvent(numeric_owner));
    EXPECT_FALSE(listener->ShouldProcessEvent(std::make_shared<EventData>()));
    EXPECT_EQ(log.Count("Failed to process shared state update event (invalid state owner)"), 2u);

    // An empty owner passes the filter and then matches nothing.
    EXPECT_TRUE(listener->ShouldProcessEvent(MakeData({{"stateowner", ""}})));
    listener->Hear(SharedStateEvent(MakeData({{"stateowner", ""}})));
    EXPECT_TRUE(module->calls.empty());

    listener->Hear(SharedStateEvent(MakeData({{"stateowner", "com.velmora.module.configuration"}})));
    ASSERT_EQ(module->calls.size(), 1u);
    EXPECT_EQ(module->calls[0].first, "drain");
}

TEST(IdentityListenersTest, OnlyTheConfigurationsOwnStateWakesTheQueue) {
    LogCapture log;
    IdentityHarness harness;
    harness.RegisterIdentity();
    // A request stands at the head while the configuration is pending; each drain logs once.
    harness.DispatchIdentityRequest(MakeData());
    VelmoraTest::Settle(harness);
    ASSERT_EQ(log.Count(PENDING_MESSAGE), 1u);

    for (const std::string owner :
         {"com.velmora.module.analytics", "com.velmora.module.identity", "com.velmora.module.configuration.extra",
          "com.velmora.module.config", "COM.VELMORA.MODULE.CONFIGURATION", " com.velmora.module.configuration", ""}) {
        harness.hub->Dispatch(SharedStateEvent(MakeData({{"stateowner", owner}})));
    }
    harness.hub->Dispatch(SharedStateEvent(MakeData()));
    VelmoraTest::Settle(harness);
    EXPECT_EQ(log.Count(PENDING_MESSAGE), 1u);

    harness.hub->Dispatch(SharedStateEvent(MakeData({{"stateowner", "com.velmora.module.configuration"}})));
    VelmoraTest::Settle(harness);
    EXPECT_EQ(log.Count(PENDING_MESSAGE), 2u);
}
