#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "identity/hits/IdentityDatabaseHitSchema.h"
#include "identity/hits/IdentityHitProcessor.h"
#include "identity/hits/IdentityHitQueue.h"
#include "identity/module/ConfigurationSharedStateIdentity.h"
#include "runtime/bus/Event.h"
#include "runtime/services/DatabaseServiceInterface.h"
#include "runtime/services/PlatformServicesInterface.h"
#include "runtime/services/SystemInfoServiceInterface.h"
#include "runtime/values/MobilePrivacyStatus.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

class Identity;

/// The identity module's way to its persistent hit queue: builds the pipeline (schema, processor,
/// queue), turns a sync URL into a stored hit and maps the privacy status onto the queue's states
/// (opted in: on line; unknown: suspended; opted out: suspended and emptied).
///
/// Owned by Identity::hit_database. Created in Identity::OnRegistered; Queue, UpdatePrivacyStatus
/// and the waiting Dispose are called from the module's task queue, one at a time; the first
/// Dispose(0) from OnUnregistered. Takes no lock of its own: the queue is safe against its worker.
class IdentityHitDatabase : public Object {
public:
    IdentityHitDatabase() = default;
    ~IdentityHitDatabase() override = default;

    /// Builds the whole pipeline for `module` on `platform_services`; uses `hit_queue` instead of a
    /// new queue when it is given. Rows left from an earlier run lose their pair id and event number.
    /// Empty (logged) when the creation failed.
    static std::shared_ptr<IdentityHitDatabase> CreateIdentityDatabase(
        const std::shared_ptr<Identity>& module, const std::shared_ptr<PlatformServicesInterface>& platform_services,
        const std::shared_ptr<IdentityHitQueue>& hit_queue);

    /// Makes the schema and takes the services it keeps. Throws SdkError without platform services.
    void Init(const std::shared_ptr<PlatformServicesInterface>& platform_services);

    /// Ends the queue, waiting at most `timeout` (0: only starts the end). True when it has ended,
    /// and at once when there is no queue. Rows stay in the file.
    virtual bool Dispose(std::chrono::milliseconds timeout);
    /// Stores a hit for `url`, stamped with `event`'s time (in seconds), pair id and number; a null
    /// `config` reads as the defaults. Sends it at once only when `config` says opted in.
    virtual void Queue(const std::string& url, const std::shared_ptr<ConfigurationSharedStateIdentity>& config,
                       const std::shared_ptr<Event>& event);
    virtual void UpdatePrivacyStatus(MobilePrivacyStatus status);

    /// Rows stored before now are sent with pair id "" and event number -1: no one waits for them.
    void ResetEventNumberAndPairIdForExistingRequests();

    // Public so that tests see the pipeline; set during creation only.
    std::shared_ptr<IdentityDatabaseHitSchema> hit_schema;
    std::shared_ptr<IdentityHitQueue> hit_queue;
    std::shared_ptr<IdentityHitProcessor> hit_processor;
    /// Kept, not read: the processor fetches its own.
    std::shared_ptr<SystemInfoServiceInterface> system_info_service;
    /// Kept, not read.
    std::shared_ptr<DatabaseServiceInterface> platform_service;
};

}  // namespace VelmoraMobile
