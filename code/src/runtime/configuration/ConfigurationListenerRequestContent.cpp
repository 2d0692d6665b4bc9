#include "runtime/configuration/ConfigurationListenerRequestContent.h"

#include "runtime/values/Log.h"

namespace VelmoraMobile {

void ConfigurationListenerRequestContent::Hear(const std::shared_ptr<Event>& event) {
    std::shared_ptr<ConfigurationExtension> module = GetParentModule();
    if (!module) {
        Log::Error("Configuration", "Parent module not available");
        return;
    }
    module->HandleRequestContent(event);
}

}  // namespace VelmoraMobile
