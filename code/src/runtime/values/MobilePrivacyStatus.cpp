#include "runtime/values/MobilePrivacyStatus.h"

#include <ostream>

namespace VelmoraMobile {

std::string MobilePrivacyStatusToString(MobilePrivacyStatus status) {
    switch (status) {
        case MobilePrivacyStatus::OPT_IN: return "optedin";
        case MobilePrivacyStatus::OPT_OUT: return "optedout";
        case MobilePrivacyStatus::UNKNOWN: break;
    }
    return "optunknown";
}

MobilePrivacyStatus StringToMobilePrivacyStatus(const std::string& text) {
    if (text == "optedin") return MobilePrivacyStatus::OPT_IN;
    if (text == "optedout") return MobilePrivacyStatus::OPT_OUT;
    return MobilePrivacyStatus::UNKNOWN;
}

void ToStringImpl(std::ostream& out, MobilePrivacyStatus status, const ToStringOptions&) {
    out << MobilePrivacyStatusToString(status);
}

}  // namespace VelmoraMobile
