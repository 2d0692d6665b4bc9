#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "identity/module/Identity.h"
#include "runtime/bus/Event.h"
#include "runtime/bus/EventData.h"
#include "runtime/bus/EventHub.h"
#include "runtime/bus/InternalModule.h"
#include "runtime/configuration/ConfigurationExtension.h"
#include "runtime/services/PlatformServices.h"
#include "runtime/values/Variant.h"
#include "tests/support/TempDir.h"

namespace VelmoraTest {

/// A module that records every event of the bus, in delivery order.
class EventRecorder : public VelmoraMobile::InternalModule {
public:
    EventRecorder() : InternalModule("velmora.test.recorder") {}
    std::string GetSharedStateName() override { return "velmora.test.recorder"; }
    void OnRegistered() override;

    void Record(const std::shared_ptr<VelmoraMobile::Event>& event);
    std::vector<std::shared_ptr<VelmoraMobile::Event>> Events() const;

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
    explicit IdentityHarness(const std::string& data_dir = "");
    ~IdentityHarness() { Shutdown(); }

    const std::string& DataDir() const { return data_dir_; }

    /// Registers the identity module and waits until its OnRegistered has run.
    std::shared_ptr<VelmoraMobile::Identity> RegisterIdentity();
    /// Dispatches HUB / BOOTED.
    void Boot() { hub->FinishModulesRegistration(); }
    /// Publishes `values` ("ondaraCloud.org", "global.privacy", ...) through the configuration
    /// extension and waits until its shared state holds them.
    void Configure(const std::map<std::string, std::string>& values);
    /// Like Configure, for values of any kind (e.g. "global.ssl" as a boolean).
    void ConfigureVariants(const VelmoraMobile::Variant::VariantMap& values);

    /// Dispatches an IDENTITY / REQUEST_IDENTITY event with `data` and returns it.
    std::shared_ptr<VelmoraMobile::Event> DispatchIdentityRequest(const std::shared_ptr<VelmoraMobile::EventData>& data,
                                                                  const std::string& name = "test request");

    std::vector<std::shared_ptr<VelmoraMobile::Event>> Events() const { return recorder->Events(); }
    /// Events of that type and source, in delivery order.
    std::vector<std::shared_ptr<VelmoraMobile::Event>> Events(
        const std::shared_ptr<VelmoraMobile::EventType>& type,
        const std::shared_ptr<VelmoraMobile::EventSource>& source) const;
    /// Waits until an event satisfying `predicate` was delivered; returns it or null on timeout.
    std::shared_ptr<VelmoraMobile::Event> WaitForEvent(const EventPredicate& predicate,
                                                       std::chrono::milliseconds timeout = std::chrono::seconds(20));
    /// Waits for a response event carrying `pair_id`.
    std::shared_ptr<VelmoraMobile::Event> WaitForResponse(const std::string& pair_id,
                                                          std::chrono::milliseconds timeout = std::chrono::seconds(20));

    /// The identity shared state for `event` (null event: the newest).
    std::shared_ptr<VelmoraMobile::EventData> IdentityState(
        const std::shared_ptr<VelmoraMobile::Event>& event = nullptr) {
        return hub->GetSharedEventState("com.velmora.module.identity", event);
    }

    /// Runs `work` as a task of the identity module and waits for it: the race-free way to read
    /// the module's fields in a test.
    void RunInIdentityQueue(const std::function<void()>& work);

    /// Waits until every task queued so far in the identity module has run.
    void Drain() {
        RunInIdentityQueue([] {});
    }

    /// Orderly stop of the hub (idempotent).
    void Shutdown();

    std::shared_ptr<VelmoraMobile::PlatformServices> services;
    std::shared_ptr<VelmoraMobile::EventHub> hub;
    std::shared_ptr<VelmoraMobile::ConfigurationExtension> configuration;
    std::shared_ptr<EventRecorder> recorder;
    std::shared_ptr<VelmoraMobile::Identity> identity;

private:
    std::unique_ptr<TempDir> owned_dir_;
    std::string data_dir_;
    bool shut_down_{false};
};

}  // namespace VelmoraTest
