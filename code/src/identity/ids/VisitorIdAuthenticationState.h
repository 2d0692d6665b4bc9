#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

#include "runtime/values/ToStringOptions.h"

namespace VelmoraMobile {

/// Authentication state of a customer id. Travels as a plain integer (URL, stored string,
/// events); the fixed 32-bit base keeps any integer read from outside, e.g. 9, a valid value.
enum class VisitorIdAuthenticationState : int32_t {
    UNKNOWN = 0,
    AUTHENTICATED = 1,
    LOGGED_OUT = 2,
};

/// 1 and 2 map to their states; every other integer, negatives included, to UNKNOWN.
VisitorIdAuthenticationState IntegerToVisitorIdAuthenticationState(int value);

/// "unknown", "authenticated" or "logged_out"; a value outside the enumeration gives "unknown".
std::string AuthenticationStateToString(VisitorIdAuthenticationState state);

/// Writes the quoted word, e.g. "\"authenticated\"", for the formatter. Options are not used.
void ToStringImpl(std::ostream& out, VisitorIdAuthenticationState state, const ToStringOptions& options);

}  // namespace VelmoraMobile
