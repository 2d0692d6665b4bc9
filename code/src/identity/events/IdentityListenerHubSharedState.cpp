#include "identity/events/IdentityListenerHubSharedState.h"

#include <string>

#include "identity/module/IdentityConstants.h"
#include "runtime/values/Log.h"

namespace VelmoraMobile {

void IdentityListenerHubSharedState::Hear(const std::shared_ptr<Event>& event) {
    const std::shared_ptr<EventData> data = event ? event->GetData() : nullptr;
    if (!ShouldProcessEvent(data)) {
        return;
    }
    std::shared_ptr<Identity> module = GetParentModule();
    std::string state_owner;
    data->GetString(IdentityConstants::EventDataKeys::STATE_OWNER, state_owner);
    // Only the configuration's state can unblock the queue; every other owner, this module
    // included, is ignored.
    if (module && state_owner == IdentityConstants::EventDataKeys::Configuration::SHARED_STATE_NAME) {
        module->TryProcessEventQueue();
    }
}

bool IdentityListenerHubSharedState::ShouldProcessEvent(const std::shared_ptr<EventData>& data) {
    if (!data) {
        Log::Trace(Identity::LOG_PREFIX.c_str(), "Failed to process event (data was null)");
        return false;
    }
    if (!GetParentModule()) {
        Log::Error(Identity::LOG_PREFIX.c_str(), "Parent module not available");
        return false;
    }
    std::string state_owner;
    if (!data->GetString(IdentityConstants::EventDataKeys::STATE_OWNER, state_owner)) {
        Log::Trace(Identity::LOG_PREFIX.c_str(), "Failed to process shared state update event (invalid state owner)");
        return false;
    }
    return true;
}

}  // namespace VelmoraMobile
