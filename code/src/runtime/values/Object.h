#pragma once

#include <memory>
#include <string>

#include "runtime/values/ObjectInterface.h"

namespace VelmoraMobile {

/// Base of shared objects. An Object made with std::make_shared (or given to a
/// shared_ptr) can hand out shared pointers to itself; one made otherwise gives null.
class Object : public virtual ObjectInterface, public std::enable_shared_from_this<Object> {
public:
    Object() = default;
    Object(const Object&) : ObjectInterface(), std::enable_shared_from_this<Object>() {}
    Object& operator=(const Object&) { return *this; }
    ~Object() override = default;

    /// Identity comparison.
    bool Equals(const ObjectInterface& other) const override;
    /// Null when the object is not held in shared ownership.
    std::shared_ptr<ObjectInterface> SharedPtrToThisObjectInterface() override;
    std::string ToStringImpl(const ToStringOptions& options) const override;
};

/// A shared_ptr<T> to an object already in shared ownership; null when it is not shared or not a T.
template <typename T>
std::shared_ptr<T> ObjectToSharedPtr(ObjectInterface& object) {
    return std::dynamic_pointer_cast<T>(object.SharedPtrToThisObjectInterface());
}

template <typename T>
std::shared_ptr<T> ObjectToSharedPtr(ObjectInterface* object) {
    return object ? ObjectToSharedPtr<T>(*object) : nullptr;
}

}  // namespace VelmoraMobile
