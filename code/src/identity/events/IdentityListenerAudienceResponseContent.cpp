#include "identity/events/IdentityListenerAudienceResponseContent.h"

#include "runtime/values/Log.h"

namespace VelmoraMobile {

void IdentityListenerAudienceResponseContent::Hear(const std::shared_ptr<Event>& event) {
    std::shared_ptr<Identity> module = GetParentModule();
    if (!module) {
        Log::Error(Identity::LOG_PREFIX.c_str(), "Parent module not available");
        return;
    }
    module->HandleAudienceResponse(event);
}

}  // namespace VelmoraMobile
