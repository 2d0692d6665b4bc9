#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "runtime/bus/Event.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

class EventHub;
class Module;

/// Sends a module's events to the hub. Made by Module::CreateDispatcher<>, owned by the module
/// (and by whoever keeps the returned pointer); holds the module and the hub weakly, so it never
/// keeps either alive. Every operation may be called from any thread once Init has run.
class ModuleEventDispatcherBase : public virtual Object {
public:
    ModuleEventDispatcherBase() = default;
    ~ModuleEventDispatcherBase() override = default;

    virtual bool IsFullyRegistered();
    virtual bool IsFullyUnregistered();
    /// Puts the event on the bus; dropped with a debug line when the hub is gone.
    virtual void Dispatch(const std::shared_ptr<Event>& event);
    /// Hooks around the dispatcher's life in its module; empty by default.
    virtual void OnRegistered();
    virtual void OnUnregistered();
    /// Called by the module before the dispatcher is handed out.
    virtual void Init(const std::shared_ptr<Module>& module, const std::shared_ptr<EventHub>& hub);
    virtual void CallOnRegistered();
    virtual void CallOnUnregistered();
    virtual std::shared_ptr<Module> GetParentModuleImpl();

    /// The module, or null once it is gone.
    std::shared_ptr<Module> GetParentModule() { return GetParentModuleImpl(); }

private:
    std::mutex mutex_;
    std::weak_ptr<Module> parent_module_;
    std::weak_ptr<EventHub> hub_;
    std::atomic<bool> fully_registered_{false};
    std::atomic<bool> fully_unregistered_{false};
};

}  // namespace VelmoraMobile
