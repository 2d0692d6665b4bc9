#include "EventSource.h"

#include <mutex>
#include <unordered_map>

#include "EarlyInit.h"

namespace VelmoraMobile {

std::shared_ptr<EventSource> EventSource::Get(const std::string& name) {
    static std::mutex mutex;
    static std::unordered_map<std::string, std::shared_ptr<EventSource>> registry;
    std::lock_guard<std::mutex> lock(mutex);
    std::shared_ptr<EventSource>& entry = registry[name];
    if (!entry) {
        entry.reset(new EventSource(name));
    }
    return entry;
}

std::string EventSource::ToStringImpl(const ToStringOptions&) const {
    return name_;
}

const std::shared_ptr<EventSource> EventSource::BOOTED VELMORA_RUNTIME_EARLY_INIT =
    EventSource::Get("com.velmora.eventSource.booted");
const std::shared_ptr<EventSource> EventSource::SHARED_STATE VELMORA_RUNTIME_EARLY_INIT =
    EventSource::Get("com.velmora.eventSource.sharedState");
const std::shared_ptr<EventSource> EventSource::REQUEST_CONTENT VELMORA_RUNTIME_EARLY_INIT =
    EventSource::Get("com.velmora.eventSource.requestContent");
const std::shared_ptr<EventSource> EventSource::REQUEST_IDENTITY VELMORA_RUNTIME_EARLY_INIT =
    EventSource::Get("com.velmora.eventSource.requestIdentity");
const std::shared_ptr<EventSource> EventSource::RESPONSE_CONTENT VELMORA_RUNTIME_EARLY_INIT =
    EventSource::Get("com.velmora.eventSource.responseContent");
const std::shared_ptr<EventSource> EventSource::RESPONSE_IDENTITY VELMORA_RUNTIME_EARLY_INIT =
    EventSource::Get("com.velmora.eventSource.responseIdentity");

}  // namespace VelmoraMobile
