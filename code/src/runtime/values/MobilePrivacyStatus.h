#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

#include "runtime/values/ToStringOptions.h"

namespace VelmoraMobile {

enum class MobilePrivacyStatus : int32_t {
    OPT_IN = 0,
    OPT_OUT = 1,
    UNKNOWN = 2,
};

/// "optedin", "optedout", "optunknown".
std::string MobilePrivacyStatusToString(MobilePrivacyStatus status);
/// Any text that is no status gives UNKNOWN.
MobilePrivacyStatus StringToMobilePrivacyStatus(const std::string& text);

void ToStringImpl(std::ostream& out, MobilePrivacyStatus status, const ToStringOptions& options);

}  // namespace VelmoraMobile
