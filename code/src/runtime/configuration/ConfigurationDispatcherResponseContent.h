#pragma once

#include <memory>
#include <string>

#include "runtime/bus/EventData.h"
#include "runtime/bus/ModuleEventDispatcher.h"

namespace VelmoraMobile {

class ConfigurationExtension;

/// Sends the configuration as a CONFIGURATION / RESPONSE_CONTENT event. Any thread.
class ConfigurationDispatcherResponseContent : public ModuleEventDispatcher<ConfigurationExtension> {
public:
    /// `pair_id` answers a request; empty for a change nobody asked for.
    void DispatchResponse(const std::shared_ptr<EventData>& configuration, const std::string& pair_id);
};

}  // namespace VelmoraMobile
