#include "identity/events/IdentityListenerConfigurationResponseContent.h"

#include "runtime/values/Log.h"

namespace VelmoraMobile {

void IdentityListenerConfigurationResponseContent::Hear(const std::shared_ptr<Event>& event) {
    std::shared_ptr<Identity> module = GetParentModule();
    if (!module) {
        Log::Error(Identity::LOG_PREFIX.c_str(), "Parent module not available");
        return;
    }
    // Keeps the payload alive across the hand-over; what it says is decided in the task.
    const std::shared_ptr<EventData> data = event ? event->GetData() : nullptr;
    (void)data;
    module->HandleConfigurationResponse(event);
}

}  // namespace VelmoraMobile
