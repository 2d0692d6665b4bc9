#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <typeinfo>

#include "runtime/bus/Event.h"
#include "runtime/bus/EventData.h"
#include "runtime/bus/EventSource.h"
#include "runtime/bus/EventType.h"
#include "runtime/bus/Module.h"
#include "runtime/bus/TaskExecutorInterface.h"
#include "runtime/services/PlatformServicesInterface.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// The event bus: numbers and delivers events, keeps the modules' shared states, runs the
/// modules' task queues on its executor and drives their life cycle.
///
/// Hold it in a shared_ptr (std::make_shared<EventHub>(services)); it owns its registered
/// modules, which hold it only weakly. One thread of its own delivers events strictly in the
/// order they were dispatched, which is the order of the numbers it gives them: to every
/// matching listener of every module, in the order the modules were registered, then to the
/// one-time listener of the event's type, source and pair id.
///
/// Threads: Dispatch, RegisterModule, RegisterOneTimeListener, IsRegisteredModule,
/// FinishModulesRegistration and the state getters may be called on any thread, including the
/// hub's own. UnregisterModule and Shutdown wait for the work they start; called on the hub's
/// delivery thread or on its executor they cannot wait, so UnregisterModule then only starts the
/// unregistration and Shutdown does nothing but log (the hub stops when it is destroyed).
///
/// Stopping: Shutdown(deadline) unregisters every module, runs their remaining tasks (those
/// added with REQUIRED_FOR_UNREGISTRATION included), delivers what they dispatched and joins the
/// delivery thread and the executor it made, all within `deadline`. When it returns true no
/// thread of the hub runs any more and no module task will start. Past the deadline it drops
/// the tasks still queued, leaves a stuck listener or task to finish alone on its thread (which
/// then starts nothing new), logs what it abandoned and returns false.
///
/// Destroying the hub does what Shutdown does, with DEFAULT_SHUTDOWN_DEADLINE, so a hub dropped
/// without Shutdown still unregisters its modules and ends its threads. The last reference may
/// be dropped anywhere, also inside a listener or a task (the delivery thread itself holds the
/// hub for a moment while it registers a module); on a hub thread the destructor cannot wait, so
/// it hands the same stop to a thread of its own and returns at once.
class EventHub : public Object {
public:
    using OneTimeCallback = std::function<void(const std::shared_ptr<Event>&)>;

    /// What Shutdown() and the destructor allow the modules: long enough for a hit in flight to
    /// end by its own timeouts, short enough that a stuck one cannot hold the host.
    static constexpr std::chrono::milliseconds DEFAULT_SHUTDOWN_DEADLINE{10000};

    /// `platform_services` (may be empty) is handed to every module. Without `task_executor` the
    /// hub makes a small thread pool of its own.
    explicit EventHub(std::shared_ptr<PlatformServicesInterface> platform_services,
                      std::shared_ptr<TaskExecutorInterface> task_executor = nullptr);
    ~EventHub() override;
    EventHub(const EventHub&) = delete;
    EventHub& operator=(const EventHub&) = delete;

    /// Gives the event the next number (unless its builder set one) and queues it for delivery.
    virtual void Dispatch(const std::shared_ptr<Event>& event);
    /// True from RegisterModule until the module's unregistration has run.
    virtual bool IsRegisteredModule(const std::string& name);
    /// Takes the module in: the delivery thread calls OnEventHubRegisteredModule and then
    /// OnRegistered, in queue order with the events, after which the module hears events and its
    /// tasks run. False (logged) for a null module, a name already registered, a module already
    /// on a hub, or a hub that is shutting down.
    virtual bool RegisterModule(const std::shared_ptr<Module>& module);
    /// Calls `callback` once, on the delivery thread, for the first event of that type and source
    /// that carries `pair_id`, then forgets it. `module_type` (a type hash) is for diagnostics.
    /// Throws SdkError "event_hub.invalid_listener" for a null type or source or an empty callback.
    virtual void RegisterOneTimeListener(size_t module_type, const std::shared_ptr<EventType>& type,
                                         const std::shared_ptr<EventSource>& source, const std::string& pair_id,
                                         const OneTimeCallback& callback);

