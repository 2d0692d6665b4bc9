#pragma once

#include <memory>

#include "identity/hits/IdentityDatabaseHit.h"
#include "identity/hits/IdentityDatabaseHitSchema.h"
#include "identity/hits/IdentityHitProcessor.h"
#include "runtime/hitqueue/HitQueue.h"
#include "runtime/services/PlatformServicesInterface.h"

namespace VelmoraMobile {

/// The hit queue bound to identity hits, their schema and their processor; adds nothing. Opens
/// "VLBMobileIdentity.sqlite" in the platform's database folder when constructed (throws SdkError
/// when it cannot). Owned by IdentityHitDatabase; threads as for HitQueueBase.
class IdentityHitQueue : public HitQueue<IdentityDatabaseHit, IdentityDatabaseHitSchema, IdentityHitProcessor> {
public:
    IdentityHitQueue(const std::shared_ptr<PlatformServicesInterface>& platform_services,
                     const std::shared_ptr<IdentityDatabaseHitSchema>& schema,
                     const std::shared_ptr<IdentityHitProcessor>& processor);
    ~IdentityHitQueue() override;
};

}  // namespace VelmoraMobile
