#include "runtime/bus/Module.h"

#include <array>
#include <typeinfo>
#include <unordered_map>
#include <utility>

#include "runtime/bus/EventHub.h"
#include "runtime/values/Log.h"
#include "runtime/values/TryCatch.h"

namespace VelmoraMobile {

namespace {

const char* const LOG_TAG = "Module";

uintptr_t Address(const void* pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}

}  // namespace

// The modules whose task runners may be queued on an executor, by a number never used twice.
class Module::LiveModules {
public:
    static uint64_t Add(const std::shared_ptr<Module>& module) {
        Registry& registry = Get();
        std::lock_guard<std::mutex> lock(registry.mutex);
        const uint64_t id = ++registry.last_id;
        registry.modules.emplace(id, module);
        return id;
    }
    static std::shared_ptr<Module> Find(uint64_t id) {
        Registry& registry = Get();
        std::lock_guard<std::mutex> lock(registry.mutex);
        auto found = registry.modules.find(id);
        return found == registry.modules.end() ? nullptr : found->second.lock();
    }
    static void Remove(uint64_t id) {
        Registry& registry = Get();
        std::lock_guard<std::mutex> lock(registry.mutex);
        registry.modules.erase(id);
    }

private:
    struct Registry {
        std::mutex mutex;
        uint64_t last_id{0};
        std::unordered_map<uint64_t, std::weak_ptr<Module>> modules;
    };
    // Never destroyed: runners may still look modules up while the process exits.
    static Registry& Get() {
        static Registry* const registry = new Registry();
        return *registry;
    }
};

Module::Module(const std::string& name) : module_name_(name) {}

Module::~Module() {
    if (runner_id_ != 0) {
        LiveModules::Remove(runner_id_);
    }
}

bool Module::IsRegistered() {
    std::lock_guard<std::mutex> lock(mutex_);
    return registered_;
}

void Module::OnRegistered() {}

void Module::OnUnregistered() {}

void Module::RegisterOneTimeListenerBlock(const std::shared_ptr<EventType>& type,
                                          const std::shared_ptr<EventSource>& source, const std::string& pair_id,
                                          const std::function<void(const std::shared_ptr<Event>&)>& block) {
    std::shared_ptr<EventHub> hub = GetEventHub();
    if (!hub) {
        Log::Warning(LOG_TAG, "Module %s has no hub: one-time listener not registered", module_name_);
        return;
    }
    hub->RegisterOneTimeListener(typeid(*this).hash_code(), type, source, pair_id, block);
}

void Module::UnregisterModule() {
    std::shared_ptr<EventHub> hub = GetEventHub();
    if (hub) {
        hub->RequestUnregistration(module_name_);
    }
}

void Module::UnregisterListener(const std::shared_ptr<EventType>& type, const std::shared_ptr<EventSource>& source) {
    std::vector<std::shared_ptr<ModuleEventListenerBase>> removed;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = listeners_.lower_bound(ListenerKey{Address(type.get()), Address(source.get()), std::string()});
        while (it != listeners_.end() && std::get<0>(it->first) == Address(type.get()) &&
               std::get<1>(it->first) == Address(source.get())) {
            removed.push_back(it->second);
            it = listeners_.erase(it);
        }
    }
    for (const auto& listener : removed) {
        listener->CallOnUnregistered();
    }
}

void Module::UnregisterWildCardListener() {
    std::shared_ptr<ModuleEventListenerBase> removed;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        removed.swap(wildcard_listener_);
    }
    if (removed) {
        removed->CallOnUnregistered();
    }
}

void Module::AddTaskToQueue(const char* name, std::function<void()> task) {
    AddTaskToQueue(name, std::move(task), ModuleTaskOptions());
}

void Module::AddTaskToQueue(const char* name, std::function<void()> task, const ModuleTaskOptions& options) {
    if (!task) {
        return;
    }
    EnqueueTask(QueuedTask(name, std::move(task)), options);
}

void Module::EnqueueTask(QueuedTask task, const ModuleTaskOptions& options) {
    std::unique_lock<std::mutex> lock(mutex_);
    bool accepted = task_queue_state_ == TaskQueueState::WAITING || task_queue_state_ == TaskQueueState::OPEN ||
                    (task_queue_state_ == TaskQueueState::CLOSING && options.required_for_unregistration);
    if (!accepted) {
        lock.unlock();
        Log::Debug(LOG_TAG, "Module %s is unregistering: task %s dropped", module_name_, task.Name());
        return;
    }
    task_queue_.push_back(std::move(task));
    if (task_queue_state_ != TaskQueueState::WAITING && !runner_active_) {
        SubmitRunnerLocked(lock);
    }
}

