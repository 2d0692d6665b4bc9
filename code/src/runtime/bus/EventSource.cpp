#include "runtime/bus/EventSource.h"

#include "runtime/values/EarlyInit.h"
#include "runtime/values/NamedSingletonRegistry.h"

namespace VelmoraMobile {

std::shared_ptr<EventSource> EventSource::Get(const std::string& name) {
    static NamedSingletonRegistry<EventSource> registry;
    return registry.Get(name, [](const std::string& n) { return std::shared_ptr<EventSource>(new EventSource(n)); });
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
