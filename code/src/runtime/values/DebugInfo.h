#pragma once

#include <cstdint>
#include <string>

namespace VelmoraMobile {

/// Where an error was raised. Empty: no file, line -1, no trace.
struct DebugInfo {
    std::string file;
    int32_t line{-1};
    std::string stack_trace;

    DebugInfo() = default;
    DebugInfo(std::string file_, int32_t line_, std::string stack_trace_)
        : file(std::move(file_)), line(line_), stack_trace(std::move(stack_trace_)) {}
    DebugInfo(const DebugInfo& other) = default;
    DebugInfo& operator=(const DebugInfo& other) = default;
};

/// Stack trace of the calling thread, for errors that are thrown.
struct GetCurrentDebugInfoPrivate {
    static std::string GetCurrentStackTrace();
};

}  // namespace VelmoraMobile