void Module::SubmitRunnerLocked(std::unique_lock<std::mutex>& lock) {
    std::shared_ptr<TaskExecutorInterface> executor = task_executor_.lock();
    std::shared_ptr<Module> self = std::dynamic_pointer_cast<Module>(SharedPtrToThisObjectInterface());
    if (self && runner_id_ == 0) {
        runner_id_ = LiveModules::Add(self);
    }
    if (!executor || !self) {
        runner_active_ = false;
        return;
    }
    // One runner at a time is what keeps the module's tasks from overlapping. Queued tasks keep
    // the module alive until they have run (or AbandonTasks drops them).
    runner_active_ = true;
    runner_owner_ = self;
    const uint64_t id = runner_id_;
    lock.unlock();
    // The runner holds the module's number alone, which the function stores without an
    // allocation, and finds the module when it runs: after AbandonTasks it may be gone.
    bool accepted = executor->Execute([id] {
        if (std::shared_ptr<Module> module = LiveModules::Find(id)) {
            module->RunNextTask();
        }
    });
    lock.lock();
    if (!accepted) {
        runner_active_ = false;
        // Goes with `self`, as the refused runner would have.
        runner_owner_.swap(self);
    }
}

void Module::RunNextTask() {
    // The runner that called this holds the module too, so dropping this reference under the
    // lock cannot end the module.
    std::shared_ptr<Module> owner;
    QueuedTask task;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (task_queue_.empty()) {
            runner_active_ = false;
            owner.swap(runner_owner_);
            CloseIfDrainedLocked();
            return;
        }
        task = std::move(task_queue_.front());
        task_queue_.pop_front();
    }
    TryCatch([&task] { task.Run(); },
             [&](SdkError& error) {
                 Log::Warning(LOG_TAG, "Task %s of module %s failed: %s", task.Name(), module_name_, error);
             });
    // The task's captures go before the next task starts, outside the lock.
    task.Reset();

    std::unique_lock<std::mutex> lock(mutex_);
    if (task_queue_.empty()) {
        runner_active_ = false;
        owner.swap(runner_owner_);
        CloseIfDrainedLocked();
        return;
    }
    // Each task is a job of its own on the executor, so a busy module cannot starve the others.
    SubmitRunnerLocked(lock);
}

void Module::CloseIfDrainedLocked() {
    if (unregistration_hooks_done_ && task_queue_.empty() && !runner_active_ &&
        task_queue_state_ != TaskQueueState::CLOSED) {
        task_queue_state_ = TaskQueueState::CLOSED;
        closed_.notify_all();
    }
}

bool Module::CreateSharedState(int32_t version, const std::shared_ptr<EventData>& data) {
    std::shared_ptr<EventHub> hub = GetEventHub();
    if (!hub) {
        Log::Warning(LOG_TAG, "Module %s has no hub: shared state not created", module_name_);
        return false;
    }
    return hub->ChangeSharedState(*this, EventHub::SharedStateChange::CREATE, true, version, data);
}

bool Module::UpdateSharedState(int32_t version, const std::shared_ptr<EventData>& data) {
    std::shared_ptr<EventHub> hub = GetEventHub();
    if (!hub) {
        Log::Warning(LOG_TAG, "Module %s has no hub: shared state not updated", module_name_);
        return false;
    }
    return hub->ChangeSharedState(*this, EventHub::SharedStateChange::UPDATE, true, version, data);
}

bool Module::CreateOrUpdateSharedState(int32_t version, const std::shared_ptr<EventData>& data) {
    std::shared_ptr<EventHub> hub = GetEventHub();
    if (!hub) {
        Log::Warning(LOG_TAG, "Module %s has no hub: shared state not published", module_name_);
        return false;
    }
    return hub->ChangeSharedState(*this, EventHub::SharedStateChange::CREATE_OR_UPDATE, true, version, data);
}

bool Module::CreateOrUpdateSharedState(const std::shared_ptr<EventData>& data) {
    std::shared_ptr<EventHub> hub = GetEventHub();
    if (!hub) {
        Log::Warning(LOG_TAG, "Module %s has no hub: shared state not published", module_name_);
        return false;
    }
    return hub->ChangeSharedState(*this, EventHub::SharedStateChange::CREATE_OR_UPDATE, false, 0, data);
}

