#pragma once

#include <chrono>
#include <memory>
#include <mutex>

#include "host/CoreOptions.h"
#include "host/VelmoraMobileCore.h"

namespace VelmoraMobile {

/// The process's one running core, where the host-facing layers find it. At most one core runs
/// at a time: data folders, the hit queue and the host's callbacks all assume one.
///
/// Every member may be called on any thread. GetCore is cheap; Start and Stop run one at a time
/// and must not be called on a thread of the hub (inside a callback).
class VelmoraMobileCoreBridge {
public:
    static VelmoraMobileCoreBridge& GetInstance();

    /// The running core; null before the first start and after a stop.
    std::shared_ptr<VelmoraMobileCore> GetCore();

    /// Starts a core (VelmoraMobileCore::Start) and makes it the running one. Null, with an error
    /// line that says why, when a core runs already or the start failed. Throws nothing, so that
    /// Objective-C callers (whose frames do not catch C++ exceptions) may call it.
    std::shared_ptr<VelmoraMobileCore> Start(const CoreOptions& options);

    /// Stops `core` within `deadline`; if it is the running one, GetCore gives null from then on.
    /// True when it ended in time or had stopped already.
    bool Stop(const std::shared_ptr<VelmoraMobileCore>& core, std::chrono::milliseconds deadline);
    /// Stops the running core, if any, within its own stop timeout.
    bool Stop();

    VelmoraMobileCoreBridge(const VelmoraMobileCoreBridge&) = delete;
    VelmoraMobileCoreBridge& operator=(const VelmoraMobileCoreBridge&) = delete;

private:
    VelmoraMobileCoreBridge() = default;

    std::mutex lifecycle_mutex_;  // one start or stop at a time
    std::mutex core_mutex_;       // guards core_ alone, so GetCore never waits for a start or stop
    std::shared_ptr<VelmoraMobileCore> core_;
};

}  // namespace VelmoraMobile
