#pragma once

#include <memory>

#include "runtime/bus/Event.h"
#include "runtime/bus/ModuleEventListener.h"
#include "runtime/configuration/ConfigurationExtension.h"

namespace VelmoraMobile {

/// Hears CONFIGURATION / REQUEST_CONTENT on the hub's delivery thread and hands the event to
/// the configuration extension, which queues the work.
class ConfigurationListenerRequestContent : public ModuleEventListener<ConfigurationExtension> {
public:
    void Hear(const std::shared_ptr<Event>& event) override;
};

}  // namespace VelmoraMobile
