#include "VisitorId.h"

#include <utility>

#include "ContextData.h"
#include "SdkError.h"

namespace VelmoraMobile {

VisitorId::VisitorId(const std::string& id_origin, const std::string& id_type, const std::string& id,
                     VisitorIdAuthenticationState authentication_state) {
    std::string cleaned = ContextData::CleanKey(id_type);
    if (cleaned.empty()) {
        VELMORA_THROW("std.logic_error.invalid_argument", "Failed to initialize VisitorId object, id type is empty");
    }
    this->id_origin = id_origin;
    this->id_type = std::move(cleaned);
    this->id = id;
    this->authentication_state = authentication_state;
}

bool VisitorId::Equals(const std::shared_ptr<VisitorId>& other) const {
    return other && id_type == other->id_type;
}

}  // namespace VelmoraMobile
