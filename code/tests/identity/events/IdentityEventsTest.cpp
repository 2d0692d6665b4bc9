#include <gtest/gtest.h>

#include <memory>
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
using VelmoraTest::LogCapture;
using VelmoraTest::MakeData;

TEST(IdentityListenersTest, ListenersOfAGoneModuleLogAndReturn) {
    LogCapture log;
    auto module = std::make_shared<Identity>();
    const std::vector<std::shared_ptr<ModuleEventListenerBase>> listeners = {
        std::make_shared<IdentityListenerRequestIdentity>(),
        std::make_shared<IdentityListenerHubSharedState>(),
        std::make_shared<IdentityListenerBootedEvent>(),
        std::make_shared<IdentityListenerConfigurationResponseContent>(),
        std::make_shared<IdentityListenerAudienceResponseContent>(),
        std::make_shared<IdentityListenerAnalyticsResponseIdentity>(),
        std::make_shared<IdentityListenerGenericIdentityRequestContent>()};
    // The type and source a listener is registered for play no part in what it does with an event.
    for (const auto& listener : listeners) listener->Init(module, EventType::HUB, EventSource::SHARED_STATE);
    module.reset();
    auto event = EventBuilder("test event", EventType::HUB, EventSource::SHARED_STATE)
                     .SetData(MakeData({{"stateowner", "com.velmora.module.configuration"}}))
                     .Build();
    for (const auto& listener : listeners) listener->Hear(event);
    EXPECT_EQ(VelmoraTest::CountIdentityLines(log, LoggingMode::ERROR_LOG, "Parent module not available"),
              listeners.size());
}
