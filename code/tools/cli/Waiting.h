#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace VelmoraCli {

/// Runs `wait` (which returns true once done, false when `deadline` passed) and, when that takes
/// longer than a moment and stderr is a terminal, says on stderr what it waits for. A wait that
/// ends false becomes CliError exit 1 "timed out after N s waiting for `what`".
void WaitOrFail(const std::string& what, double timeout_seconds,
                const std::function<bool(std::chrono::steady_clock::time_point deadline)>& wait);

/// The deadline `timeout_seconds` from now.
std::chrono::steady_clock::time_point DeadlineIn(double timeout_seconds);

}  // namespace VelmoraCli
