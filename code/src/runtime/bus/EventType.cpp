#include "runtime/bus/EventType.h"

#include "runtime/values/EarlyInit.h"
#include "runtime/values/NamedSingletonRegistry.h"

namespace VelmoraMobile {

std::shared_ptr<EventType> EventType::Get(const std::string& name) {
    static NamedSingletonRegistry<EventType> registry;
    return registry.Get(name, [](const std::string& n) { return std::shared_ptr<EventType>(new EventType(n)); });
}

std::string EventType::ToStringImpl(const ToStringOptions&) const {
    return name_;
}

const std::shared_ptr<EventType> EventType::HUB VELMORA_RUNTIME_EARLY_INIT =
    EventType::Get("com.velmora.eventType.hub");
const std::shared_ptr<EventType> EventType::CONFIGURATION VELMORA_RUNTIME_EARLY_INIT =
    EventType::Get("com.velmora.eventType.configuration");
const std::shared_ptr<EventType> EventType::IDENTITY VELMORA_RUNTIME_EARLY_INIT =
    EventType::Get("com.velmora.eventType.identity");
const std::shared_ptr<EventType> EventType::GENERIC_IDENTITY VELMORA_RUNTIME_EARLY_INIT =
    EventType::Get("com.velmora.eventType.generic.identity");
const std::shared_ptr<EventType> EventType::ANALYTICS VELMORA_RUNTIME_EARLY_INIT =
    EventType::Get("com.velmora.eventType.analytics");
const std::shared_ptr<EventType> EventType::ZUMA VELMORA_RUNTIME_EARLY_INIT =
    EventType::Get("com.velmora.eventType.zuma");

}  // namespace VelmoraMobile
