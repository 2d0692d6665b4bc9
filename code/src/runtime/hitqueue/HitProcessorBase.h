#pragma once

#include <memory>

#include "runtime/hitqueue/DatabaseHitBase.h"
#include "runtime/hitqueue/HitProcessResult.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// Handles one hit, untyped. Called on the queue's worker thread only, one hit at a time; it may
/// block (a network request). An exception out of it counts as RETRY.
class HitProcessorBase : public Object {
public:
    virtual HitProcessResult ProcessBase(const std::shared_ptr<DatabaseHitBase>& hit) = 0;
};

}  // namespace VelmoraMobile
