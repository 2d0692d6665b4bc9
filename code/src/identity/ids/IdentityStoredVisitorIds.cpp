#include <algorithm>
#include <string>
#include <string_view>

#include "identity/module/Identity.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/values/Log.h"
#include "runtime/values/TryCatch.h"

namespace VelmoraMobile {

// The stored form: "&d_cid_ic=<type>%01<id>%01<state>" per id, written raw. It is not the URL
// form (no encoding, leading "&"), so the two are kept in separate functions on purpose.

std::string Identity::ConvertVisitorIdObjectsVisitorIDsString(const std::vector<std::shared_ptr<VisitorId>>& ids) {
    const std::string& delimiter = IdentityConstants::Default::CID_DELIMITER;
    const std::string& key = IdentityConstants::VISITOR_ID_PARAMETER_KEY_CUSTOMER;
    // Sized once: a save of a long list would otherwise copy the growing text a dozen times.
    size_t size = 0;
    for (const auto& visitor_id : ids) {
        if (visitor_id) {
            size += 2 + key.size() + visitor_id->id_type.size() + 2 * delimiter.size() + visitor_id->id.size() + 11;
        }
    }
    std::string text;
    text.reserve(size);
    for (const auto& visitor_id : ids) {
        if (!visitor_id) {
            continue;
        }
        text += '&';
        text += key;
        text += '=';
        text += visitor_id->id_type;
        text += delimiter;
        text += visitor_id->id;
        text += delimiter;
        const auto state = static_cast<int32_t>(visitor_id->authentication_state);
        if (state >= 0 && state <= 9) {
            text += static_cast<char>('0' + state);
        } else {
            text += std::to_string(state);
        }
    }
    return text;
}

std::vector<std::shared_ptr<VisitorId>> Identity::ConvertVisitorIDsStringToVisitorIdObjects(const std::string& text) {
    std::vector<std::shared_ptr<VisitorId>> ids;
    if (text.empty()) {
        return ids;
    }
    // Read in place: a start reads every stored id, and copies of each part and field cost
    // several allocations per id.
    const char* tag = LOG_PREFIX.c_str();
    const std::string_view delimiter = IdentityConstants::Default::CID_DELIMITER;
    const std::string_view all = text;
    size_t start = 0;
    while (start <= all.size()) {
        const size_t end = std::min(all.find('&', start), all.size());
        const std::string_view part = all.substr(start, end - start);
        start = end + 1;
        if (part.empty()) {
            Log::Debug(tag, "ID Service - Unable to load Customer ID from empty string: %@", part);
            continue;
        }
        const size_t equals = part.find('=');
        if (equals == std::string_view::npos) {
            Log::Debug(tag, "ID Service - Unable to load Customer ID from defaults: %@", part);
            continue;
        }
        const std::string_view name = part.substr(0, equals);
        const std::string_view value = part.substr(equals + 1);
        if (name.empty() || value.empty()) {
            Log::Debug(tag, "ID Service - Unable to load Customer ID from defaults, name or value was undefined: %@",
                       part);
            continue;
        }
        const size_t first = value.find(delimiter);
        const size_t second = first == std::string_view::npos ? first : value.find(delimiter, first + delimiter.size());
        if (second == std::string_view::npos || value.find(delimiter, second + delimiter.size()) != value.npos) {
            Log::Debug(tag, "ID Service - Identifier has malformed value: %@", value);
            continue;
        }
        const std::string_view type = value.substr(0, first);
        const std::string_view id = value.substr(first + delimiter.size(), second - first - delimiter.size());
        const std::string state_text(value.substr(second + delimiter.size()));
        // A hand-damaged entry (non-numeric state, id type that cleans to nothing) costs
        // that entry only.
        TryCatch(
            [&] {
                auto state = IntegerToVisitorIdAuthenticationState(std::stoi(state_text, nullptr, 10));
                ids.push_back(
                    std::make_shared<VisitorId>(std::string(name), std::string(type), std::string(id), state));
            },
            [&](SdkError& error) { Log::Debug(tag, "Unable to create VisitorID object (%s)", error.GetMessage()); });
    }
    return ids;
}

}  // namespace VelmoraMobile
