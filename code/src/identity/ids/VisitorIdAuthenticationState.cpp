#include "identity/ids/VisitorIdAuthenticationState.h"

#include <ostream>

#include "runtime/values/StringUtils.h"

namespace VelmoraMobile {

VisitorIdAuthenticationState IntegerToVisitorIdAuthenticationState(int value) {
    switch (value) {
        case 1: return VisitorIdAuthenticationState::AUTHENTICATED;
        case 2: return VisitorIdAuthenticationState::LOGGED_OUT;
        default: return VisitorIdAuthenticationState::UNKNOWN;
    }
}

std::string AuthenticationStateToString(VisitorIdAuthenticationState state) {
    switch (state) {
        case VisitorIdAuthenticationState::AUTHENTICATED: return "authenticated";
        case VisitorIdAuthenticationState::LOGGED_OUT: return "logged_out";
        case VisitorIdAuthenticationState::UNKNOWN: break;
    }
    // Also the text of out-of-range values, which deserialised ids may carry.
    return "unknown";
}

void ToStringImpl(std::ostream& out, VisitorIdAuthenticationState state, const ToStringOptions&) {
    out << StringUtils::Quotify(AuthenticationStateToString(state));
}

}  // namespace VelmoraMobile
