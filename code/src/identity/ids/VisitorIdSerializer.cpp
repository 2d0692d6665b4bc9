#include "identity/ids/VisitorIdSerializer.h"

#include <string>
#include <utility>

#include "runtime/values/DebugInfo.h"
#include "runtime/values/SdkError.h"

namespace VelmoraMobile {

namespace {

const char* const KEY_ID_ORIGIN = "id_origin";
const char* const KEY_ID_TYPE = "id_type";
const char* const KEY_ID = "id";
const char* const KEY_AUTHENTICATION_STATE = "authentication_state";

SdkError NotTypeError() {
    return SdkError("variant.not_type", "type error", DebugInfo());
}

const Variant* Find(const Variant::VariantMap& map, const char* key) {
    auto found = map.find(key);
    return found == map.end() ? nullptr : found->second.get();
}

bool ReadString(const Variant::VariantMap& map, const char* key, std::string& out) {
    const Variant* value = Find(map, key);
    return value && value->GetString(out);
}

bool ReadInteger(const Variant::VariantMap& map, const char* key, int32_t& out) {
    const Variant* value = Find(map, key);
    return value && value->GetInteger(out);
}

}  // namespace

Expected<std::shared_ptr<VisitorId>> VisitorIdSerializer::Deserialize(const Variant& variant) const {
    if (variant.GetKind() == VariantKind::NULL_KIND) {
        return std::shared_ptr<VisitorId>();
    }
    Variant::VariantMap map;
    if (!variant.GetVariantMap(map)) {
        return NotTypeError();
    }
    std::string id_origin;
    std::string id_type;
    std::string id;
    int32_t state = 0;
    if (!ReadString(map, KEY_ID_ORIGIN, id_origin) || !ReadString(map, KEY_ID_TYPE, id_type) ||
        !ReadString(map, KEY_ID, id) || !ReadInteger(map, KEY_AUTHENTICATION_STATE, state)) {
        return NotTypeError();
    }
    // The integer is cast as it stands, so a state this build does not know survives a trip.
    return std::make_shared<VisitorId>(id_origin, id_type, id, static_cast<VisitorIdAuthenticationState>(state));
}

std::shared_ptr<Variant> VisitorIdSerializer::Serialize(const VisitorId& value) const {
    return MapOf(value, Variant::FromString(value.id_origin),
                 Variant::FromInteger(static_cast<int32_t>(value.authentication_state)));
}

std::shared_ptr<Variant> VisitorIdSerializer::MapOf(const VisitorId& value, std::shared_ptr<Variant> id_origin,
                                                    std::shared_ptr<Variant> authentication_state) {
    Variant::VariantMap map;
    map.emplace(KEY_ID_ORIGIN, std::move(id_origin));
    map.emplace(KEY_ID_TYPE, Variant::FromString(value.id_type));
    map.emplace(KEY_ID, Variant::FromString(value.id));
    map.emplace(KEY_AUTHENTICATION_STATE, std::move(authentication_state));
    return Variant::FromVariantMap(std::move(map));
}

template <>
std::shared_ptr<Variant> Variant::FromTypedVector<VisitorId>(const std::vector<std::shared_ptr<VisitorId>>& values) {
    return FromVariantVector(VisitorIdSerializer::ListOf(values));
}

template <>
Expected<std::vector<std::shared_ptr<VisitorId>>> Variant::GetTypedVector<VisitorId>() const {
    std::shared_ptr<VariantSerializerInterface<VisitorId>> serializer = std::make_shared<VisitorIdSerializer>();
    return GetTypedVector<VisitorId>(serializer);
}

}  // namespace VelmoraMobile