void Module::ClearSharedStates() {
    std::shared_ptr<EventHub> hub = GetEventHub();
    if (hub) {
        hub->ClearSharedStates(*this);
    }
}

std::shared_ptr<EventData> Module::GetSharedEventState(const std::string& name, const std::shared_ptr<Event>& event) {
    std::shared_ptr<EventHub> hub = GetEventHub();
    return hub ? hub->GetSharedEventState(name, event) : nullptr;
}

bool Module::HasSharedEventState(const std::string& name) {
    std::shared_ptr<EventHub> hub = GetEventHub();
    return hub && hub->HasSharedEventState(name);
}

std::shared_ptr<PlatformServicesInterface> Module::GetPlatformServices() {
    std::lock_guard<std::mutex> lock(mutex_);
    return platform_services_;
}

void Module::RegisterRule(const std::shared_ptr<Rule>& rule) {
    if (!rule) {
        return;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    rules_.push_back(rule);
}

void Module::UnregisterAllRules() {
    std::vector<std::shared_ptr<Rule>> removed;
    std::lock_guard<std::mutex> lock(mutex_);
    removed.swap(rules_);
}

void Module::OnEventHubRegisteredModule(const std::shared_ptr<EventHub>& hub,
                                        const std::shared_ptr<PlatformServicesInterface>& platform_services,
                                        const std::shared_ptr<TaskExecutorInterface>& task_executor) {
    std::lock_guard<std::mutex> lock(mutex_);
    hub_ = hub;
    platform_services_ = platform_services;
    task_executor_ = task_executor;
}

void Module::Idle() {}

void Module::ProcessEvent(const std::shared_ptr<Event>& event, std::shared_ptr<Event>& result) {
    result = event;
}

void Module::NotifyListeners(const std::shared_ptr<Event>& event) {
    if (!event) {
        return;
    }
    uintptr_t type = Address(event->GetEventType().get());
    uintptr_t source = Address(event->GetEventSource().get());
    // An event matches one listener of a module or none, nearly always: those few need no vector.
    std::array<std::shared_ptr<ModuleEventListenerBase>, 2> few;
    size_t count = 0;
    std::vector<std::shared_ptr<ModuleEventListenerBase>> more;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (auto it = listeners_.lower_bound(ListenerKey{type, source, std::string()});
             it != listeners_.end() && std::get<0>(it->first) == type && std::get<1>(it->first) == source; ++it) {
            const std::string& pair_id = std::get<2>(it->first);
            if (pair_id.empty() || pair_id == event->GetResponsePairID()) {
                if (count < few.size()) {
                    few[count++] = it->second;
                } else {
                    more.push_back(it->second);
                }
            }
        }
    }
    auto hear = [&](const std::shared_ptr<ModuleEventListenerBase>& listener) {
        TryCatch(
            [&] { listener->Hear(event); },
            [&](SdkError& error) { Log::Warning(LOG_TAG, "A listener of module %s failed: %s", module_name_, error); });
    };
    for (size_t i = 0; i < count; ++i) {
        hear(few[i]);
    }
    for (const auto& listener : more) {
        hear(listener);
    }
}

void Module::NotifyWildCardListener(const std::shared_ptr<Event>& event) {
    std::shared_ptr<ModuleEventListenerBase> listener;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        listener = wildcard_listener_;
    }
    if (!listener || !event) {
        return;
    }
    TryCatch([&] { listener->Hear(event); },
             [&](SdkError& error) {
                 Log::Warning(LOG_TAG, "The wildcard listener of module %s failed: %s", module_name_, error);
             });
}

bool Module::RegisterListener(const std::shared_ptr<ModuleEventListenerBase>& listener,
                              const std::shared_ptr<EventType>& type, const std::shared_ptr<EventSource>& source,
                              const std::string& pair_id) {
    std::shared_ptr<Module> self = std::dynamic_pointer_cast<Module>(SharedPtrToThisObjectInterface());
    if (!listener || !type || !source || !self) {
        Log::Warning(LOG_TAG, "Module %s: listener not registered (missing listener, type, source or shared owner)",
                     module_name_);
        return false;
    }
    listener->Init(self, type, source);
    listener->CallOnRegistered();
    std::shared_ptr<ModuleEventListenerBase> replaced;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        std::shared_ptr<ModuleEventListenerBase>& slot =
            listeners_[ListenerKey{Address(type.get()), Address(source.get()), pair_id}];
        replaced.swap(slot);
        slot = listener;
    }
    if (replaced && replaced != listener) {
        replaced->CallOnUnregistered();
    }
    return true;
}

