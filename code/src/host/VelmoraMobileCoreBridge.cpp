#include "host/VelmoraMobileCoreBridge.h"

#include "runtime/values/Log.h"
#include "runtime/values/SdkError.h"
#include "runtime/values/TryCatch.h"

namespace VelmoraMobile {

namespace {
const char* const LOG_TAG = "VelmoraMobileCoreBridge";
}  // namespace

VelmoraMobileCoreBridge& VelmoraMobileCoreBridge::GetInstance() {
    static VelmoraMobileCoreBridge instance;
    return instance;
}

std::shared_ptr<VelmoraMobileCore> VelmoraMobileCoreBridge::GetCore() {
    std::lock_guard<std::mutex> lock(core_mutex_);
    return core_;
}

std::shared_ptr<VelmoraMobileCore> VelmoraMobileCoreBridge::Start(const CoreOptions& options) {
    std::lock_guard<std::mutex> lifecycle(lifecycle_mutex_);
    if (GetCore()) {
        Log::Error(LOG_TAG, "A core is already running in this process: stop it before starting another");
        return nullptr;
    }
    std::shared_ptr<VelmoraMobileCore> core;
    TryCatch([&] { core = VelmoraMobileCore::Start(options); },
             [](SdkError& error) { Log::Error(LOG_TAG, "The core did not start: %s", error.GetMessage()); });
    if (!core) {
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(core_mutex_);
    core_ = core;
    return core;
}

bool VelmoraMobileCoreBridge::Stop(const std::shared_ptr<VelmoraMobileCore>& core, std::chrono::milliseconds deadline) {
    if (!core) {
        return true;
    }
    std::lock_guard<std::mutex> lifecycle(lifecycle_mutex_);
    {
        std::lock_guard<std::mutex> lock(core_mutex_);
        if (core_ == core) {
            core_.reset();
        }
    }
    return core->Stop(deadline);
}

bool VelmoraMobileCoreBridge::Stop() {
    std::shared_ptr<VelmoraMobileCore> core = GetCore();
    return !core || Stop(core, core->stop_timeout);
}

}  // namespace VelmoraMobile
