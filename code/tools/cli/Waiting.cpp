#include "tools/cli/Waiting.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "tools/cli/CliError.h"

namespace VelmoraCli {

namespace {

/// Shorter waits pass without a word.
constexpr std::chrono::milliseconds MOMENT{800};

}  // namespace

std::chrono::steady_clock::time_point DeadlineIn(double timeout_seconds) {
    return std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                                  std::chrono::duration<double>(timeout_seconds));
}

void WaitOrFail(const std::string& what, double timeout_seconds,
                const std::function<bool(std::chrono::steady_clock::time_point deadline)>& wait) {
    const auto deadline = DeadlineIn(timeout_seconds);
    const bool terminal = ::isatty(STDERR_FILENO) == 1;
    if (terminal) {
        if (wait(std::min(deadline, std::chrono::steady_clock::now() + MOMENT))) {
            return;
        }
        if (std::chrono::steady_clock::now() < deadline) {
            std::fprintf(stderr, "waiting for %s (up to %g s)...\n", what.c_str(), timeout_seconds);
        }
    }
    if (!wait(deadline)) {
        std::ostringstream message;
        message << "timed out after " << timeout_seconds << " s waiting for " << what;
        throw CliError(EXIT_FAILURE_NAMED, message.str());
    }
}

}  // namespace VelmoraCli
