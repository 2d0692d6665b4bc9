#include "runtime/configuration/ConfigurationDispatcherResponseContent.h"

#include "runtime/bus/EventBuilder.h"

namespace VelmoraMobile {

void ConfigurationDispatcherResponseContent::DispatchResponse(const std::shared_ptr<EventData>& configuration,
                                                              const std::string& pair_id) {
    EventBuilder builder("Configuration Response Event", EventType::CONFIGURATION, EventSource::RESPONSE_CONTENT);
    builder.SetData(configuration);
    if (!pair_id.empty()) {
        builder.SetPairID(pair_id);
    }
    Dispatch(builder.Build());
}

}  // namespace VelmoraMobile
