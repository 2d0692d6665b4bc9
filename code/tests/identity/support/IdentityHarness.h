#pragma once

#include <gtest/gtest.h>

#include <mutex>

#include "identity/module/Identity.h"
#include "runtime/bus/EventBuilder.h"
#include "runtime/bus/EventHub.h"
#include "runtime/bus/ModuleEventListener.h"
#include "runtime/bus/SharedStatePending.h"
#include "runtime/configuration/ConfigurationExtension.h"
#include "runtime/services/PlatformServices.h"
#include "runtime/values/StringUtils.h"
#include "runtime/values/Variant.h"
#include "tests/support/TempDir.h"
#include "tests/support/WaitFor.h"

// Header only; the harness is driven from the test thread.
namespace VelmoraTest {

/// A module that records every event of the bus, in delivery order.
class EventRecorder : public VelmoraMobile::InternalModule {
public:
    EventRecorder() : InternalModule("velmora.test.recorder") {}
    std::string GetSharedStateName() override { return "velmora.test.recorder"; }
    void OnRegistered() override {
        struct Listener : VelmoraMobile::ModuleEventListener<EventRecorder> {
            void Hear(const std::shared_ptr<VelmoraMobile::Event>& event) override {
                if (auto module = GetParentModule()) module->Record(event);
            }
        };
        RegisterWildCardListener(std::make_shared<Listener>());
    }

    void Record(const std::shared_ptr<VelmoraMobile::Event>& event) {
        std::lock_guard<std::mutex> lock(mutex_);
        events_.push_back(event);
    }
    std::vector<std::shared_ptr<VelmoraMobile::Event>> Events() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return events_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<VelmoraMobile::Event>> events_;
};

/// A real hub on a data folder with the configuration extension, an event recorder and
/// (after RegisterIdentity) the identity module. Shut down on destruction.
class IdentityHarness {
public:
    using EventPredicate = std::function<bool(const std::shared_ptr<VelmoraMobile::Event>&)>;

    /// `data_dir` empty: a fresh temporary folder owned by the harness.
    explicit IdentityHarness(const std::string& data_dir = "")
        : data_dir_(data_dir.empty() ? owned_dir_.Path() : data_dir),
          services(std::make_shared<VelmoraMobile::PlatformServices>(data_dir_)),
          hub(std::make_shared<VelmoraMobile::EventHub>(services)),
          recorder(hub->RegisterModule<EventRecorder>()) {
        configuration = hub->RegisterModule<VelmoraMobile::ConfigurationExtension>();
    }
    ~IdentityHarness() { Shutdown(); }

    const std::string& DataDir() const { return data_dir_; }

    /// Registers the identity module and waits until its OnRegistered has run.
    std::shared_ptr<VelmoraMobile::Identity> RegisterIdentity() {
        identity = hub->RegisterModule<VelmoraMobile::Identity>();
        EXPECT_NE(identity, nullptr);
        Drain();  // tasks wait for OnRegistered, so one drained task proves it ran
        return identity;
    }
    /// Dispatches HUB / BOOTED.
    void Boot() { hub->FinishModulesRegistration(); }
    /// Publishes `values` ("ondaraCloud.org", "global.privacy", ...) through the configuration
    /// extension and waits until its shared state holds them.
    void Configure(const std::map<std::string, std::string>& values) {
        VelmoraMobile::Variant::VariantMap map;
        for (const auto& entry : values) map[entry.first] = VelmoraMobile::Variant::FromString(entry.second);
        ConfigureVariants(map);
    }
    /// Like Configure, for values of any kind (e.g. "global.ssl" as a boolean).
    void ConfigureVariants(const VelmoraMobile::Variant::VariantMap& values) {
        using VelmoraMobile::StringUtils::ToString;
        configuration->UpdateConfiguration(values);
        EXPECT_TRUE(WaitFor([&] {
            auto state = hub->GetSharedEventState("com.velmora.module.configuration", nullptr);
            std::shared_ptr<VelmoraMobile::Variant> value;
            for (const auto& entry : values) {
                if (!state || state == VelmoraMobile::SHARED_STATE_PENDING || !state->GetVariant(entry.first, value) ||
                    !value || ToString(*value) != ToString(*entry.second)) {
                    return false;
                }
            }
            return true;
        })) << "configuration not published";
    }