    /// Makes a TModule with its default constructor and registers it; null when refused.
    template <typename TModule>
    std::shared_ptr<TModule> RegisterModule() {
        std::shared_ptr<TModule> module = std::make_shared<TModule>();
        return RegisterModule(std::shared_ptr<Module>(module)) ? module : nullptr;
    }

    template <typename TModule>
    void RegisterOneTimeListener(const std::shared_ptr<EventType>& type, const std::shared_ptr<EventSource>& source,
                                 const std::string& pair_id, const OneTimeCallback& callback) {
        RegisterOneTimeListener(typeid(TModule).hash_code(), type, source, pair_id, callback);
    }

    /// Dispatches the one HUB / BOOTED event; later calls do nothing.
    void FinishModulesRegistration();
    /// Takes the module off the bus: the delivery thread calls OnUnregistered (after the events
    /// queued before this call), ordinary tasks queued until then still run, later ones are
    /// dropped, tasks added with REQUIRED_FOR_UNREGISTRATION run; then its states are forgotten.
    /// Waits for all of it, at most DEFAULT_SHUTDOWN_DEADLINE (then logs and lets it go on),
    /// unless called on a hub thread. False when no such module is registered.
    bool UnregisterModule(const std::string& name);
    /// Shutdown(DEFAULT_SHUTDOWN_DEADLINE).
    void Shutdown();
    /// Delivers what is queued, unregisters every module (newest first) as UnregisterModule does,
    /// waits for their tasks, delivers the events those tasks sent and joins every thread, all
    /// within `deadline` (see Stopping above). Later Dispatch calls are dropped. True when
    /// everything ended in time; false (logged) when something was abandoned, or when called on a
    /// hub thread. Repeated calls do nothing and give true.
    bool Shutdown(std::chrono::milliseconds deadline);

    /// The state of the module whose shared state name is `name`, for `event`: the state with
    /// the greatest version not above the event's number; SHARED_STATE_PENDING when that one is
    /// pending; null when there is none or the module is unknown. A null event gives the newest.
    std::shared_ptr<EventData> GetSharedEventState(const std::string& name, const std::shared_ptr<Event>& event);
    /// Whether the module `name` has any state, pending or not.
    bool HasSharedEventState(const std::string& name);
    std::shared_ptr<PlatformServicesInterface> GetPlatformServices() const;

private:
    friend class Module;
    struct Core;
    enum class SharedStateChange { CREATE, UPDATE, CREATE_OR_UPDATE };

    // Module side, reached through Module's shared state operations.
    bool ChangeSharedState(Module& owner, SharedStateChange change, bool has_version, int32_t version,
                           const std::shared_ptr<EventData>& data);
    void ClearSharedStates(Module& owner);
    /// Starts the unregistration without waiting; false when no such module is registered.
    bool RequestUnregistration(const std::string& name);
    bool StartUnregistration(const std::string& name, const std::shared_ptr<std::promise<void>>& done,
                             std::shared_ptr<Module>* module_out);
    /// The delivery thread or a thread of the executor: places that must never wait for the hub.
    bool IsHubThread() const;

    // The delivery thread's side; they take the core, never the hub, since the hub may be gone.
    static void DeliveryLoop(const std::shared_ptr<Core>& core);
    static void RunDelivery(const std::shared_ptr<Core>& core);
    /// The whole stop, on a thread that may wait (neither the delivery thread nor the executor's).
    static bool Stop(const std::shared_ptr<Core>& core, std::chrono::milliseconds deadline);
    static void Deliver(Core& core, const std::shared_ptr<Event>& event);
    static void RegisterOnDeliveryThread(Core& core, const std::shared_ptr<Module>& module,
                                         const std::weak_ptr<EventHub>& hub);
    static void UnregisterOnDeliveryThread(Core& core, const std::shared_ptr<Module>& module);
    /// Numbers an event not numbered yet; with the core's lock held.
    static void AssignEventNumberLocked(Core& core, Event& event);

    // Everything the delivery thread touches lives in the core, which that thread co-owns, so
    // the hub may even be destroyed on its own delivery thread.
    std::shared_ptr<Core> core_;
};

}  // namespace VelmoraMobile
