#include "identity/hits/IdentityHitQueue.h"

namespace VelmoraMobile {

IdentityHitQueue::IdentityHitQueue(const std::shared_ptr<PlatformServicesInterface>& platform_services,
                                   const std::shared_ptr<IdentityDatabaseHitSchema>& schema,
                                   const std::shared_ptr<IdentityHitProcessor>& processor)
    : HitQueue(platform_services, schema, processor) {}

IdentityHitQueue::~IdentityHitQueue() = default;

}  // namespace VelmoraMobile
