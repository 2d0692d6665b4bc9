#include "identity/module/ConfigurationSharedStateIdentity.h"
#include "identity/module/Identity.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/bus/SharedStatePending.h"
#include "runtime/values/Log.h"

namespace VelmoraMobile {

namespace IdentityKeys = IdentityConstants::EventDataKeys::Identity;

void Identity::HandleIdentityRequest(const std::shared_ptr<Event>& event) {
    if (!event) {
        return;
    }
    AddTaskToQueue("IdentityHandleIdentityRequest", [this, event] {
        event_queue.push_back(event);
        ProcessEventQueue();
    });
}

void Identity::TryProcessEventQueue() {
    AddTaskToQueue("TryProcessEventQueue", [this] { ProcessEventQueue(); });
}

void Identity::ProcessEventQueue() {
    while (!event_queue.empty()) {
        // Our own reference: handlers may touch the queue (an opt-out clears it).
        const std::shared_ptr<Event> event = event_queue.front();
        const std::shared_ptr<EventData> config_state =
            GetSharedEventState(IdentityConstants::EventDataKeys::Configuration::SHARED_STATE_NAME, event);
        if (config_state == SHARED_STATE_PENDING) {
            Log::Trace(LOG_PREFIX.c_str(), "Config not available at the time to process identity event.");
            return;
        }
        // Most events meet the same configuration state: its view is made once. A missing state
        // is looked at anew each time (and logged so).
        if (!config_state || config_state != config_view_source_) {
            config_view_ = std::make_shared<ConfigurationSharedStateIdentity>(config_state);
            config_view_source_ = config_state;
        }
        const std::shared_ptr<ConfigurationSharedStateIdentity> config = config_view_;
        if (!ProcessEvent(event, config)) {
            Log::Trace(LOG_PREFIX.c_str(),
                       "Config settings not valid to process the identity event. Processing will resume when a "
                       "valid configuration is obtained.");
            return;
        }
        // Removed only now, so that a refused head is judged again in full at the next drain.
        // The test keeps a handler that emptied the queue from costing another event its place.
        if (!event_queue.empty() && event_queue.front() == event) {
            event_queue.pop_front();
        }
    }
}

bool Identity::ProcessEvent(const std::shared_ptr<Event>& event,
                            const std::shared_ptr<ConfigurationSharedStateIdentity>& config) {
    if (!event) {
        Log::Trace(LOG_PREFIX.c_str(), "Null event.");
        return true;
    }
    // Every event carries data, empty when none was given; the order of the tests below is
    // what decides an event that carries several of the keys.
    const std::shared_ptr<EventData>& data = event->GetData();

    if (data->OptBoolean(IdentityKeys::IS_SYNC_EVENT, false)) {
        return HandleSyncIdentifiers(event, config);
    }
    if (event->GetEventType() == EventType::GENERIC_IDENTITY) {
        return HandleSyncIdentifiers(event, config);
    }
    if (data->ContainsKey(IdentityKeys::USER_IDENTIFIER)) {
        if (config->GetPrivacyStatus() == MobilePrivacyStatus::OPT_OUT) {
            Log::Debug(LOG_PREFIX.c_str(), "cannot set user identifier with privacy opt out. sharing");
            return true;
        }
        // A value that is no string clears the identifier, as an empty one does.
        std::string user_identifier;
        data->GetString(IdentityKeys::USER_IDENTIFIER, user_identifier);
        UpdateUserIdentifier(user_identifier);
        CreateSharedState(event->GetEventNumber(), PackageEventData());
        return true;
    }
    if (data->ContainsKey(IdentityKeys::BASE_URL)) {
        HandleAppendUrl(event, config);
        return true;
    }
    static const std::string ONE_TIME_RESPONSE_NAME = "IDENTITY_RESPONSE_CONTENT_ONE_TIME";
    HandleIdentifiersRequest(ONE_TIME_RESPONSE_NAME, event->GetResponsePairID());
    return true;
}

void Identity::HandleIdentifiersRequest(const std::string& event_name, const std::string& pair_id) {
    HandleIdentityResponseEvent(event_name, PackageEventData(), pair_id);
}

void Identity::ClearEventsQueue() {
    for (auto it = event_queue.begin(); it != event_queue.end();) {
        const std::shared_ptr<Event> event = *it;
        // URL requests survive the opt-out and are answered by the next drain.
        if (event->GetData()->ContainsKey(IdentityKeys::BASE_URL)) {
            ++it;
            continue;
        }
        HandleIdentityResponseEvent("IDENTITY_RESPONSE", PackageEventData(), event->GetResponsePairID());
        it = event_queue.erase(it);
    }
}

}  // namespace VelmoraMobile
