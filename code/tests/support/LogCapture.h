#pragma once

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

    explicit LogCapture(VelmoraMobile::LoggingMode level = VelmoraMobile::LoggingMode::VERBOSE_LOG);
    ~LogCapture();

    std::vector<Line> Lines() const;
    /// Whether some line's message equals `message` exactly.
    bool Contains(const std::string& message) const;
    /// Whether some line's message contains `fragment`.
    bool ContainsFragment(const std::string& fragment) const;
    size_t Count(const std::string& message) const;
    void Clear();

private:
    mutable std::mutex mutex_;
    std::vector<Line> lines_;
    VelmoraMobile::LoggingMode previous_level_;
};

}  // namespace VelmoraTest
