#pragma once

#include <functional>
#include <string>

#include "runtime/values/LoggingMode.h"
#include "runtime/values/StringUtils.h"

namespace VelmoraMobile {

/// Logging with a gate: when the gate is closed no text is made and no argument is converted.
/// All functions may be called from any thread.
class Log {
public:
    /// Receives each finished line. Called on the logging thread, one call at a time.
    using Sink = std::function<void(LoggingMode mode, const char* tag, const std::string& message)>;

    /// Whether a message of `mode` is written at all: mode <= level.
    static bool Precheck(LoggingMode mode);

    /// Default WARNING_LOG, or VELMORA_LOG_LEVEL (0-3 or error/warning/debug/verbose) at start.
    static void SetLogLevel(LoggingMode level);
    static LoggingMode GetLogLevel();

    /// Replaces the sink; an empty function restores the default stderr sink.
    static void SetSink(Sink sink);

    static void ErrorImpl(const char* tag, const std::string& message);
    static void WarningImpl(const char* tag, const std::string& message);
    static void DebugImpl(const char* tag, const std::string& message);
    static void TraceImpl(const char* tag, const std::string& message);

    // Error and Warning share one gate on purpose.
    template <typename... Ts>
    static void Error(const char* tag, const char* format, const Ts&... args) {
        if (!Precheck(LoggingMode::WARNING_LOG)) {
            return;
        }
        ErrorImpl(tag, StringUtils::FormatString(format, args...));
    }

    template <typename... Ts>
    static void Warning(const char* tag, const char* format, const Ts&... args) {
        if (!Precheck(LoggingMode::WARNING_LOG)) {
            return;
        }
        WarningImpl(tag, StringUtils::FormatString(format, args...));
    }

    template <typename... Ts>
    static void Debug(const char* tag, const char* format, const Ts&... args) {
        if (!Precheck(LoggingMode::DEBUG_LOG)) {
            return;
        }
        DebugImpl(tag, StringUtils::FormatString(format, args...));
    }

    template <typename... Ts>
    static void Trace(const char* tag, const char* format, const Ts&... args) {
        if (!Precheck(LoggingMode::VERBOSE_LOG)) {
            return;
        }
        TraceImpl(tag, StringUtils::FormatString(format, args...));
    }
};

}  // namespace VelmoraMobile
