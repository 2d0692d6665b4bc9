#include "identity/module/Identity.h"

#include <chrono>

#include "identity/events/IdentityDispatcherAnalyticsRequestContent.h"
#include "identity/events/IdentityDispatcherConfigurationRequestContent.h"
#include "identity/events/IdentityDispatcherIdentityResponseIdentity.h"
#include "identity/events/IdentityListenerAnalyticsResponseIdentity.h"
#include "identity/events/IdentityListenerAudienceResponseContent.h"
#include "identity/events/IdentityListenerBootedEvent.h"
#include "identity/events/IdentityListenerConfigurationResponseContent.h"
#include "identity/events/IdentityListenerGenericIdentityRequestContent.h"
#include "identity/events/IdentityListenerHubSharedState.h"
#include "identity/events/IdentityListenerRequestIdentity.h"
#include "identity/hits/IdentityHitDatabase.h"
#include "identity/module/ConfigurationSharedStateIdentity.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/bus/EventBuilder.h"
#include "runtime/values/TryCatch.h"

namespace VelmoraMobile {

namespace IdentityKeys = IdentityConstants::EventDataKeys::Identity;

const std::string Identity::LOG_PREFIX = IdentityConstants::EventDataKeys::Identity::SHARED_STATE_NAME;
const std::string Identity::IDENTITY_PROPERTIES_DATA_STORE_NAME = "visitorIDServiceDataStore";

// ttl, last_sync and push_enabled are left alone on purpose: LoadVariablesFromPersistentData,
// the last step of OnRegistered, gives the first two their values before anything reads them,
// and push_enabled is only ever written.
Identity::Identity() : InternalModule(IdentityKeys::SHARED_STATE_NAME), privacy_status(MobilePrivacyStatus::OPT_IN) {}

// Members go in reverse order of declaration: hit_database first, then event_queue, the
// dispatchers, latest_valid_config and the identifiers back to mid. The hit database's
// processor holds this module, so that cycle must already have been broken by the
// "unregistration" task for the destructor to run at all.
Identity::~Identity() = default;

std::string Identity::GetSharedStateName() {
    return IdentityKeys::SHARED_STATE_NAME;
}

void Identity::OnRegistered() {
    RegisterListener<IdentityListenerRequestIdentity>(EventType::IDENTITY, EventSource::REQUEST_IDENTITY);
    RegisterListener<IdentityListenerHubSharedState>(EventType::HUB, EventSource::SHARED_STATE);
    RegisterListener<IdentityListenerBootedEvent>(EventType::HUB, EventSource::BOOTED);
    RegisterListener<IdentityListenerConfigurationResponseContent>(EventType::CONFIGURATION,
                                                                   EventSource::RESPONSE_CONTENT);
    RegisterListener<IdentityListenerAudienceResponseContent>(EventType::ZUMA, EventSource::RESPONSE_CONTENT);
    RegisterListener<IdentityListenerAnalyticsResponseIdentity>(EventType::ANALYTICS, EventSource::RESPONSE_IDENTITY);
    RegisterListener<IdentityListenerGenericIdentityRequestContent>(EventType::GENERIC_IDENTITY,
                                                                    EventSource::REQUEST_CONTENT);

    event_queue = std::deque<std::shared_ptr<Event>>();

    analytics_dispatcher = CreateDispatcher<IdentityDispatcherAnalyticsRequestContent>();
    configuration_dispatcher = CreateDispatcher<IdentityDispatcherConfigurationRequestContent>();
    identity_response_dispatcher = CreateDispatcher<IdentityDispatcherIdentityResponseIdentity>();

    // A failure here costs the hit queue alone; the persisted identity still loads below.
    TrySwallow([this] {
        std::shared_ptr<Identity> module = ObjectToSharedPtr<Identity>(this);
        std::shared_ptr<PlatformServicesInterface> platform_services = GetPlatformServices();
        hit_database = IdentityHitDatabase::CreateIdentityDatabase(module, platform_services, nullptr);
        // privacy_status is still opted in here, so stored hits may go out before the first
        // configuration; the real status follows at boot. A failed creation is not tested for:
        // the module cannot work without its hit queue.
        hit_database->UpdatePrivacyStatus(privacy_status);
    });

    LoadVariablesFromPersistentData();
}

// On the hub's delivery thread, maybe beside a task: it only reads hit_database, which no task
// writes but the one added here.
void Identity::OnUnregistered() {
    if (!hit_database) {
        return;
    }
    // Tell the queue to stop now; the wait for its worker happens in the task below.
    hit_database->Dispose(std::chrono::milliseconds(0));
    AddTaskToQueue(
        "unregistration",
        [this] {
            while (!hit_database->Dispose(std::chrono::milliseconds(1000))) {
            }
            // The processor holds this module: dropping the database breaks that cycle.
            hit_database.reset();
        },
        Module::REQUIRED_FOR_UNREGISTRATION);
}

void Identity::Bootup(const std::shared_ptr<Event>& event) {
    AddTaskToQueue("IdentityBootup", [this, event] {
        LoadPrivacyStatus(event);

        auto data = std::make_shared<EventData>();
        data->PutBoolean(IdentityKeys::FORCE_SYNC, true);
        data->PutBoolean(IdentityKeys::IS_SYNC_EVENT, true);
        data->PutInteger(IdentityKeys::AUTHENTICATION_STATE, 0);
        // Numbered like the booted event, so the configuration of the boot decides it and the
        // state it creates is versioned at the boot. It never goes through the bus.
        std::shared_ptr<Event> forced_sync =
            EventBuilder("id-construct-forced-sync", EventType::IDENTITY, EventSource::REQUEST_IDENTITY)
                .SetData(data)
                .SetEventNumber(event->GetEventNumber())
                .Build();
        event_queue.push_back(forced_sync);

        ProcessEventQueue();
    });
}

}  // namespace VelmoraMobile
