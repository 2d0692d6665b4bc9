#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "runtime/bus/Event.h"
#include "runtime/bus/EventData.h"
#include "runtime/bus/InternalModule.h"

namespace VelmoraCli {

/// A module that watches the bus for the command line, touching nothing: the sync requests that
/// leave through the public API (their pair ids), the identity server's answers to them
/// ("UPDATED_IDENTITY_RESPONSE") and the configuration the configuration extension publishes.
///
/// Registered on the core's hub after the start; hears on the hub's delivery thread. The Wait
/// operations may be called on any other thread; all fields are guarded by one mutex.
class CliObserver : public VelmoraMobile::InternalModule {
public:
    static constexpr const char* NAME = "com.velmora.tools.cli.observer";

    CliObserver();
    std::string GetSharedStateName() override;
    void OnRegistered() override;

    /// From the listener.
    void Record(const std::shared_ptr<VelmoraMobile::Event>& event);

    /// Waits until `count` sync requests have been seen and each has its answer; the answers'
    /// data in request order, or fewer when `deadline` passed first.
    std::vector<std::shared_ptr<VelmoraMobile::EventData>> WaitForSyncAnswers(
        size_t count, std::chrono::steady_clock::time_point deadline);
    /// Waits until `current()` (the configuration's shared state, read anew after each
    /// configuration the bus carries) gives data that `accept` takes; null at the deadline.
    std::shared_ptr<VelmoraMobile::EventData> WaitForConfiguration(
        const std::function<std::shared_ptr<VelmoraMobile::EventData>()>& current,
        const std::function<bool(const VelmoraMobile::EventData&)>& accept,
        std::chrono::steady_clock::time_point deadline);

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> sync_pair_ids_;
    std::map<std::string, std::shared_ptr<VelmoraMobile::EventData>> answers_;
    /// Raised by every configuration the bus carries.
    uint64_t configuration_version_{0};
};

}  // namespace VelmoraCli
