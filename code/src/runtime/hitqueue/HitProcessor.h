#pragma once

#include <memory>

#include "runtime/hitqueue/HitProcessorBase.h"

namespace VelmoraMobile {

/// A processor for hits of type `Hit`. A hit of another type reaches Process as an empty pointer.
template <typename Hit>
class HitProcessor : public HitProcessorBase {
public:
    HitProcessResult ProcessBase(const std::shared_ptr<DatabaseHitBase>& hit) override {
        return Process(std::dynamic_pointer_cast<Hit>(hit));
    }

    virtual HitProcessResult Process(const std::shared_ptr<Hit>& hit) = 0;
};

}  // namespace VelmoraMobile
