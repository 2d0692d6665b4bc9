#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "runtime/values/Expected.h"
#include "runtime/values/Object.h"
#include "runtime/values/VariantSerializerInterface.h"

namespace VelmoraMobile {

enum class VariantKind : int32_t {
    NULL_KIND = 0,
    STRING = 1,
    INTEGER = 2,
    LONG = 3,
    BOOLEAN = 4,
    DOUBLE = 5,
    VECTOR = 6,
    MAP = 7,
};

/// An immutable tagged value, always held by shared_ptr<Variant>. Safe to read from any thread.
/// Readers of the wrong kind return false and leave `out` untouched.
class Variant : public Object {
public:
    using VariantVector = std::vector<std::shared_ptr<Variant>>;
    using VariantMap = std::map<std::string, std::shared_ptr<Variant>>;

    static std::shared_ptr<Variant> FromNull();
    static std::shared_ptr<Variant> FromString(const std::string& value);
    static std::shared_ptr<Variant> FromInteger(int32_t value);
    static std::shared_ptr<Variant> FromLong(int64_t value);
    static std::shared_ptr<Variant> FromBoolean(bool value);
    static std::shared_ptr<Variant> FromDouble(double value);
    static std::shared_ptr<Variant> FromVariantVector(const VariantVector& value);
    static std::shared_ptr<Variant> FromVariantVector(VariantVector&& value);
    /// A vector whose elements `make` produces at the first read of them, once, on the reading
    /// thread: a producer that publishes a long list on every change pays for the elements only
    /// when someone reads them. `make` must read nothing that changes after this call.
    static std::shared_ptr<Variant> FromDeferredVector(std::function<VariantVector()> make);
    static std::shared_ptr<Variant> FromVariantMap(const VariantMap& value);
    static std::shared_ptr<Variant> FromVariantMap(VariantMap&& value);
    static std::shared_ptr<Variant> FromStringMap(const std::map<std::string, std::string>& value);

    virtual VariantKind GetKind() const;
    virtual bool GetString(std::string& out) const;
    virtual bool GetInteger(int32_t& out) const;
    virtual bool GetLong(int64_t& out) const;
    virtual bool GetBoolean(bool& out) const;
    virtual bool GetDouble(double& out) const;
    virtual bool GetVariantVector(VariantVector& out) const;
    virtual bool GetVariantMap(VariantMap& out) const;
    /// A map whose every value is a string.
    virtual bool GetStringMap(std::map<std::string, std::string>& out) const;

    std::string ToStringImpl(const ToStringOptions& options) const override;

    /// Each element through `serializer`; a null element becomes the null kind.
    template <typename T>
    static std::shared_ptr<Variant> FromTypedVector(const std::vector<std::shared_ptr<T>>& values,
                                                    const std::shared_ptr<VariantSerializerInterface<T>>& serializer);
    /// With the type's default serializer; specialised beside that serializer.
    template <typename T>
    static std::shared_ptr<Variant> FromTypedVector(const std::vector<std::shared_ptr<T>>& values);

    /// The vector read back through `serializer`; the first bad element's error, or
    /// "variant.not_vector" when this is no vector.
    template <typename T>
    Expected<std::vector<std::shared_ptr<T>>> GetTypedVector(
        const std::shared_ptr<VariantSerializerInterface<T>>& serializer) const;
    /// With the type's default serializer; specialised beside that serializer.
    template <typename T>
    Expected<std::vector<std::shared_ptr<T>>> GetTypedVector() const;

    Variant();  // null kind; use the factories

private:
    struct DeferredVector;
    // The elements of a vector, made first when they are deferred.
    const VariantVector& Elements() const;

    VariantKind kind_{VariantKind::NULL_KIND};
    // One slot for whichever value the kind holds: lists of many small values (stored ids, event
    // data) cost less than half the bytes of a member per kind. Integers and booleans share the first.
    std::variant<int64_t, double, std::string, VariantVector, VariantMap, std::shared_ptr<DeferredVector>> value_;
};

template <typename T>
std::shared_ptr<Variant> Variant::FromTypedVector(const std::vector<std::shared_ptr<T>>& values,
                                                  const std::shared_ptr<VariantSerializerInterface<T>>& serializer) {
    VariantVector result;
    result.reserve(values.size());
    for (const auto& element : values) {
        result.push_back(element ? serializer->Serialize(*element) : FromNull());
    }
    return FromVariantVector(std::move(result));
}

template <typename T>
Expected<std::vector<std::shared_ptr<T>>> Variant::GetTypedVector(
    const std::shared_ptr<VariantSerializerInterface<T>>& serializer) const {
    VariantVector elements;
    if (!GetVariantVector(elements)) {
        return SdkError("variant.not_vector", "type conversion error", DebugInfo());
    }
    std::vector<std::shared_ptr<T>> result;
    result.reserve(elements.size());
    for (const auto& element : elements) {
        Expected<std::shared_ptr<T>> value = serializer->Deserialize(element ? *element : *FromNull());
        if (!value.HasValue()) {
            return value.Error();
        }
        result.push_back(value.Value());
    }
    return result;
}

}  // namespace VelmoraMobile