bool Module::RegisterDispatcher(const std::shared_ptr<ModuleEventDispatcherBase>& dispatcher) {
    std::shared_ptr<Module> self = std::dynamic_pointer_cast<Module>(SharedPtrToThisObjectInterface());
    if (!dispatcher || !self) {
        Log::Warning(LOG_TAG, "Module %s: dispatcher not registered (missing dispatcher or shared owner)",
                     module_name_);
        return false;
    }
    dispatcher->Init(self, GetEventHub());
    dispatcher->CallOnRegistered();
    std::lock_guard<std::mutex> lock(mutex_);
    dispatchers_.push_back(dispatcher);
    return true;
}

bool Module::RegisterProcessor(const std::shared_ptr<ModuleEventProcessorBase>& processor) {
    if (!processor) {
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    processors_.push_back(processor);
    return true;
}

bool Module::RegisterWildCardListener(const std::shared_ptr<ModuleEventListenerBase>& listener) {
    std::shared_ptr<Module> self = std::dynamic_pointer_cast<Module>(SharedPtrToThisObjectInterface());
    if (!listener || !self) {
        return false;
    }
    listener->Init(self, nullptr, nullptr);
    listener->CallOnRegistered();
    std::shared_ptr<ModuleEventListenerBase> replaced;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        replaced.swap(wildcard_listener_);
        wildcard_listener_ = listener;
    }
    if (replaced && replaced != listener) {
        replaced->CallOnUnregistered();
    }
    return true;
}

std::shared_ptr<EventHub> Module::GetEventHub() {
    std::lock_guard<std::mutex> lock(mutex_);
    return hub_.lock();
}

bool Module::AttachToHub() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (attached_) {
        return false;
    }
    attached_ = true;
    return true;
}

void Module::StartTaskQueue() {
    std::unique_lock<std::mutex> lock(mutex_);
    registered_ = true;
    if (task_queue_state_ == TaskQueueState::WAITING) {
        task_queue_state_ = TaskQueueState::OPEN;
    }
    if (!task_queue_.empty() && !runner_active_) {
        SubmitRunnerLocked(lock);
    }
}

void Module::BeginUnregistration() {
    std::unique_lock<std::mutex> lock(mutex_);
    registered_ = false;
    unregistration_begun_ = true;
    if (task_queue_state_ == TaskQueueState::WAITING || task_queue_state_ == TaskQueueState::OPEN) {
        task_queue_state_ = TaskQueueState::CLOSING;
    }
    if (!task_queue_.empty() && !runner_active_) {
        SubmitRunnerLocked(lock);
    }
}

void Module::UnregisterListenersAndDispatchers() {
    std::map<ListenerKey, std::shared_ptr<ModuleEventListenerBase>> listeners;
    std::shared_ptr<ModuleEventListenerBase> wildcard;
    std::vector<std::shared_ptr<ModuleEventDispatcherBase>> dispatchers;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        listeners.swap(listeners_);
        wildcard.swap(wildcard_listener_);
        // Dispatchers stay with the module: its unregistration tasks may still answer requests.
        dispatchers = dispatchers_;
    }
    for (const auto& entry : listeners) {
        entry.second->CallOnUnregistered();
    }
    if (wildcard) {
        wildcard->CallOnUnregistered();
    }
    for (const auto& dispatcher : dispatchers) {
        dispatcher->CallOnUnregistered();
    }
}

void Module::EndUnregistrationHooks() {
    std::lock_guard<std::mutex> lock(mutex_);
    unregistration_hooks_done_ = true;
    CloseIfDrainedLocked();
}

void Module::WaitUntilUnregistered() {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!unregistration_begun_) {
        return;
    }
    closed_.wait(lock, [this] { return task_queue_state_ == TaskQueueState::CLOSED; });
}

bool Module::WaitUntilUnregistered(std::chrono::steady_clock::time_point until) {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!unregistration_begun_) {
        return task_queue_state_ == TaskQueueState::CLOSED;
    }
    return closed_.wait_until(lock, until, [this] { return task_queue_state_ == TaskQueueState::CLOSED; });
}

void Module::AbandonTasks() {
    std::shared_ptr<Module> owner;
    std::deque<QueuedTask> dropped;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        dropped.swap(task_queue_);
        task_queue_state_ = TaskQueueState::CLOSED;
        runner_active_ = false;
        owner.swap(runner_owner_);
        unregistration_hooks_done_ = true;
        closed_.notify_all();
    }
}

}  // namespace VelmoraMobile
