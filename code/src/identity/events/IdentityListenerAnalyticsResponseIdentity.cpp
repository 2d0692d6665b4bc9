#include "identity/events/IdentityListenerAnalyticsResponseIdentity.h"

#include "runtime/values/Log.h"

namespace VelmoraMobile {

void IdentityListenerAnalyticsResponseIdentity::Hear(const std::shared_ptr<Event>& event) {
    std::shared_ptr<Identity> module = GetParentModule();
    if (!module) {
        Log::Error(Identity::LOG_PREFIX.c_str(), "Parent module not available");
        return;
    }
    module->HandleAnalyticsResponseIdentity(event);
}

}  // namespace VelmoraMobile
