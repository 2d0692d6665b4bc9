#include "runtime/bus/EventHub.h"

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <tuple>
#include <vector>

#include "runtime/bus/EventBuilder.h"
#include "runtime/bus/EventDataKeys.h"
#include "runtime/bus/ReusingQueue.h"
#include "runtime/bus/SharedStatePending.h"
#include "runtime/bus/ThreadPoolTaskExecutor.h"
#include "runtime/values/Log.h"
#include "runtime/values/SdkError.h"
#include "runtime/values/ThreadName.h"
#include "runtime/values/TryCatch.h"

namespace VelmoraMobile {

namespace {

const char* const LOG_TAG = "EventHub";

uintptr_t Address(const void* pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}

}  // namespace

struct EventHub::Core {
    enum class ItemKind { EVENT, REGISTER, UNREGISTER, SHUTDOWN, STOP };

    // The delivery thread works through these strictly in order, so a module's registration,
    // its unregistration and the hub's stop fall at a fixed place among the events.
    struct Item {
        ItemKind kind{ItemKind::EVENT};
        std::shared_ptr<Event> event;
        std::shared_ptr<Module> module;
        std::weak_ptr<EventHub> hub;
        std::shared_ptr<std::promise<void>> done;
    };

    struct ModuleRecord {
        std::shared_ptr<Module> module;
        bool unregistering{false};
    };

    struct OneTimeListener {
        size_t module_type{0};
        OneTimeCallback callback;
    };

    using OneTimeKey = std::tuple<uintptr_t, uintptr_t, std::string>;
    // Looks a key up by the event's own pair id, with no copy of it.
    using OneTimeLookup = std::tuple<uintptr_t, uintptr_t, std::string_view>;
    struct OneTimeLess {
        using is_transparent = void;
        static OneTimeLookup View(const OneTimeKey& key) {
            return OneTimeLookup{std::get<0>(key), std::get<1>(key), std::get<2>(key)};
        }
        static const OneTimeLookup& View(const OneTimeLookup& key) { return key; }
        template <typename A, typename B>
        bool operator()(const A& a, const B& b) const {
            return View(a) < View(b);
        }
    };
    using OneTimeListeners = std::map<OneTimeKey, std::vector<OneTimeListener>, OneTimeLess>;
    // Versions of one module's states; a pending state holds SHARED_STATE_PENDING itself.
    using StateVersions = std::map<int32_t, std::shared_ptr<EventData>>;

    std::mutex mutex;
    std::condition_variable wake;
    ReusingQueue<Item> queue;
    int32_t last_event_number{0};
    bool accepting_events{true};
    bool shutdown_started{false};
    bool booted{false};
    bool stopping{false};
    bool delivery_exited{false};
    std::condition_variable delivery_done;
    std::map<std::string, ModuleRecord> modules;
    std::map<std::string, StateVersions> states;
    OneTimeListeners one_time_listeners;
    // Nodes of fired listeners, emptied, with their key string and vector kept for the next one:
    // a request's listener then costs no allocation of the hub's. At most MAX_SPARE_NODES.
    std::vector<OneTimeListeners::node_type> spare_nodes;
    static constexpr size_t MAX_SPARE_NODES = 16;
    std::vector<std::weak_ptr<Module>> all_modules;

    // Touched by the delivery thread only.
    std::vector<std::shared_ptr<Module>> delivery_order;

