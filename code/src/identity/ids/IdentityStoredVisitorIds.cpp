#include <string>

#include "identity/module/Identity.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/values/Log.h"
#include "runtime/values/StringUtils.h"
#include "runtime/values/TryCatch.h"

namespace VelmoraMobile {

// The stored form: "&d_cid_ic=<type>%01<id>%01<state>" per id, written raw. It is not the URL
// form (no encoding, leading "&"), so the two are kept in separate functions on purpose.

std::string Identity::ConvertVisitorIdObjectsVisitorIDsString(const std::vector<std::shared_ptr<VisitorId>>& ids) {
    const std::string& delimiter = IdentityConstants::Default::CID_DELIMITER;
    std::string text;
    for (const auto& visitor_id : ids) {
        if (!visitor_id) {
            continue;
        }
        text += "&";
        text += IdentityConstants::VISITOR_ID_PARAMETER_KEY_CUSTOMER;
        text += "=";
        text += visitor_id->id_type;
        text += delimiter;
        if (!visitor_id->id.empty()) {
            text += visitor_id->id;
        }
        text += delimiter;
        text += std::to_string(static_cast<int32_t>(visitor_id->authentication_state));
    }
    return text;
}

std::vector<std::shared_ptr<VisitorId>> Identity::ConvertVisitorIDsStringToVisitorIdObjects(const std::string& text) {
    std::vector<std::shared_ptr<VisitorId>> ids;
    if (text.empty()) {
        return ids;
    }
    const char* tag = LOG_PREFIX.c_str();
    for (const std::string& part : StringUtils::Split(text, "&")) {
        if (part.empty()) {
            Log::Debug(tag, "ID Service - Unable to load Customer ID from empty string: %@", part);
            continue;
        }
        size_t equals = part.find('=');
        if (equals == std::string::npos) {
            Log::Debug(tag, "ID Service - Unable to load Customer ID from defaults: %@", part);
            continue;
        }
        std::string name = part.substr(0, equals);
        std::string value = part.substr(equals + 1);
        if (name.empty() || value.empty()) {
            Log::Debug(tag, "ID Service - Unable to load Customer ID from defaults, name or value was undefined: %@",
                       part);
            continue;
        }
        std::vector<std::string> fields = StringUtils::Split(value, IdentityConstants::Default::CID_DELIMITER);
        if (fields.size() != 3) {
            Log::Debug(tag, "ID Service - Identifier has malformed value: %@", value);
            continue;
        }
        // A hand-damaged entry (non-numeric state, id type that cleans to nothing) costs
        // that entry only.
        TryCatch(
            [&] {
                auto state = IntegerToVisitorIdAuthenticationState(std::stoi(fields[2], nullptr, 10));
                ids.push_back(std::make_shared<VisitorId>(name, fields[0], fields[1], state));
            },
            [&](SdkError& error) { Log::Debug(tag, "Unable to create VisitorID object (%s)", error.GetMessage()); });
    }
    return ids;
}

}  // namespace VelmoraMobile
