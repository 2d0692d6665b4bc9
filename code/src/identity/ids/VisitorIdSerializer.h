#pragma once

#include <memory>
#include <vector>

#include "identity/ids/VisitorId.h"
#include "runtime/values/Expected.h"
#include "runtime/values/Object.h"
#include "runtime/values/Variant.h"
#include "runtime/values/VariantSerializerInterface.h"

namespace VelmoraMobile {

/// Converts a VisitorId to and from its bus form: a map of "id_origin", "id_type", "id"
/// (strings) and "authentication_state" (integer). A null Variant stands for a null pointer.
/// Holds no data; any thread may use one.
class VisitorIdSerializer : public Object, public virtual VariantSerializerInterface<VisitorId> {
public:
    /// A null pointer for the null kind; "variant.not_type" when the value is no map or one of
    /// the four entries is missing or of another kind (extra entries are ignored). The state
    /// is taken as it stands, out-of-range values included. Throws the VisitorId constructor's
    /// error when "id_type" cleans to nothing.
    Expected<std::shared_ptr<VisitorId>> Deserialize(const Variant& variant) const override;

    std::shared_ptr<Variant> Serialize(const VisitorId& value) const override;
    /// The bus form of `value`, with the given leaves for its origin and state.
    static std::shared_ptr<Variant> MapOf(const VisitorId& value, std::shared_ptr<Variant> id_origin,
                                          std::shared_ptr<Variant> authentication_state);
    /// The bus form of each element of `values` (pointers or optionals to VisitorId), an empty
    /// one as the null kind.
    template <typename Element>
    static Variant::VariantVector ListOf(const std::vector<Element>& values);
};

template <typename Element>
Variant::VariantVector VisitorIdSerializer::ListOf(const std::vector<Element>& values) {
    // Variants are immutable, so the elements share the leaves that repeat from one id to the
    // next (the origin, the state): a long list costs two allocations fewer per id.
    Variant::VariantVector list;
    list.reserve(values.size());
    std::shared_ptr<Variant> origin;
    const std::string* origin_text = nullptr;  // of an element still in `values`
    std::shared_ptr<Variant> state;
    int32_t state_value = 0;
    for (const auto& element : values) {
        if (!element) {
            list.push_back(Variant::FromNull());
            continue;
        }
        if (!origin || *origin_text != element->id_origin) {
            origin = Variant::FromString(element->id_origin);
            origin_text = &element->id_origin;
        }
        const auto value = static_cast<int32_t>(element->authentication_state);
        if (!state || state_value != value) {
            state = Variant::FromInteger(value);
            state_value = value;
        }
        list.push_back(MapOf(*element, origin, state));
    }
    return list;
}

/// Lists of customer ids with VisitorIdSerializer; see the serializer-taking forms in Variant.h.
template <>
std::shared_ptr<Variant> Variant::FromTypedVector<VisitorId>(const std::vector<std::shared_ptr<VisitorId>>& values);

template <>
Expected<std::vector<std::shared_ptr<VisitorId>>> Variant::GetTypedVector<VisitorId>() const;

}  // namespace VelmoraMobile