    // Fixed at construction.
    std::shared_ptr<PlatformServicesInterface> platform_services;
    std::shared_ptr<TaskExecutorInterface> executor;
    bool owns_executor{false};
    std::thread thread;
};

namespace {
// The core whose delivery thread the current thread is, if any.
thread_local const void* t_delivering_core = nullptr;
}  // namespace

EventHub::EventHub(std::shared_ptr<PlatformServicesInterface> platform_services,
                   std::shared_ptr<TaskExecutorInterface> task_executor)
    : core_(std::make_shared<Core>()) {
    core_->platform_services = std::move(platform_services);
    core_->owns_executor = !task_executor;
    core_->executor = task_executor ? std::move(task_executor) : std::make_shared<ThreadPoolTaskExecutor>();
    core_->spare_nodes.reserve(Core::MAX_SPARE_NODES);
    core_->thread = std::thread(&EventHub::DeliveryLoop, core_);
}

EventHub::~EventHub() {
    if (!IsHubThread()) {
        Stop(core_, DEFAULT_SHUTDOWN_DEADLINE);
        return;
    }
    // The last owner let go inside a listener or a task, whose thread cannot wait for the hub's
    // work: a thread of its own does the same stop, holding the core, and ends with it.
    std::shared_ptr<Core> core = core_;
    try {
        std::thread([core] {
            NameThisThread("hub-stop");
            Stop(core, DEFAULT_SHUTDOWN_DEADLINE);
        }).detach();
        return;
    } catch (const std::system_error& error) {
        Log::Error(LOG_TAG, "Cannot start the thread that stops the hub: %s", std::string(error.what()));
    }
    // Without that thread: drop everything queued and let the threads end by themselves.
    std::vector<std::shared_ptr<Module>> modules;
    {
        std::lock_guard<std::mutex> lock(core->mutex);
        core->stopping = true;
        core->accepting_events = false;
        for (const auto& weak : core->all_modules) {
            if (auto module = weak.lock()) {
                modules.push_back(module);
            }
        }
    }
    core->wake.notify_all();
    if (core->thread.joinable()) {
        core->thread.detach();
    }
    for (const auto& module : modules) {
        module->AbandonTasks();
    }
}

void EventHub::AssignEventNumberLocked(Core& core, Event& event) {
    if (!event.has_event_number_) {
        event.has_event_number_ = true;
        event.event_number_.store(++core.last_event_number, std::memory_order_relaxed);
    } else {
        core.last_event_number = std::max(core.last_event_number, event.GetEventNumber());
    }
}

void EventHub::Dispatch(const std::shared_ptr<Event>& event) {
    if (!event) {
        return;
    }
    bool queued = false;
    {
        std::lock_guard<std::mutex> lock(core_->mutex);
        if (core_->accepting_events) {
            AssignEventNumberLocked(*core_, *event);
            Core::Item item;
            item.event = event;
            core_->queue.push_back(std::move(item));
            queued = true;
        }
    }
    if (!queued) {
        Log::Debug(LOG_TAG, "The hub has stopped: event %s dropped", event->GetName());
        return;
    }
    core_->wake.notify_one();
}

bool EventHub::IsRegisteredModule(const std::string& name) {
    std::lock_guard<std::mutex> lock(core_->mutex);
    return core_->modules.count(name) != 0;
}

bool EventHub::RegisterModule(const std::shared_ptr<Module>& module) {
    if (!module) {
        Log::Warning(LOG_TAG, "Cannot register a null module");
        return false;
    }
    std::shared_ptr<EventHub> self = std::dynamic_pointer_cast<EventHub>(SharedPtrToThisObjectInterface());
    if (!self) {
        Log::Warning(LOG_TAG, "Cannot register module %s: the hub is not held by a shared_ptr",
                     module->GetModuleName());
        return false;
    }
    const std::string& name = module->GetModuleName();
    const char* refusal = nullptr;
    {
        std::lock_guard<std::mutex> lock(core_->mutex);
        if (core_->shutdown_started || !core_->accepting_events) {
            refusal = "the hub is shutting down";
        } else if (core_->modules.count(name) != 0) {
            refusal = "a module of that name is registered";
        } else if (!module->AttachToHub()) {
            refusal = "the module is already on a hub";
        } else {
            core_->modules[name] = Core::ModuleRecord{module, false};
            core_->all_modules.push_back(module);
            Core::Item item;
            item.kind = Core::ItemKind::REGISTER;
            item.module = module;
            item.hub = self;
            core_->queue.push_back(std::move(item));
        }
    }
    if (refusal != nullptr) {
        Log::Warning(LOG_TAG, "Cannot register module %s: %s", name, std::string(refusal));
        return false;
    }
    core_->wake.notify_one();
    return true;
}

void EventHub::RegisterOneTimeListener(size_t module_type, const std::shared_ptr<EventType>& type,
                                       const std::shared_ptr<EventSource>& source, const std::string& pair_id,
                                       const OneTimeCallback& callback) {
    if (!type || !source || !callback) {
        VELMORA_THROW("event_hub.invalid_listener", "A one-time listener needs a type, a source and a callback");
    }
    {
        std::lock_guard<std::mutex> lock(core_->mutex);
        if (core_->accepting_events) {
            const Core::OneTimeLookup lookup{Address(type.get()), Address(source.get()), pair_id};
            auto found = core_->one_time_listeners.find(lookup);
            if (found == core_->one_time_listeners.end()) {
                if (core_->spare_nodes.empty()) {
                    found = core_->one_time_listeners
                                .emplace(Core::OneTimeKey{std::get<0>(lookup), std::get<1>(lookup), pair_id},
                                         std::vector<Core::OneTimeListener>())
                                .first;
                } else {
                    Core::OneTimeListeners::node_type node = std::move(core_->spare_nodes.back());
                    core_->spare_nodes.pop_back();
                    std::get<0>(node.key()) = std::get<0>(lookup);
                    std::get<1>(node.key()) = std::get<1>(lookup);
                    std::get<2>(node.key()).assign(pair_id);
                    found = core_->one_time_listeners.insert(std::move(node)).position;
                }
            }
            found->second.push_back(Core::OneTimeListener{module_type, callback});
            return;
        }
    }
    Log::Debug(LOG_TAG, "The hub has stopped: one-time listener for pair id %s not registered", pair_id);
}

void EventHub::FinishModulesRegistration() {
    {
        std::lock_guard<std::mutex> lock(core_->mutex);
        if (core_->booted) {
            return;
        }
        core_->booted = true;
    }
    Dispatch(EventBuilder("EventHub booted", EventType::HUB, EventSource::BOOTED).Build());
}

bool EventHub::StartUnregistration(const std::string& name, const std::shared_ptr<std::promise<void>>& done,
                                   std::shared_ptr<Module>* module_out) {
    bool queued = false;
    {
        std::lock_guard<std::mutex> lock(core_->mutex);
        auto found = core_->modules.find(name);
        if (found != core_->modules.end() && !found->second.unregistering && core_->accepting_events) {
            found->second.unregistering = true;
            if (module_out != nullptr) {
                *module_out = found->second.module;
            }
            Core::Item item;
            item.kind = Core::ItemKind::UNREGISTER;
            item.module = found->second.module;
            item.done = done;
            core_->queue.push_back(std::move(item));
            queued = true;
        }
    }
    if (!queued) {
        Log::Debug(LOG_TAG, "Module %s is not registered or already leaving", name);
        return false;
    }
    core_->wake.notify_one();
    return true;
}

bool EventHub::RequestUnregistration(const std::string& name) {
    return StartUnregistration(name, nullptr, nullptr);
}

bool EventHub::UnregisterModule(const std::string& name) {
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> finished = done->get_future();
    std::shared_ptr<Module> module;
    if (!StartUnregistration(name, done, &module)) {
        return false;
    }
    done.reset();
    if (IsHubThread()) {
        return true;
    }
    const auto until = std::chrono::steady_clock::now() + DEFAULT_SHUTDOWN_DEADLINE;
    if (finished.wait_until(until) != std::future_status::ready || !module->WaitUntilUnregistered(until)) {
        Log::Warning(LOG_TAG, "Unregistration of module %s did not end within %s; it goes on without waiting", name,
                     DEFAULT_SHUTDOWN_DEADLINE);
    }
    return true;
}

void EventHub::Shutdown() {
    Shutdown(DEFAULT_SHUTDOWN_DEADLINE);
}

bool EventHub::Shutdown(std::chrono::milliseconds deadline) {
    if (IsHubThread()) {
        Log::Warning(LOG_TAG, "Shutdown called on a hub thread: ignored, the hub stops when it is destroyed");
        return false;
    }
    return Stop(core_, deadline);
}

bool EventHub::Stop(const std::shared_ptr<Core>& core, std::chrono::milliseconds deadline) {
    const auto until = std::chrono::steady_clock::now() + deadline;
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> unregistered = done->get_future();
    {
        std::lock_guard<std::mutex> lock(core->mutex);
        if (core->shutdown_started) {
            return true;
        }
        core->shutdown_started = true;
        Core::Item item;
        item.kind = Core::ItemKind::SHUTDOWN;
        item.done = std::move(done);
        core->queue.push_back(std::move(item));
    }
    core->wake.notify_one();

    std::vector<std::string> abandoned;
    if (unregistered.wait_until(until) != std::future_status::ready) {
        abandoned.push_back("the unregistration of the modules (a listener or OnUnregistered is stuck)");
    }
    std::vector<std::shared_ptr<Module>> modules;
    {
        std::lock_guard<std::mutex> lock(core->mutex);
        for (const auto& weak : core->all_modules) {
            if (auto module = weak.lock()) {
                modules.push_back(module);
            }
        }
    }
    for (const auto& module : modules) {
        if (!module->WaitUntilUnregistered(until)) {
            abandoned.push_back("the tasks of module " + module->GetModuleName());
        }
        // Tasks still queued go now, and with them the modules they hold.
        module->AbandonTasks();
    }
    modules.clear();

    // What the last tasks dispatched is still delivered, then the thread ends.
    bool delivery_ended = false;
    {
        std::unique_lock<std::mutex> lock(core->mutex);
        core->accepting_events = false;
        Core::Item item;
        item.kind = Core::ItemKind::STOP;
        core->queue.push_back(std::move(item));
        core->wake.notify_all();
        delivery_ended = core->delivery_done.wait_until(lock, until, [&] { return core->delivery_exited; });
        if (!delivery_ended) {
            core->stopping = true;
            core->wake.notify_all();
        }
    }
    if (core->thread.joinable()) {
        if (delivery_ended) {
            core->thread.join();
        } else {
            abandoned.push_back("the delivery thread (a listener is stuck)");
            core->thread.detach();
        }
    }
    if (core->owns_executor) {
        const auto left =
            std::max(std::chrono::milliseconds(0),
                     std::chrono::duration_cast<std::chrono::milliseconds>(until - std::chrono::steady_clock::now()));
        if (!core->executor->Shutdown(left)) {
            abandoned.push_back("a running task");
        }
    }

    // Listeners that can no longer fire, and what they captured, go now rather than with the hub.
    Core::OneTimeListeners orphans;
    {
        std::lock_guard<std::mutex> lock(core->mutex);
        orphans.swap(core->one_time_listeners);
    }
    if (abandoned.empty()) {
        return true;
    }
    std::string what;
    for (const auto& entry : abandoned) {
        what += (what.empty() ? "" : "; ") + entry;
    }
    Log::Warning(LOG_TAG, "The hub's stop passed its deadline of %s and abandoned: %s", deadline, what);
    return false;
}

std::shared_ptr<EventData> EventHub::GetSharedEventState(const std::string& name, const std::shared_ptr<Event>& event) {
    std::lock_guard<std::mutex> lock(core_->mutex);
    auto found = core_->states.find(name);
    if (found == core_->states.end() || found->second.empty()) {
        return nullptr;
    }
    const Core::StateVersions& versions = found->second;
    if (!event) {
        return versions.rbegin()->second;
    }
    auto after = versions.upper_bound(event->GetEventNumber());
    if (after == versions.begin()) {
        return nullptr;
    }
    return std::prev(after)->second;
}

bool EventHub::HasSharedEventState(const std::string& name) {
    std::lock_guard<std::mutex> lock(core_->mutex);
    auto found = core_->states.find(name);
    return found != core_->states.end() && !found->second.empty();
}

std::shared_ptr<PlatformServicesInterface> EventHub::GetPlatformServices() const {
    return core_->platform_services;
}

bool EventHub::ChangeSharedState(Module& owner, SharedStateChange change, bool has_version, int32_t version,
                                 const std::shared_ptr<EventData>& data) {
    const std::string name = owner.GetSharedStateName();
    if (!data) {
        Log::Warning(LOG_TAG, "Module %s: a shared state needs data", name);
        return false;
    }
    const bool pending = data == SHARED_STATE_PENDING;
    std::shared_ptr<Event> announcement;
    if (!pending) {
        auto announcement_data = std::make_shared<EventData>();
        announcement_data->PutString(EventDataKeys::STATE_OWNER, name);
        announcement = EventBuilder("Shared state change", EventType::HUB, EventSource::SHARED_STATE)
                           .SetData(announcement_data)
                           .Build();
    }

    const char* failure = nullptr;
    int32_t newest = 0;
    {
        std::lock_guard<std::mutex> lock(core_->mutex);
        auto record = core_->modules.find(owner.GetModuleName());
        if (record == core_->modules.end() || record->second.module.get() != &owner) {
            failure = "the module is not registered";
        } else {
            Core::StateVersions& versions = core_->states[name];
            bool at_next_number = false;
            if (!has_version) {
                if (!versions.empty() && versions.rbegin()->second == SHARED_STATE_PENDING) {
                    version = versions.rbegin()->first;
                    change = SharedStateChange::UPDATE;
                } else {
                    version = core_->last_event_number + 1;
                    change = SharedStateChange::CREATE;
                    at_next_number = true;
                }
            }
            if (change == SharedStateChange::CREATE_OR_UPDATE) {
                auto existing = versions.find(version);
                bool resolvable = existing != versions.end() && existing->second == SHARED_STATE_PENDING;
                change = resolvable ? SharedStateChange::UPDATE : SharedStateChange::CREATE;
            }
            if (change == SharedStateChange::CREATE) {
                if (!versions.empty() && version <= versions.rbegin()->first) {
                    failure = "the version is not above the newest one";
                    newest = versions.rbegin()->first;
                } else {
                    versions.emplace(version, data);
                }
            } else {
                auto existing = versions.find(version);
                if (existing == versions.end() || existing->second != SHARED_STATE_PENDING) {
                    failure = "no pending state has that version";
                } else {
                    existing->second = data;
                }
            }
            if (versions.empty()) {
                core_->states.erase(name);
            }
            if (failure == nullptr) {
                if (at_next_number) {
                    // The state takes the place of its announcement in the order of events.
                    core_->last_event_number = version;
                    if (announcement) {
                        announcement->has_event_number_ = true;
                        announcement->event_number_.store(version, std::memory_order_relaxed);
                    }
                }
                if (announcement && core_->accepting_events) {
                    AssignEventNumberLocked(*core_, *announcement);
                    Core::Item item;
                    item.event = announcement;
                    core_->queue.push_back(std::move(item));
                }
            }
        }
    }
    if (failure != nullptr) {
        Log::Warning(LOG_TAG, "Shared state of %s at version %d refused: %s (newest %d)", name, version,
                     std::string(failure), newest);
        return false;
    }
    if (announcement) {
        core_->wake.notify_one();
    }
    return true;
}

void EventHub::ClearSharedStates(Module& owner) {
    const std::string name = owner.GetSharedStateName();
    std::lock_guard<std::mutex> lock(core_->mutex);
    auto record = core_->modules.find(owner.GetModuleName());
    if (record != core_->modules.end() && record->second.module.get() == &owner) {
        core_->states.erase(name);
    }
}

bool EventHub::IsHubThread() const {
    return t_delivering_core == core_.get() || core_->executor->IsExecutorThread();
}

void EventHub::DeliveryLoop(const std::shared_ptr<Core>& core) {
    t_delivering_core = core.get();
    NameThisThread("hub");
    RunDelivery(core);
    std::lock_guard<std::mutex> lock(core->mutex);
    core->delivery_exited = true;
    core->delivery_done.notify_all();
}

void EventHub::RunDelivery(const std::shared_ptr<Core>& core) {
    for (;;) {
        Core::Item item;
        {
            std::unique_lock<std::mutex> lock(core->mutex);
            core->wake.wait(lock, [&] { return core->stopping || !core->queue.empty(); });
            if (core->stopping) {
                return;
            }
            item = std::move(core->queue.front());
            core->queue.pop_front();
        }
        switch (item.kind) {
            case Core::ItemKind::EVENT: Deliver(*core, item.event); break;
            case Core::ItemKind::REGISTER: RegisterOnDeliveryThread(*core, item.module, item.hub); break;
            case Core::ItemKind::UNREGISTER:
                UnregisterOnDeliveryThread(*core, item.module);
                if (item.done) {
                    item.done->set_value();
                }
                break;
            case Core::ItemKind::SHUTDOWN: {
                std::vector<std::shared_ptr<Module>> modules(core->delivery_order.rbegin(),
                                                             core->delivery_order.rend());
                for (const auto& module : modules) {
                    UnregisterOnDeliveryThread(*core, module);
                }
                item.done->set_value();
                break;
            }
            case Core::ItemKind::STOP: return;
        }
    }
}

void EventHub::Deliver(Core& core, const std::shared_ptr<Event>& event) {
    for (const auto& module : core.delivery_order) {
        module->NotifyListeners(event);
        module->NotifyWildCardListener(event);
    }
    Core::OneTimeListeners::node_type fired;
    {
        std::lock_guard<std::mutex> lock(core.mutex);
        if (!core.one_time_listeners.empty()) {
            auto found = core.one_time_listeners.find(Core::OneTimeLookup{Address(event->GetEventType().get()),
                                                                          Address(event->GetEventSource().get()),
                                                                          event->GetResponsePairID()});
            if (found != core.one_time_listeners.end()) {
                fired = core.one_time_listeners.extract(found);
            }
        }
    }
    if (fired.empty()) {
        return;
    }
    for (const auto& listener : fired.mapped()) {
        TryCatch([&] { listener.callback(event); },
                 [&](SdkError& error) { Log::Warning(LOG_TAG, "A one-time listener failed: %s", error); });
    }
    // The callbacks' captures go outside the lock; the emptied node serves the next listener.
    fired.mapped().clear();
    std::lock_guard<std::mutex> lock(core.mutex);
    if (core.spare_nodes.size() < Core::MAX_SPARE_NODES) {
        core.spare_nodes.push_back(std::move(fired));
    }
}

void EventHub::RegisterOnDeliveryThread(Core& core, const std::shared_ptr<Module>& module,
                                        const std::weak_ptr<EventHub>& weak_hub) {
    std::shared_ptr<EventHub> hub = weak_hub.lock();
    if (!hub) {
        return;
    }
    module->OnEventHubRegisteredModule(hub, core.platform_services, core.executor);
    // Held no longer than needed: a host that drops its last reference meanwhile should see the
    // hub stop on its own thread, not on this one.
    hub.reset();
    TryCatch([&] { module->OnRegistered(); },
             [&](SdkError& error) {
                 Log::Warning(LOG_TAG, "OnRegistered of module %s failed: %s", module->GetModuleName(), error);
             });
    module->StartTaskQueue();
    core.delivery_order.push_back(module);
}

void EventHub::UnregisterOnDeliveryThread(Core& core, const std::shared_ptr<Module>& module) {
    auto position = std::find(core.delivery_order.begin(), core.delivery_order.end(), module);
    if (position == core.delivery_order.end()) {
        return;
    }
    core.delivery_order.erase(position);
    module->BeginUnregistration();
    TryCatch([&] { module->OnUnregistered(); },
             [&](SdkError& error) {
                 Log::Warning(LOG_TAG, "OnUnregistered of module %s failed: %s", module->GetModuleName(), error);
             });
    module->UnregisterListenersAndDispatchers();
    const std::string state_name = module->GetSharedStateName();
    {
        std::lock_guard<std::mutex> lock(core.mutex);
        auto record = core.modules.find(module->GetModuleName());
        if (record != core.modules.end() && record->second.module == module) {
            core.modules.erase(record);
        }
        core.states.erase(state_name);
    }
    module->EndUnregistrationHooks();
}

}  // namespace VelmoraMobile