    /// Dispatches an IDENTITY / REQUEST_IDENTITY event with `data` and returns it.
    std::shared_ptr<VelmoraMobile::Event> DispatchIdentityRequest(const std::shared_ptr<VelmoraMobile::EventData>& data,
                                                                  const std::string& name = "test request") {
        auto event = VelmoraMobile::EventBuilder(name, VelmoraMobile::EventType::IDENTITY,
                                                 VelmoraMobile::EventSource::REQUEST_IDENTITY)
                         .SetData(data ? data : std::make_shared<VelmoraMobile::EventData>())
                         .Build();
        hub->Dispatch(event);
        return event;
    }

    std::vector<std::shared_ptr<VelmoraMobile::Event>> Events() const { return recorder->Events(); }
    /// Events of that type and source, in delivery order.
    std::vector<std::shared_ptr<VelmoraMobile::Event>> Events(
        const std::shared_ptr<VelmoraMobile::EventType>& type,
        const std::shared_ptr<VelmoraMobile::EventSource>& source) const {
        std::vector<std::shared_ptr<VelmoraMobile::Event>> events;
        for (const auto& e : recorder->Events()) {
            if (e->GetEventType() == type && e->GetEventSource() == source) events.push_back(e);
        }
        return events;
    }
    /// Waits until an event satisfying `predicate` was delivered; returns it or null on timeout.
    std::shared_ptr<VelmoraMobile::Event> WaitForEvent(const EventPredicate& predicate,
                                                       std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
        std::shared_ptr<VelmoraMobile::Event> found;
        WaitFor(
            [&] {
                for (const auto& event : recorder->Events()) {
                    if (predicate(event)) return static_cast<bool>(found = event);
                }
                return false;
            },
            timeout);
        return found;
    }
    /// Waits for a response event carrying `pair_id`.
    std::shared_ptr<VelmoraMobile::Event> WaitForResponse(
        const std::string& pair_id, std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
        return WaitForEvent(
            [&](const auto& e) {
                return e->GetEventSource() == VelmoraMobile::EventSource::RESPONSE_IDENTITY &&
                       e->GetResponsePairID() == pair_id;
            },
            timeout);
    }

    /// The identity shared state for `event` (null event: the newest).
    std::shared_ptr<VelmoraMobile::EventData> IdentityState(
        const std::shared_ptr<VelmoraMobile::Event>& event = nullptr) {
        return hub->GetSharedEventState("com.velmora.module.identity", event);
    }

    /// Runs `work` as a task of the identity module and waits for it: the race-free way to read
    /// the module's fields in a test.
    void RunInIdentityQueue(const std::function<void()>& work) {
        ASSERT_NE(identity, nullptr);
        auto done = std::make_shared<std::promise<void>>();
        auto future = done->get_future();
        identity->AddTaskToQueue("test", [work, done] {
            work();
            done->set_value();
        });
        ASSERT_EQ(future.wait_for(std::chrono::seconds(30)), std::future_status::ready) << "identity task queue stuck";
    }

    /// Waits until every task queued so far in the identity module has run.
    void Drain() {
        RunInIdentityQueue([] {});
    }

    /// Orderly stop of the hub (idempotent, as the hub's own).
    void Shutdown() {
        if (hub) hub->Shutdown();
    }

private:
    TempDir owned_dir_;  // unused when the caller names a folder
    std::string data_dir_;

public:
    std::shared_ptr<VelmoraMobile::PlatformServices> services;
    std::shared_ptr<VelmoraMobile::EventHub> hub;
    std::shared_ptr<VelmoraMobile::ConfigurationExtension> configuration;
    std::shared_ptr<EventRecorder> recorder;
    std::shared_ptr<VelmoraMobile::Identity> identity;
};

}  // namespace VelmoraTest
