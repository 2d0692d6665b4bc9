#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>

#include "host/CoreOptions.h"
#include "runtime/bus/EventHub.h"
#include "runtime/configuration/ConfigurationExtension.h"
#include "runtime/services/PlatformServicesInterface.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// One running core: the platform services on a data folder, the event hub, and on it the
/// configuration extension and the identity module. Hosts start one through Core (C++) or the
/// bridge (VelmoraMobileCoreBridge::Start); the bridge holds it while it runs.
///
/// The fields are fixed at construction and may be read on any thread. Stop may be called on
/// any thread but the hub's own (never inside a callback of the identity API).
class VelmoraMobileCore : public Object {
public:
    /// Makes the services, the hub and the modules, publishes the configuration of `options` as
    /// one state, boots the hub and returns once every module's registration has run, so that a
    /// request sent right after it is heard. Throws SdkError "core.start_timeout" (after
    /// stopping what it made) when that takes longer than `options.start_timeout`.
    static std::shared_ptr<VelmoraMobileCore> Start(const CoreOptions& options);

    /// Stops with `stop_timeout` unless stopped already.
    ~VelmoraMobileCore() override;

    /// Unregisters the modules (their last tasks still run), delivers what they sent and ends
    /// every thread of the hub, within `deadline`. True when all of it ended in time. Later
    /// calls do nothing and give the first call's result.
    bool Stop(std::chrono::milliseconds deadline);
    /// True from the first Stop on.
    bool IsStopped();

    const std::shared_ptr<PlatformServicesInterface> platform_services;
    const std::shared_ptr<EventHub> event_hub;
    const std::shared_ptr<ConfigurationExtension> configuration;
    /// The data folder in use, after the defaults of CoreOptions::data_dir were applied.
    const std::string data_dir;
    const std::chrono::milliseconds stop_timeout;

private:
    VelmoraMobileCore(std::shared_ptr<PlatformServicesInterface> services, std::shared_ptr<EventHub> hub,
                      std::shared_ptr<ConfigurationExtension> configuration_extension, std::string folder,
                      std::chrono::milliseconds stop_deadline);

    std::mutex stop_mutex_;
    bool stopped_{false};
    bool stopped_in_time_{false};
};

}  // namespace VelmoraMobile
