#include "bench/support/BenchCore.h"

#include <fstream>

namespace VelmoraBench {

VelmoraMobile::CoreOptions BenchOptions(const std::string& folder, const std::string& server) {
    VelmoraMobile::CoreOptions options;
    options.data_dir = folder;
    options.org_id = "0123456789ABCDEF@VelmoraOrg";
    options.server = server;
    options.tls = false;
    return options;
}

VelmoraMobile::IdentityPublicApi::StringCallback Answer::Callback() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        done_ = false;
    }
    return [this](std::string value) {
        std::lock_guard<std::mutex> lock(mutex_);
        value_.swap(value);
        done_ = true;
        answered_.notify_one();
    };
}

bool Answer::Wait(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mutex_);
    return answered_.wait_for(lock, timeout, [this] { return done_; });
}

std::string AskMid(VelmoraMobile::IdentityPublicApi& api) {
    Answer answer;
    api.GetOndaraCloudId(answer.Callback());
    return answer.Wait() ? answer.Value() : std::string();
}

long ResidentKb() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stol(line.substr(6));
        }
    }
    return 0;
}

}  // namespace VelmoraBench
