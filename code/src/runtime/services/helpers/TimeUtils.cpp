#include "runtime/services/helpers/TimeUtils.h"

#include <chrono>

namespace VelmoraMobile {

int64_t TimeUtils::GetUnixTimeInSeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

int64_t TimeUtils::GetUnixTime() {
    return GetUnixTimeInSeconds();
}

}  // namespace VelmoraMobile
