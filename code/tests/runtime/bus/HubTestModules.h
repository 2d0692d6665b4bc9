#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "runtime/bus/Event.h"
#include "runtime/bus/EventBuilder.h"
#include "runtime/bus/EventHub.h"
#include "runtime/bus/EventSource.h"
#include "runtime/bus/EventType.h"
#include "runtime/bus/InternalModule.h"
#include "runtime/bus/ModuleEventListener.h"
#include "tests/runtime/Gate.h"
#include "tests/support/WaitFor.h"

namespace VelmoraTest {

using VelmoraMobile::Event;
using VelmoraMobile::EventSource;
using VelmoraMobile::EventType;

/// A module for hub tests: registers a recording listener for each (type, source) given before
/// registration, and records every event it hears. Thread-safe.
class RecordingModule : public VelmoraMobile::InternalModule {
public:
    explicit RecordingModule(const std::string& name = "test.recorder") : InternalModule(name) {}

    std::string GetSharedStateName() override { return GetModuleName(); }
    void Listen(const std::shared_ptr<EventType>& type, const std::shared_ptr<EventSource>& source) {
        subscriptions_.emplace_back(type, source);
    }
    void OnRegistered() override;
    void OnUnregistered() override {
        if (on_unregistered) on_unregistered();
    }

    void Record(const std::shared_ptr<Event>& event) {
        std::lock_guard<std::mutex> lock(mutex_);
        events_.push_back(event);
    }
    std::vector<std::shared_ptr<Event>> Events() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return events_;
    }
    std::vector<std::shared_ptr<Event>> EventsOf(const std::shared_ptr<EventType>& type,
                                                 const std::shared_ptr<EventSource>& source) const {
        std::vector<std::shared_ptr<Event>> matching;
        for (const auto& event : Events()) {
            if (event->GetEventType() == type && event->GetEventSource() == source) matching.push_back(event);
        }
        return matching;
    }
    bool WaitForCount(const std::shared_ptr<EventType>& type, const std::shared_ptr<EventSource>& source,
                      size_t count) const {
        return WaitFor([&] { return EventsOf(type, source).size() >= count; });
    }

    /// Dispatches a marker and waits until this module heard it: every event dispatched before
    /// has then been delivered.
    bool Sync(VelmoraMobile::EventHub& hub) {
        auto marker = VelmoraMobile::EventBuilder("sync", SyncType(), SyncSource()).Build();
        hub.Dispatch(marker);
        return WaitFor([&] {
            auto events = Events();
            return std::find(events.begin(), events.end(), marker) != events.end();
        });
    }

    static std::shared_ptr<EventType> SyncType() { return EventType::Get("test.sync"); }
    static std::shared_ptr<EventSource> SyncSource() { return EventSource::Get("test.sync"); }

    std::function<void()> on_registered;    // set before registration
    std::function<void()> on_unregistered;  // set before registration

private:
    std::vector<std::pair<std::shared_ptr<EventType>, std::shared_ptr<EventSource>>> subscriptions_;
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<Event>> events_;
};

class RecordingListener : public VelmoraMobile::ModuleEventListener<RecordingModule> {
public:
    void Hear(const std::shared_ptr<Event>& event) override {
        if (auto module = GetParentModule()) module->Record(event);
    }
};

inline void RecordingModule::OnRegistered() {
    RegisterListener<RecordingListener>(SyncType(), SyncSource());
    for (const auto& subscription : subscriptions_) {
        RegisterListener<RecordingListener>(subscription.first, subscription.second);
    }
    if (on_registered) on_registered();
}

}  // namespace VelmoraTest
