#pragma once

#include <cstdint>

namespace VelmoraMobile {

enum class LoggingMode : int32_t {
    ERROR_LOG = 0,
    WARNING_LOG = 1,
    DEBUG_LOG = 2,
    VERBOSE_LOG = 3,
};

/// The level's name as log lines show it ("ERROR", "WARNING", "DEBUG", "VERBOSE").
constexpr const char* LoggingModeName(LoggingMode mode) {
    switch (mode) {
        case LoggingMode::ERROR_LOG: return "ERROR";
        case LoggingMode::WARNING_LOG: return "WARNING";
        case LoggingMode::DEBUG_LOG: return "DEBUG";
        case LoggingMode::VERBOSE_LOG: return "VERBOSE";
    }
    return "LOG";
}

}  // namespace VelmoraMobile
