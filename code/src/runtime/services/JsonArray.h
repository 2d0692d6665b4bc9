#pragma once

#include <cstdint>
#include <string>

#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// A read-only JSON array. Getters of the wrong kind or index give "" / the fallback.
class JsonArray : public virtual ObjectInterface {
public:
    virtual std::string GetString(int32_t index) const = 0;
    virtual int32_t Length() const = 0;
    virtual std::string ToJsonString() const = 0;
};

}  // namespace VelmoraMobile
