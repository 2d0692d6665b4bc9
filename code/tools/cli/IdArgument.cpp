#include "tools/cli/IdArgument.h"

#include <algorithm>
#include <cctype>
#include <map>

namespace VelmoraCli {

using VelmoraMobile::VisitorIdAuthenticationState;

namespace {

bool IsNumber(const std::string& text) {
    std::string digits = !text.empty() && (text[0] == '-' || text[0] == '+') ? text.substr(1) : text;
    return !digits.empty() &&
           std::all_of(digits.begin(), digits.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
}

const std::map<std::string, VisitorIdAuthenticationState>& StateNames() {
    static const std::map<std::string, VisitorIdAuthenticationState> names = {
        {"0", VisitorIdAuthenticationState::UNKNOWN},
        {"1", VisitorIdAuthenticationState::AUTHENTICATED},
        {"2", VisitorIdAuthenticationState::LOGGED_OUT},
        {"unknown", VisitorIdAuthenticationState::UNKNOWN},
        {"authenticated", VisitorIdAuthenticationState::AUTHENTICATED},
        {"loggedout", VisitorIdAuthenticationState::LOGGED_OUT},
    };
    return names;
}

}  // namespace

std::string ParseIdArgument(const std::string& text, IdArgument& out) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos) {
        return "'" + text + "' is not TYPE=ID[:STATE] (no '=')";
    }
    IdArgument parsed;
    parsed.type = text.substr(0, equals);
    parsed.id = text.substr(equals + 1);
    if (parsed.type.empty()) {
        return "'" + text + "' has no id type before '='";
    }
    const size_t colon = parsed.id.rfind(':');
    if (colon != std::string::npos) {
        const std::string suffix = parsed.id.substr(colon + 1);
        auto state = StateNames().find(suffix);
        if (state != StateNames().end()) {
            parsed.state = state->second;
            parsed.id.erase(colon);
        } else if (IsNumber(suffix)) {
            return "'" + text + "': the state " + suffix + " is not 0, 1 or 2";
        }
    }
    if (parsed.id.empty()) {
        return "'" + text + "' has no id after '='";
    }
    out = parsed;
    return "";
}

}  // namespace VelmoraCli
