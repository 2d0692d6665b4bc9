#pragma once

#include <memory>

#include "runtime/hitqueue/HitQueueBase.h"
#include "runtime/hitqueue/Query.h"

namespace VelmoraMobile {

/// A hit queue typed to `Hit` (derived virtually from DatabaseHitBase), its schema and its processor.
/// The operations only change the type and forward to HitQueueBase: a hit of another type, or none,
/// comes back as an empty pointer. Threads and ownership as for HitQueueBase.
template <typename Hit, typename Schema, typename Processor>
class HitQueue : public HitQueueBase {
public:
    HitQueue(const std::shared_ptr<PlatformServicesInterface>& platform_services, const std::shared_ptr<Schema>& schema,
             const std::shared_ptr<Processor>& processor)
        : HitQueueBase(platform_services, schema, processor) {}

    virtual std::shared_ptr<Hit> QueryHit(const std::shared_ptr<Query>& query) {
        return std::dynamic_pointer_cast<Hit>(HitQueueBase::QueryHit(query));
    }

    virtual bool Queue(const std::shared_ptr<Hit>& hit) {
        return HitQueueBase::Queue(std::shared_ptr<DatabaseHitBase>(hit));
    }

    virtual std::shared_ptr<Hit> SelectOldestHit() {
        return std::dynamic_pointer_cast<Hit>(HitQueueBase::SelectOldestHit());
    }

    virtual bool UpdateHit(const std::shared_ptr<Hit>& hit) {
        return HitQueueBase::UpdateHit(std::shared_ptr<DatabaseHitBase>(hit));
    }
};

}  // namespace VelmoraMobile
