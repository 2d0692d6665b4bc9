#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "runtime/bus/Event.h"
#include "runtime/bus/EventData.h"
#include "runtime/bus/EventSource.h"
#include "runtime/bus/EventType.h"
#include "runtime/bus/ModuleEventDispatcherBase.h"
#include "runtime/bus/ModuleEventListenerBase.h"
#include "runtime/bus/ModuleTaskOptions.h"
#include "runtime/bus/TaskExecutorInterface.h"
#include "runtime/services/PlatformServicesInterface.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

class EventHub;
class ModuleEventProcessorBase;
class Rule;

/// A module of the bus. Always held by shared_ptr; the hub owns registered modules, a module
/// holds its hub, its executor and its listeners' module only weakly, so no cycle forms.
///
/// Threads:
/// - OnRegistered, OnUnregistered, NotifyListeners and NotifyWildCardListener are called on the
///   hub's delivery thread, and so are the listeners' Hear.
/// - AddTaskToQueue may be called on any thread and returns at once; it never waits for the
///   queue. The tasks of one module run one after another, in the order added, on the hub's
///   executor; two never overlap, and each sees what the ones before it wrote.
/// - No task starts before OnRegistered has returned: tasks added earlier (also from inside
///   OnRegistered) wait and then run in the order added. So OnRegistered may set fields without a
///   lock, and a task never sees the module half set up.
/// - Unregistration begins when the hub calls OnUnregistered, on its delivery thread and maybe
///   while a task runs (so it may only read what tasks do not write, and hand the rest to a
///   task). Ordinary tasks added before that point still run, in order; ordinary tasks added later are dropped (logged
///   at Debug). Tasks added with REQUIRED_FOR_UNREGISTRATION are taken until the queue closes, which is when
///   OnUnregistered has returned and the queue has run empty; every task added after that is
///   dropped (logged). The hub's Shutdown waits for the queue to close, up to its deadline;
///   tasks still queued then are dropped and one still running is left to finish alone.
/// - The shared state operations, RegisterListener, CreateDispatcher and the getters may be
///   called on any thread.
class Module : public virtual Object {
    // A callable other than std::function (which has its own overload) or a null pointer.
    template <typename Task>
    using IsClosure = std::integral_constant<bool, !std::is_same<std::decay_t<Task>, std::function<void()>>::value &&
                                                       !std::is_pointer<std::decay_t<Task>>::value &&
                                                       std::is_invocable_r<void, std::decay_t<Task>&>::value>;

public:
    /// The task belongs to the unregistration: it runs although OnUnregistered has returned.
    static constexpr ModuleTaskOptions REQUIRED_FOR_UNREGISTRATION{true};

