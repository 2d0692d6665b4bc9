#include "identity/ids/VisitorId.h"

#include <utility>

#include "runtime/services/helpers/ContextData.h"
#include "runtime/values/SdkError.h"

namespace VelmoraMobile {

VisitorId::VisitorId(std::string id_origin, const std::string& id_type, std::string id,
                     VisitorIdAuthenticationState authentication_state) {
    std::string cleaned = ContextData::CleanKey(id_type);
    if (cleaned.empty()) {
        // The source name is part of the error that hosts see, so it stays fixed whatever the tree.
        throw SdkError(
            "std.logic_error.invalid_argument", "Failed to initialize VisitorId object, id type is empty",
            DebugInfo("code/src/identity/VisitorId", __LINE__, GetCurrentDebugInfoPrivate::GetCurrentStackTrace()));
    }
    this->id_origin = std::move(id_origin);
    this->id_type = std::move(cleaned);
    this->id = std::move(id);
    this->authentication_state = authentication_state;
}

bool VisitorId::Equals(const std::shared_ptr<VisitorId>& other) const {
    return other && id_type == other->id_type;
}

}  // namespace VelmoraMobile
