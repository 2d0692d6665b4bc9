#pragma once

#include <memory>

#include "runtime/values/Expected.h"
#include "runtime/values/ObjectInterface.h"

namespace VelmoraMobile {

class Variant;

/// Converts one T to and from a Variant. Implementations hold no state and are thread-safe.
template <typename T>
class VariantSerializerInterface : public virtual ObjectInterface {
public:
    virtual Expected<std::shared_ptr<T>> Deserialize(const Variant& variant) const = 0;
    virtual std::shared_ptr<Variant> Serialize(const T& value) const = 0;
};

}  // namespace VelmoraMobile
