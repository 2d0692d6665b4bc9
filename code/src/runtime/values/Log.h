#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "runtime/values/LoggingMode.h"
#include "runtime/values/StringUtils.h"

namespace VelmoraMobile {

/// Logging with a gate: when the gate is closed no text is made and no argument is converted.
/// All functions may be called from any thread.
///
/// Levels (SetLogLevel, or VELMORA_LOG_LEVEL at start; default warning), each printing what the
/// ones before it print:
/// - error (0):   Error lines only;
/// - warning (1): and Warning lines;
/// - debug (2):   and Debug lines;
/// - verbose (3): and Trace lines.
/// Error and Warning share the gate of value 1, which is open at every level; at level error
/// Warning lines are then dropped before their text is made (and WarningImpl drops them too).
class Log {
public:
    /// Receives each finished line, on the logging thread, with no lock of the logger held: a
    /// sink may log itself, and a slow sink holds up only the thread that logs. Lines of several
    /// threads may reach the sink at once, so it must be thread-safe.
    using Sink = std::function<void(LoggingMode mode, const char* tag, const std::string& message)>;

    /// Whether a message of `mode` is written at all: mode <= level, where the gate of value 1
    /// (Error and Warning) counts as open at every level.
    /// Inline and lock-free: a closed gate costs one relaxed load and one comparison.
    static bool Precheck(LoggingMode mode) { return static_cast<int>(mode) <= gate_.load(std::memory_order_relaxed); }

    /// Default WARNING_LOG, or VELMORA_LOG_LEVEL (0-3 or error/warning/debug/verbose) at start.
    static void SetLogLevel(LoggingMode level);
    static LoggingMode GetLogLevel();

    /// Replaces the sink; an empty function restores the default stderr sink. Returns once no
    /// thread is inside the old sink any more (unless called from inside a sink), so the old
    /// sink's captures may be destroyed afterwards.
    static void SetSink(Sink sink);

    static void ErrorImpl(const char* tag, const std::string& message);
    static void WarningImpl(const char* tag, const std::string& message);
    static void DebugImpl(const char* tag, const std::string& message);
    static void TraceImpl(const char* tag, const std::string& message);

    // Error and Warning share one gate on purpose; the level then tells them apart.
    template <typename... Ts>
    static void Error(const char* tag, const char* format, const Ts&... args) {
        if (!Precheck(LoggingMode::WARNING_LOG)) {
            return;
        }
        ErrorImpl(tag, StringUtils::FormatString(format, args...));
    }

    template <typename... Ts>
    static void Warning(const char* tag, const char* format, const Ts&... args) {
        if (!Precheck(LoggingMode::WARNING_LOG) || GetLogLevel() < LoggingMode::WARNING_LOG) {
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

private:
    // The highest mode that passes Precheck: the level, but at least 1. Constant-initialised, so it
    // holds the default before any static constructor runs.
    static std::atomic<int> gate_;
};

}  // namespace VelmoraMobile
