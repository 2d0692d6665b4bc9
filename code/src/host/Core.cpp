#include "host/Core.h"

#include "host/VelmoraMobileCoreBridge.h"
#include "runtime/values/SdkError.h"

namespace VelmoraMobile {

Core::Core(const CoreOptions& options) : core_(VelmoraMobileCoreBridge::GetInstance().Start(options)) {
    if (!core_) {
        VELMORA_THROW("core.not_started", "The core did not start; the log says why");
    }
}

Core::~Core() {
    Stop();
}

bool Core::Stop(std::chrono::milliseconds deadline) {
    return VelmoraMobileCoreBridge::GetInstance().Stop(core_, deadline);
}

bool Core::Stop() {
    return Stop(core_->stop_timeout);
}

std::shared_ptr<IdentityPublicApi> Core::IdentityApi() const {
    std::shared_ptr<VelmoraMobileCore> core = Running();
    return core ? IdentityPublicApi::Create(core->event_hub, core->platform_services)
                : IdentityPublicApi::Create(nullptr, nullptr);
}

std::shared_ptr<ConfigurationExtension> Core::Configuration() const {
    std::shared_ptr<VelmoraMobileCore> core = Running();
    return core ? core->configuration : nullptr;
}

std::shared_ptr<VelmoraMobileCore> Core::Running() const {
    return core_->IsStopped() ? nullptr : core_;
}

}  // namespace VelmoraMobile
