#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include "host/Core.h"
#include "host/CoreOptions.h"
#include "identity/api/IdentityPublicApi.h"
#include "tests/support/TempDir.h"

namespace VelmoraBench {

/// A data folder of its own for one run, removed afterwards; under "/dev/shm" when asked.
using ScratchFolder = VelmoraTest::TempDir;

/// Options of a core on `folder` that syncs to `server` ("127.0.0.1:port") over plain HTTP.
VelmoraMobile::CoreOptions BenchOptions(const std::string& folder, const std::string& server);

/// One answer at a time for the calling thread, with no allocation per wait: the callback only
/// stores into this object, which outlives it.
class Answer {
public:
    /// A callback for the string getters that hands the answer to Wait().
    VelmoraMobile::IdentityPublicApi::StringCallback Callback();
    /// Waits for the answer of the last Callback(); false after `timeout`.
    bool Wait(std::chrono::milliseconds timeout = std::chrono::seconds(30));
    const std::string& Value() const { return value_; }

private:
    std::mutex mutex_;
    std::condition_variable answered_;
    bool done_ = false;
    std::string value_;
};

/// The MID of a running core, or "" when no answer came.
std::string AskMid(VelmoraMobile::IdentityPublicApi& api);

/// Resident memory of this process in kB (VmRSS), 0 when it cannot be read.
long ResidentKb();

}  // namespace VelmoraBench
