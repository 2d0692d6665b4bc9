#include "identity/module/ConfigurationSharedStateIdentity.h"
#include "identity/module/Identity.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/bus/EventBuilder.h"
#include "runtime/bus/EventSource.h"
#include "runtime/bus/EventType.h"
#include "runtime/bus/SharedStatePending.h"
#include "runtime/values/Log.h"

namespace VelmoraMobile {

void Identity::HandleAnalyticsResponseIdentity(const std::shared_ptr<Event>& event) {
    if (!event || !event->GetData()) {
        return;
    }
    AddTaskToQueue("HandleAnalyticsResponseIdentity", [this, event] {
        namespace Keys = IdentityConstants::EventDataKeys;
        const std::string analytics_id = event->GetData()->OptString(Keys::Analytics::ANALYTICS_ID, "");
        if (analytics_id.empty()) {
            return;
        }
        // Without the store there is no way to remember the sync, so none is made.
        std::shared_ptr<DataStoreInterface> store = GetIdentityDataStore();
        if (!store) {
            return;
        }
        // The key records that a sync happened at all, not for which id.
        if (store->Contains(IdentityConstants::DataStoreKeys::AID_SYNCED_KEY)) {
            return;
        }
        // Marked before the sync runs: its outcome does not matter, it is never tried twice.
        store->SetBoolean(IdentityConstants::DataStoreKeys::AID_SYNCED_KEY, true);

        auto data = std::make_shared<EventData>();
        data->PutStringMap(Keys::Identity::IDENTIFIERS, {{Keys::Identity::ANALYTICS_ID, analytics_id}});
        data->PutBoolean(Keys::Identity::FORCE_SYNC, false);
        data->PutBoolean(Keys::Identity::IS_SYNC_EVENT, true);
        data->PutInteger(Keys::Identity::AUTHENTICATION_STATE, 0);
        // Numbered like the response, so the configuration at that place decides the sync.
        std::shared_ptr<Event> sync = EventBuilder("AVID Sync", EventType::IDENTITY, EventSource::REQUEST_IDENTITY)
                                          .SetData(data)
                                          .SetEventNumber(event->GetEventNumber())
                                          .Build();
        event_queue.push_back(sync);
        ProcessEventQueue();
    });
}

void Identity::HandleAudienceResponse(const std::shared_ptr<Event>& event) {
    if (!event || !event->GetData()) {
        return;
    }
    AddTaskToQueue("HandleAudienceResponse", [this, event] {
        // Only an explicit false says the audience extension left the opt-out to us.
        if (event->GetData()->OptBoolean(IdentityConstants::EventDataKeys::Audience::OPTED_OUT_HIT_SENT, true)) {
            return;
        }
        std::shared_ptr<EventData> state =
            GetSharedEventState(IdentityConstants::EventDataKeys::Configuration::SHARED_STATE_NAME, event);
        if (state == SHARED_STATE_PENDING) {
            Log::Trace(LOG_PREFIX.c_str(), "Configuration state not available at time to proces Audience event.");
            return;
        }
        // The status at the response's place in the order, not privacy_status.
        auto config = std::make_shared<ConfigurationSharedStateIdentity>(state);
        if (config->GetPrivacyStatus() == MobilePrivacyStatus::OPT_OUT) {
            SendOptOutHit(config);
        }
    });
}

}  // namespace VelmoraMobile
