#pragma once

#include <cstdint>

namespace VelmoraMobile {

enum class LoggingMode : int32_t {
    ERROR_LOG = 0,
    WARNING_LOG = 1,
    DEBUG_LOG = 2,
    VERBOSE_LOG = 3,
};

}  // namespace VelmoraMobile
