#include "identity/events/IdentityDispatcherConfigurationRequestContent.h"

#include "runtime/bus/EventBuilder.h"

namespace VelmoraMobile {

void IdentityDispatcherConfigurationRequestContent::DispatchConfigUpdateRequest(
    const std::shared_ptr<EventData>& data) {
    Dispatch(EventBuilder("Configuration Update From Identity Module", EventType::CONFIGURATION,
                          EventSource::REQUEST_CONTENT)
                 .SetData(data)
                 .Build());
}

}  // namespace VelmoraMobile
