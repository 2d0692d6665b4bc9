#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "runtime/values/LoggingMode.h"

namespace VelmoraCli {

/// Watches the log for lines that begin with one of `prefixes`, which the system only writes at
/// debug level (the opt-out request, for one), while stderr still shows only the lines of the
/// user's level, in the default form. Opens the debug gate while it lives; made and destroyed on
/// the main thread, the sink runs on any thread.
class LogWatch {
public:
    LogWatch(VelmoraMobile::LoggingMode user_level, std::vector<std::string> prefixes);
    ~LogWatch();
    LogWatch(const LogWatch&) = delete;
    LogWatch& operator=(const LogWatch&) = delete;

    /// The first watched line, or "" when none came before `deadline`.
    std::string WaitForLine(std::chrono::steady_clock::time_point deadline);

private:
    struct Shared {
        std::mutex mutex;
        std::condition_variable seen;
        std::vector<std::string> lines;
    };
    const VelmoraMobile::LoggingMode user_level_;
    const std::shared_ptr<Shared> shared_;
};

}  // namespace VelmoraCli
