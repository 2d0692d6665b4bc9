#include "tests/support/LogCapture.h"

namespace VelmoraTest {

using VelmoraMobile::Log;
using VelmoraMobile::LoggingMode;

LogCapture::LogCapture(LoggingMode level) : previous_level_(Log::GetLogLevel()) {
    Log::SetLogLevel(level);
    Log::SetSink([this](LoggingMode mode, const char* tag, const std::string& message) {
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(Line{mode, tag, message});
    });
}

LogCapture::~LogCapture() {
    Log::SetSink(nullptr);
    Log::SetLogLevel(previous_level_);
}

std::vector<LogCapture::Line> LogCapture::Lines() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return lines_;
}

bool LogCapture::Contains(const std::string& message) const {
    return Count(message) > 0;
}

bool LogCapture::ContainsFragment(const std::string& fragment) const {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& line : lines_) {
        if (line.message.find(fragment) != std::string::npos) return true;
    }
    return false;
}

size_t LogCapture::Count(const std::string& message) const {
    std::lock_guard<std::mutex> lock(mutex_);
    size_t count = 0;
    for (const auto& line : lines_) {
        if (line.message == message) ++count;
    }
    return count;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    lines_.clear();
}

}  // namespace VelmoraTest