    explicit Module(const std::string& name);
    ~Module() override;
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    /// Whether OnRegistered has been called and unregistration has not begun.
    virtual bool IsRegistered();
    /// Called once by the hub, before any listener of the module hears anything. Register the
    /// listeners and make the dispatchers here. Empty by default.
    virtual void OnRegistered();
    /// Called once by the hub when the module leaves the bus. Empty by default.
    virtual void OnUnregistered();
    /// Calls `block` once for the first event of that type and source carrying `pair_id`.
    virtual void RegisterOneTimeListenerBlock(const std::shared_ptr<EventType>& type,
                                              const std::shared_ptr<EventSource>& source, const std::string& pair_id,
                                              const std::function<void(const std::shared_ptr<Event>&)>& block);
    /// Asks the hub to take this module off the bus; does not wait for that.
    virtual void UnregisterModule();
    /// Removes the listeners of that type and source, whatever their pair id.
    virtual void UnregisterListener(const std::shared_ptr<EventType>& type, const std::shared_ptr<EventSource>& source);
    virtual void UnregisterWildCardListener();
    /// Appends `task`; `name` only shows in diagnostics and is kept, not copied: pass a literal
    /// (or a string that lives as long as the module). Dropped once unregistration has begun.
    virtual void AddTaskToQueue(const char* name, std::function<void()> task);
    /// The same; with REQUIRED_FOR_UNREGISTRATION the task is taken also during unregistration.
    virtual void AddTaskToQueue(const char* name, std::function<void()> task, const ModuleTaskOptions& options);
    /// The same for a closure, kept in the queue itself when it is small (a few pointers and
    /// shared pointers), so that queueing it allocates nothing.
    template <typename Task, typename = std::enable_if_t<IsClosure<Task>::value>>
    void AddTaskToQueue(const char* name, Task&& task, const ModuleTaskOptions& options = ModuleTaskOptions()) {
        EnqueueTask(QueuedTask(name, std::forward<Task>(task)), options);
    }
    /// Publishes `data` under GetSharedStateName() at `version`, which must be above every
    /// version this module has used. SHARED_STATE_PENDING announces a state still to come.
    virtual bool CreateSharedState(int32_t version, const std::shared_ptr<EventData>& data);
    /// Resolves the pending state at `version` with `data`.
    virtual bool UpdateSharedState(int32_t version, const std::shared_ptr<EventData>& data);
    /// Resolves the state at `version` if it is pending, else creates it.
    virtual bool CreateOrUpdateSharedState(int32_t version, const std::shared_ptr<EventData>& data);
    /// Resolves the newest state if it is pending; else creates one at the hub's next event
    /// number, so every event dispatched afterwards sees it and none dispatched before does.
    virtual bool CreateOrUpdateSharedState(const std::shared_ptr<EventData>& data);
    /// Forgets every state of this module.
    virtual void ClearSharedStates();
    /// The state of module `name` that belongs to `event`'s place in the order:
    /// SHARED_STATE_PENDING while it is awaited, null when there is none. A null event asks for
    /// the newest state.
    virtual std::shared_ptr<EventData> GetSharedEventState(const std::string& name,
                                                           const std::shared_ptr<Event>& event);
    /// Whether module `name` has any state, pending or not.
    virtual bool HasSharedEventState(const std::string& name);
    virtual std::string GetSharedStateName() = 0;
    /// Empty before the hub has registered the module, or when the hub was given none.
    virtual std::shared_ptr<PlatformServicesInterface> GetPlatformServices();
    /// Rules and processors are kept for hosts that evaluate them; this hub does not.
    virtual void RegisterRule(const std::shared_ptr<Rule>& rule);
    virtual void UnregisterAllRules();
    /// Called by the hub on its delivery thread right before OnRegistered.
    virtual void OnEventHubRegisteredModule(const std::shared_ptr<EventHub>& hub,
                                            const std::shared_ptr<PlatformServicesInterface>& platform_services,
                                            const std::shared_ptr<TaskExecutorInterface>& task_executor);
    /// Hook for hosts that report idleness; this hub does not call it.
    virtual void Idle();
    /// This hub runs no processors: `result` is `event`.
    virtual void ProcessEvent(const std::shared_ptr<Event>& event, std::shared_ptr<Event>& result);
    /// Hands `event` to every listener of its type and source (and of its pair id, for listeners
    /// registered with one). Called by the hub.
    virtual void NotifyListeners(const std::shared_ptr<Event>& event);
    /// Hands `event` to the wildcard listener, if any. Called by the hub.
    virtual void NotifyWildCardListener(const std::shared_ptr<Event>& event);
    /// One listener per type, source and pair id; a new one replaces the old.
    virtual bool RegisterListener(const std::shared_ptr<ModuleEventListenerBase>& listener,
                                  const std::shared_ptr<EventType>& type, const std::shared_ptr<EventSource>& source,
                                  const std::string& pair_id);
    virtual bool RegisterDispatcher(const std::shared_ptr<ModuleEventDispatcherBase>& dispatcher);
    virtual bool RegisterProcessor(const std::shared_ptr<ModuleEventProcessorBase>& processor);

    /// Makes a TListener and registers it for `type` and `source`, with no pair id.
    template <typename TListener>
    void RegisterListener(const std::shared_ptr<EventType>& type, const std::shared_ptr<EventSource>& source) {
        RegisterListener(std::make_shared<TListener>(), type, source, std::string());
    }

    /// Makes a TDispatcher, registers it and returns it.
    template <typename TDispatcher>
    std::shared_ptr<TDispatcher> CreateDispatcher() {
        auto dispatcher = std::make_shared<TDispatcher>();
        RegisterDispatcher(dispatcher);
        return dispatcher;
    }

    /// A listener that hears every event; replaces the previous one.
    bool RegisterWildCardListener(const std::shared_ptr<ModuleEventListenerBase>& listener);

    const std::string& GetModuleName() const { return module_name_; }
    /// The hub, or null before registration and once the hub is gone.
    std::shared_ptr<EventHub> GetEventHub();

private:
    friend class EventHub;

    enum class TaskQueueState { WAITING, OPEN, CLOSING, CLOSED };

    // A queued task and its name. A closure that fits CAPACITY is held in place, a larger one on
    // the heap. Move-only; used under the module's lock, run outside it.
    class QueuedTask {
    public:
        static constexpr size_t CAPACITY = 48;

