#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "runtime/values/Log.h"

namespace VelmoraTest {

/// Captures every log line while alive (opening the gate to `level`); restores the default
/// sink and level on destruction. Thread-safe.
class LogCapture {
public:
    struct Line {
        VelmoraMobile::LoggingMode mode;
        std::string tag;
        std::string message;
    };

    explicit LogCapture(VelmoraMobile::LoggingMode level = VelmoraMobile::LoggingMode::VERBOSE_LOG)
        : previous_level_(VelmoraMobile::Log::GetLogLevel()) {
        VelmoraMobile::Log::SetLogLevel(level);
        VelmoraMobile::Log::SetSink(
            [this](VelmoraMobile::LoggingMode mode, const char* tag, const std::string& message) {
                std::lock_guard<std::mutex> lock(mutex_);
                lines_.push_back(Line{mode, tag, message});
            });
    }
    ~LogCapture() {
        VelmoraMobile::Log::SetSink(nullptr);
        VelmoraMobile::Log::SetLogLevel(previous_level_);
    }

    std::vector<Line> Lines() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }
    /// Whether some line's message equals `message` exactly.
    bool Contains(const std::string& message) const { return Count(message) > 0; }
    /// Whether some line's message contains `fragment`.
    bool ContainsFragment(const std::string& fragment) const {
        const auto lines = Lines();
        return std::any_of(lines.begin(), lines.end(),
                           [&](const Line& line) { return line.message.find(fragment) != std::string::npos; });
    }
    size_t Count(const std::string& message) const {
        const auto lines = Lines();
        return std::count_if(lines.begin(), lines.end(), [&](const Line& line) { return line.message == message; });
    }
    void Clear() {
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.clear();
    }

private:
    mutable std::mutex mutex_;
    std::vector<Line> lines_;
    VelmoraMobile::LoggingMode previous_level_;
};

}  // namespace VelmoraTest
