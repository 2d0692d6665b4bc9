#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "identity/events/IdentityListenerAnalyticsResponseIdentity.h"
#include "identity/events/IdentityListenerAudienceResponseContent.h"
#include "identity/events/IdentityListenerBootedEvent.h"
#include "identity/events/IdentityListenerConfigurationResponseContent.h"
#include "identity/events/IdentityListenerGenericIdentityRequestContent.h"
#include "identity/events/IdentityListenerHubSharedState.h"
#include "identity/events/IdentityListenerRequestIdentity.h"
#include "runtime/bus/EventBuilder.h"
#include "tests/identity/ids/IdentitySyncTestSupport.h"
#include "tests/identity/support/IdentityCoreTestSupport.h"
#include "tests/support/LogCapture.h"

using namespace VelmoraMobile;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;
using VelmoraTest::MakeData;
using VelmoraTest::Settle;

namespace {

const std::string PENDING_MESSAGE = "Config not available at the time to process identity event.";

// The type and source a listener is registered for play no part in what it does with an event.
template <typename TListener>
std::shared_ptr<ModuleEventListenerBase> ListenerOf(const std::shared_ptr<Module>& module) {
    auto listener = std::make_shared<TListener>();
    listener->Init(module, EventType::HUB, EventSource::SHARED_STATE);
    return listener;
}

std::shared_ptr<Event> SharedStateEvent(const std::shared_ptr<EventData>& data) {
    return EventBuilder("test event", EventType::HUB, EventSource::SHARED_STATE).SetData(data).Build();
}

}  // namespace

TEST(IdentityListenersTest, ListenersOfAGoneModuleLogAndReturn) {
    LogCapture log;
    auto module = std::make_shared<Identity>();
    const std::vector<std::shared_ptr<ModuleEventListenerBase>> listeners = {
        ListenerOf<IdentityListenerRequestIdentity>(module),
        ListenerOf<IdentityListenerHubSharedState>(module),
        ListenerOf<IdentityListenerBootedEvent>(module),
        ListenerOf<IdentityListenerConfigurationResponseContent>(module),
        ListenerOf<IdentityListenerAudienceResponseContent>(module),
        ListenerOf<IdentityListenerAnalyticsResponseIdentity>(module),
        ListenerOf<IdentityListenerGenericIdentityRequestContent>(module)};
    module.reset();
    auto event = SharedStateEvent(MakeData({{"stateowner", "com.velmora.module.configuration"}}));
    for (const auto& listener : listeners) listener->Hear(event);
    EXPECT_EQ(VelmoraTest::CountIdentityLines(log, LoggingMode::ERROR_LOG, "Parent module not available"),
              listeners.size());
}

TEST(IdentityListenersTest, OnlyTheConfigurationsOwnStateWakesTheQueue) {
    LogCapture log;
    IdentityHarness harness;
    harness.RegisterIdentity();
    // A request stands at the head while the configuration is pending; each drain logs once.
    harness.DispatchIdentityRequest(MakeData());
    Settle(harness);
    ASSERT_EQ(log.Count(PENDING_MESSAGE), 1u);

    for (const std::string owner :
         {"com.velmora.module.analytics", "com.velmora.module.identity", "com.velmora.module.configuration.extra",
          "com.velmora.module.config", "COM.VELMORA.MODULE.CONFIGURATION", " com.velmora.module.configuration", ""}) {
        harness.hub->Dispatch(SharedStateEvent(MakeData({{"stateowner", owner}})));
    }
    harness.hub->Dispatch(SharedStateEvent(MakeData()));  // no owner
    Settle(harness);
    EXPECT_EQ(log.Count(PENDING_MESSAGE), 1u);
    EXPECT_EQ(log.Count("Failed to process shared state update event (invalid state owner)"), 1u);

    harness.hub->Dispatch(SharedStateEvent(MakeData({{"stateowner", "com.velmora.module.configuration"}})));
    Settle(harness);
    EXPECT_EQ(log.Count(PENDING_MESSAGE), 2u);
}
