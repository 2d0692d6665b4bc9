#pragma once

#include <map>
#include <memory>
#include <string>

#include "identity/hits/IdentityDatabaseHit.h"
#include "identity/hits/IdentityObject.h"
#include "runtime/hitqueue/HitProcessResult.h"
#include "runtime/hitqueue/HitProcessor.h"
#include "runtime/services/JsonObject.h"
#include "runtime/services/JsonUtilityServiceInterface.h"
#include "runtime/services/NetworkServiceInterface.h"
#include "runtime/services/SystemInfoServiceInterface.h"

namespace VelmoraMobile {

class Identity;

/// Sends one identity hit to the server and decides its fate: RETRY only for a recoverable HTTP
/// status, DONE for everything else. Every finished hit except one without a URL is reported to
/// the module through Identity::NetworkResponseLoaded, with an empty object when nothing could be
/// read. That call runs as the module's task "NetworkResponseLoaded" (added with
/// REQUIRED_FOR_UNREGISTRATION), never on the worker; the worker does not wait for it. A module
/// whose queue has closed drops the answer with one log line.
///
/// Made by IdentityHitDatabase::CreateIdentityDatabase and owned by it and the queue. It holds the
/// module strongly (the module owns the hit database): the module's "unregistration" task breaks
/// that cycle. Process runs on the hit queue's worker only and blocks it for at most the two
/// request timeouts; the processor keeps no state between calls.
class IdentityHitProcessor : public HitProcessor<IdentityDatabaseHit> {
public:
    /// `network_service` and `parent_module` must not be empty; the other two may be.
    IdentityHitProcessor(const std::shared_ptr<NetworkServiceInterface>& network_service,
                         const std::shared_ptr<SystemInfoServiceInterface>& system_info_service,
                         const std::shared_ptr<JsonUtilityServiceInterface>& json_utility_service,
                         const std::shared_ptr<Identity>& parent_module);
    ~IdentityHitProcessor() override = default;

    /// `hit` is never empty: the queue hands over only rows it could read.
    HitProcessResult Process(const std::shared_ptr<IdentityDatabaseHit>& hit) override;

    /// Request headers, with the device's language tag as "language-REGION". The flag is not
    /// looked at. Without a system info service: an empty map.
    std::map<std::string, std::string> BuildIdentityRequestPropertyMap(bool flag);

    /// The server's answer as a record; empty for a missing or empty JSON object. What a
    /// JsonObject getter throws is not caught here.
    std::shared_ptr<IdentityObject> CreateIdentityObjectFromResponseJsonObject(
        const std::shared_ptr<JsonObject>& json) const;

private:
    /// Adds the task that applies one outcome on the module's queue; returns at once.
    void HandOverResponse(const std::shared_ptr<IdentityObject>& identity_object, const std::string& pair_id,
                          int32_t event_number);

public:
    std::shared_ptr<NetworkServiceInterface> network_service;
    std::shared_ptr<JsonUtilityServiceInterface> json_utility_service;
    std::shared_ptr<SystemInfoServiceInterface> system_info_service;
    std::shared_ptr<Identity> parent_module;
};

}  // namespace VelmoraMobile
