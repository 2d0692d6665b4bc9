#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "runtime/bus/Event.h"
#include "runtime/bus/EventSource.h"
#include "runtime/bus/EventType.h"
#include "runtime/bus/InternalModule.h"
#include "runtime/bus/ModuleEventListener.h"

namespace VelmoraTest {

/// A module that records every event delivered on its hub, in delivery order. Thread-safe.
class BusRecorder : public VelmoraMobile::InternalModule {
public:
    BusRecorder() : InternalModule("velmora.test.busrecorder") {}
    std::string GetSharedStateName() override { return "velmora.test.busrecorder"; }

    void OnRegistered() override { RegisterWildCardListener(std::make_shared<Listener>()); }

    std::vector<std::shared_ptr<VelmoraMobile::Event>> Events(
        const std::shared_ptr<VelmoraMobile::EventType>& type,
        const std::shared_ptr<VelmoraMobile::EventSource>& source) const {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<std::shared_ptr<VelmoraMobile::Event>> matching;
        for (const auto& event : events_) {
            if (event->GetEventType() == type && event->GetEventSource() == source) matching.push_back(event);
        }
        return matching;
    }

private:
    class Listener : public VelmoraMobile::ModuleEventListener<BusRecorder> {
    public:
        void Hear(const std::shared_ptr<VelmoraMobile::Event>& event) override {
            if (auto recorder = GetParentModule()) {
                std::lock_guard<std::mutex> lock(recorder->mutex_);
                recorder->events_.push_back(event);
            }
        }
    };

    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<VelmoraMobile::Event>> events_;
};

}  // namespace VelmoraTest
