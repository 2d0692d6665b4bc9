#include "runtime/bus/ModuleEventDispatcherBase.h"

#include "runtime/bus/EventHub.h"
#include "runtime/bus/Module.h"
#include "runtime/values/Log.h"

namespace VelmoraMobile {

bool ModuleEventDispatcherBase::IsFullyRegistered() {
    return fully_registered_.load();
}

bool ModuleEventDispatcherBase::IsFullyUnregistered() {
    return fully_unregistered_.load();
}

void ModuleEventDispatcherBase::Dispatch(const std::shared_ptr<Event>& event) {
    std::shared_ptr<EventHub> hub;
    std::shared_ptr<Module> module;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        hub = hub_.lock();
        if (!hub) {
            module = parent_module_.lock();
        }
    }
    // A dispatcher made before its module met the hub finds the hub through the module.
    if (!hub && module) {
        hub = module->GetEventHub();
    }
    if (!hub) {
        Log::Debug("EventHub", "Dropped an event: its dispatcher has no hub (%s)", event);
        return;
    }
    hub->Dispatch(event);
}

void ModuleEventDispatcherBase::OnRegistered() {}

void ModuleEventDispatcherBase::OnUnregistered() {}

void ModuleEventDispatcherBase::Init(const std::shared_ptr<Module>& module, const std::shared_ptr<EventHub>& hub) {
    std::lock_guard<std::mutex> lock(mutex_);
    parent_module_ = module;
    hub_ = hub;
}

void ModuleEventDispatcherBase::CallOnRegistered() {
    OnRegistered();
    fully_registered_.store(true);
}

void ModuleEventDispatcherBase::CallOnUnregistered() {
    OnUnregistered();
    fully_unregistered_.store(true);
}

std::shared_ptr<Module> ModuleEventDispatcherBase::GetParentModuleImpl() {
    std::lock_guard<std::mutex> lock(mutex_);
    return parent_module_.lock();
}

}  // namespace VelmoraMobile
