#pragma once

#include <atomic>
#include <memory>

#include "runtime/bus/Event.h"
#include "runtime/bus/EventSource.h"
#include "runtime/bus/EventType.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

class Module;

/// Hears the events of one type and source for its module. Made by Module::RegisterListener<>,
/// owned by the module's listener table; holds its module weakly.
///
/// Threads: Hear is called on the hub's delivery thread, outside the module's task queue, so an
/// implementation should only hand the event to a member that adds a task. The rest may be
/// called from any thread once Init has run.
class ModuleEventListenerBase : public virtual Object {
public:
    ModuleEventListenerBase() = default;
    ~ModuleEventListenerBase() override = default;

    virtual std::shared_ptr<EventType> GetEventType();
    virtual std::shared_ptr<EventSource> GetEventSource();
    virtual void Hear(const std::shared_ptr<Event>& event) = 0;
    virtual bool IsFullyRegistered();
    virtual bool IsFullyUnregistered();
    /// Hooks around the listener's life in the module's table; empty by default.
    virtual void OnRegistered();
    virtual void OnUnregistered();
    /// Called by the module before the listener enters its table.
    virtual void Init(const std::shared_ptr<Module>& module, const std::shared_ptr<EventType>& type,
                      const std::shared_ptr<EventSource>& source);
    virtual void CallOnRegistered();
    virtual void CallOnUnregistered();
    virtual bool IsOneTime();
    virtual std::shared_ptr<Module> GetParentModuleImpl();

    /// The module, or null once it is gone.
    std::shared_ptr<Module> GetParentModule() { return GetParentModuleImpl(); }

private:
    std::weak_ptr<Module> parent_module_;
    std::shared_ptr<EventType> event_type_;
    std::shared_ptr<EventSource> event_source_;
    std::atomic<bool> fully_registered_{false};
    std::atomic<bool> fully_unregistered_{false};
};

}  // namespace VelmoraMobile
