#pragma once

#include <chrono>
#include <memory>

#include "host/CoreOptions.h"
#include "host/IdentitySyncRequest.h"
#include "host/VelmoraMobileCore.h"
#include "identity/api/IdentityPublicApi.h"
#include "runtime/configuration/ConfigurationExtension.h"

namespace VelmoraMobile {

/// The running core of a C++ host, owned by the host: constructing it starts the core, and
/// destroying it stops the core.
///
///     VelmoraMobile::Core core(options);   // returns with the modules registered
///     core.IdentityApi()->GetOndaraCloudId([](std::string mid) { ... });
///     core.Stop();                         // or let `core` go out of scope
///
/// One core runs per process at a time (see VelmoraMobileCoreBridge); Objective-C hosts reach
/// the same core. Construct, stop and destroy it on a host thread, never inside a callback of
/// the identity API; IdentityApi and Configuration may be called on any thread.
class Core {
public:
    /// Starts a core. Throws SdkError "core.not_started" when another core runs or the start
    /// timed out; an error line says which.
    explicit Core(const CoreOptions& options = CoreOptions());
    /// Stops the core, within the options' stop timeout, unless stopped already.
    ~Core();
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    /// Bounded and idempotent: true when everything ended within `deadline`; later calls give the
    /// first call's result.
    /// Afterwards no thread of the core runs and every identity call is logged and dropped.
    bool Stop(std::chrono::milliseconds deadline);
    /// Stop with the options' stop timeout.
    bool Stop();

    /// A fresh identity API on this core. After Stop its calls are logged and dropped.
    std::shared_ptr<IdentityPublicApi> IdentityApi() const;
    /// Sends `request` to the identity module as one GENERIC_IDENTITY / REQUEST_CONTENT sync, the
    /// way the platform core hands in push tokens and advertising ids. Returns at once; the answer
    /// ("UPDATED_IDENTITY_RESPONSE") carries the request's pair id. Dropped after Stop.
    void SyncIdentity(const IdentitySyncRequest& request) const;
    /// The configuration extension, for changes after start (UpdateConfiguration,
    /// SetPrivacyStatus); it only queues work. Null after Stop.
    std::shared_ptr<ConfigurationExtension> Configuration() const;
    /// The hub, the services and the data folder; null after Stop.
    std::shared_ptr<VelmoraMobileCore> Running() const;

private:
    const std::shared_ptr<VelmoraMobileCore> core_;
};

}  // namespace VelmoraMobile
