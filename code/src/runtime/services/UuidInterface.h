#pragma once

#include <cstdint>

#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// Random version-4 UUIDs. Thread-safe.
class UuidInterface : public virtual ObjectInterface {
public:
    /// Fills the 16 bytes of `out` with a new random UUID.
    virtual void GenerateUuid(uint8_t (&out)[16]) = 0;
};

}  // namespace VelmoraMobile
