#include "runtime/bus/ModuleEventListenerBase.h"

#include "runtime/bus/Module.h"

namespace VelmoraMobile {

std::shared_ptr<EventType> ModuleEventListenerBase::GetEventType() {
    return event_type_;
}

std::shared_ptr<EventSource> ModuleEventListenerBase::GetEventSource() {
    return event_source_;
}

bool ModuleEventListenerBase::IsFullyRegistered() {
    return fully_registered_.load();
}

bool ModuleEventListenerBase::IsFullyUnregistered() {
    return fully_unregistered_.load();
}

void ModuleEventListenerBase::OnRegistered() {}

void ModuleEventListenerBase::OnUnregistered() {}

void ModuleEventListenerBase::Init(const std::shared_ptr<Module>& module, const std::shared_ptr<EventType>& type,
                                   const std::shared_ptr<EventSource>& source) {
    parent_module_ = module;
    event_type_ = type;
    event_source_ = source;
}

void ModuleEventListenerBase::CallOnRegistered() {
    OnRegistered();
    fully_registered_.store(true);
}

void ModuleEventListenerBase::CallOnUnregistered() {
    OnUnregistered();
    fully_unregistered_.store(true);
}

bool ModuleEventListenerBase::IsOneTime() {
    return false;
}

std::shared_ptr<Module> ModuleEventListenerBase::GetParentModuleImpl() {
    return parent_module_.lock();
}

}  // namespace VelmoraMobile
