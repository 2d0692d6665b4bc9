#include "host/Core.h"

#include "host/VelmoraMobileCoreBridge.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/bus/EventBuilder.h"
#include "runtime/values/Log.h"
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

void Core::SyncIdentity(const IdentitySyncRequest& request) const {
    namespace Keys = IdentityConstants::EventDataKeys::Identity;
    std::shared_ptr<VelmoraMobileCore> core = Running();
    if (!core) {
        Log::Error("Core", "SyncIdentity after the core stopped; the sync is dropped");
        return;
    }
    auto data = std::make_shared<EventData>();
    data->PutStringMap(Keys::IDENTIFIERS, request.identifiers);
    data->PutInteger(Keys::AUTHENTICATION_STATE, static_cast<int32_t>(request.authentication_state));
    data->PutBoolean(Keys::FORCE_SYNC, request.force_sync);
    data->PutBoolean(Keys::IS_SYNC_EVENT, true);
    if (request.push_identifier) {
        data->PutString(Keys::PUSH_IDENTIFIER, *request.push_identifier);
    }
    if (request.advertising_identifier) {
        data->PutString(Keys::ADVERTISING_IDENTIFIER, *request.advertising_identifier);
    }
    core->event_hub->Dispatch(
        EventBuilder("SyncIdentity", EventType::GENERIC_IDENTITY, EventSource::REQUEST_CONTENT).SetData(data).Build());
}

std::shared_ptr<ConfigurationExtension> Core::Configuration() const {
    std::shared_ptr<VelmoraMobileCore> core = Running();
    return core ? core->configuration : nullptr;
}

std::shared_ptr<VelmoraMobileCore> Core::Running() const {
    return core_->IsStopped() ? nullptr : core_;
}

}  // namespace VelmoraMobile
