#include "EventType.h"

#include <mutex>
#include <unordered_map>

#include "EarlyInit.h"

namespace VelmoraMobile {

std::shared_ptr<EventType> EventType::Get(const std::string& name) {
    static std::mutex mutex;
    static std::unordered_map<std::string, std::shared_ptr<EventType>> registry;
    std::lock_guard<std::mutex> lock(mutex);
    std::shared_ptr<EventType>& entry = registry[name];
    if (!entry) {
        entry.reset(new EventType(name));
    }
    return entry;
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
