#include "tools/cli/LogWatch.h"

#include <algorithm>
#include <cstdio>

#include "runtime/values/Log.h"

namespace VelmoraCli {

using VelmoraMobile::Log;
using VelmoraMobile::LoggingMode;

LogWatch::LogWatch(LoggingMode user_level, std::vector<std::string> prefixes)
    : user_level_(user_level), shared_(std::make_shared<Shared>()) {
    Log::SetSink(
        [shared = shared_, user_level, prefixes](LoggingMode mode, const char* tag, const std::string& message) {
            if (mode <= user_level || mode == LoggingMode::ERROR_LOG) {
                std::fprintf(stderr, "[%s] %s: %s\n", VelmoraMobile::LoggingModeName(mode), tag ? tag : "",
                             message.c_str());
            }
            for (const auto& prefix : prefixes) {
                if (message.compare(0, prefix.size(), prefix) == 0) {
                    std::lock_guard<std::mutex> lock(shared->mutex);
                    shared->lines.push_back(message);
                    shared->seen.notify_all();
                    return;
                }
            }
        });
    Log::SetLogLevel(std::max(user_level, LoggingMode::DEBUG_LOG));
}

LogWatch::~LogWatch() {
    Log::SetLogLevel(user_level_);
    Log::SetSink({});
}

std::string LogWatch::WaitForLine(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock<std::mutex> lock(shared_->mutex);
    if (!shared_->seen.wait_until(lock, deadline, [&] { return !shared_->lines.empty(); })) {
        return "";
    }
    return shared_->lines.front();
}

}  // namespace VelmoraCli
