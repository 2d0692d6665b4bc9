#pragma once

#include <memory>
#include <string>

#include "runtime/values/ToStringOptions.h"

namespace VelmoraMobile {

/// Root of every long-lived class. Has no base and no state.
class ObjectInterface {
public:
    virtual ~ObjectInterface() = default;
    virtual bool Equals(const ObjectInterface& other) const = 0;
    virtual std::shared_ptr<ObjectInterface> SharedPtrToThisObjectInterface() = 0;
    virtual std::string ToStringImpl(const ToStringOptions& options) const = 0;
};

}  // namespace VelmoraMobile