        QueuedTask() = default;
        template <typename Task>
        QueuedTask(const char* name, Task&& task) : name_(name != nullptr ? name : "") {
            using Held = std::decay_t<Task>;
            if constexpr (sizeof(Held) <= CAPACITY && alignof(Held) <= alignof(std::max_align_t) &&
                          std::is_nothrow_move_constructible<Held>::value) {
                new (storage_) Held(std::forward<Task>(task));
                operate_ = &InPlace<Held>;
            } else {
                *reinterpret_cast<Held**>(storage_) = new Held(std::forward<Task>(task));
                operate_ = &OnHeap<Held>;
            }
        }
        QueuedTask(QueuedTask&& other) noexcept : name_(other.name_), operate_(other.operate_) {
            if (operate_ != nullptr) {
                operate_(Operation::MOVE, other.storage_, storage_);
                other.operate_ = nullptr;
            }
        }
        QueuedTask& operator=(QueuedTask&& other) noexcept {
            if (this != &other) {
                Reset();
                name_ = other.name_;
                operate_ = other.operate_;
                if (operate_ != nullptr) {
                    operate_(Operation::MOVE, other.storage_, storage_);
                    other.operate_ = nullptr;
                }
            }
            return *this;
        }
        QueuedTask(const QueuedTask&) = delete;
        QueuedTask& operator=(const QueuedTask&) = delete;
        ~QueuedTask() { Reset(); }

        const char* Name() const { return name_; }
        /// Runs the task; what it throws goes to the caller.
        void Run() { operate_(Operation::RUN, storage_, nullptr); }
        /// Destroys the closure and what it holds.
        void Reset() {
            if (operate_ != nullptr) {
                operate_(Operation::DESTROY, storage_, nullptr);
                operate_ = nullptr;
            }
        }

    private:
        enum class Operation { RUN, MOVE, DESTROY };

        template <typename Held>
        static void InPlace(Operation operation, void* self, void* target) {
            Held* held = std::launder(reinterpret_cast<Held*>(self));
            switch (operation) {
                case Operation::RUN: (*held)(); break;
                case Operation::MOVE:
                    new (target) Held(std::move(*held));
                    held->~Held();
                    break;
                case Operation::DESTROY: held->~Held(); break;
            }
        }
        template <typename Held>
        static void OnHeap(Operation operation, void* self, void* target) {
            Held*& held = *reinterpret_cast<Held**>(self);
            switch (operation) {
                case Operation::RUN: (*held)(); break;
                case Operation::MOVE: *reinterpret_cast<Held**>(target) = held; break;
                case Operation::DESTROY: delete held; break;
            }
        }

        const char* name_{""};
        void (*operate_)(Operation, void*, void*){nullptr};
        alignas(std::max_align_t) unsigned char storage_[CAPACITY];
    };

    void EnqueueTask(QueuedTask task, const ModuleTaskOptions& options);
    class LiveModules;
    // Type and source by address (they are singletons), then the pair id.
    using ListenerKey = std::tuple<uintptr_t, uintptr_t, std::string>;

    // Hub side of the life cycle; see EventHub.cpp for the order in which they are called.
    bool AttachToHub();
    void StartTaskQueue();
    void BeginUnregistration();
    void UnregisterListenersAndDispatchers();
    void EndUnregistrationHooks();
    void WaitUntilUnregistered();
    /// The same, bounded; false when the deadline passed first.
    bool WaitUntilUnregistered(std::chrono::steady_clock::time_point until);
    void AbandonTasks();

    void SubmitRunnerLocked(std::unique_lock<std::mutex>& lock);
    void RunNextTask();
    void CloseIfDrainedLocked();

    const std::string module_name_;
    std::mutex mutex_;
    std::condition_variable closed_;
    std::weak_ptr<EventHub> hub_;
    std::shared_ptr<PlatformServicesInterface> platform_services_;
    std::weak_ptr<TaskExecutorInterface> task_executor_;
    std::map<ListenerKey, std::shared_ptr<ModuleEventListenerBase>> listeners_;
    std::shared_ptr<ModuleEventListenerBase> wildcard_listener_;
    std::vector<std::shared_ptr<ModuleEventDispatcherBase>> dispatchers_;
    std::vector<std::shared_ptr<Rule>> rules_;
    std::vector<std::shared_ptr<ModuleEventProcessorBase>> processors_;
    std::deque<QueuedTask> task_queue_;
    TaskQueueState task_queue_state_{TaskQueueState::WAITING};
    bool runner_active_{false};
    // This module's number among the live modules (0 until its first runner), so that a runner
    // on the executor does not have to own the module.
    uint64_t runner_id_{0};
    // This module while a runner is queued or running.
    std::shared_ptr<Module> runner_owner_;
    bool attached_{false};
    bool registered_{false};
    bool unregistration_begun_{false};
    bool unregistration_hooks_done_{false};
};

}  // namespace VelmoraMobile
