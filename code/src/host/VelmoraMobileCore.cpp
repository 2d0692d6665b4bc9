#include "host/VelmoraMobileCore.h"

#include <future>
#include <typeinfo>
#include <utility>

#include "identity/api/IdentityPublicApi.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/bus/EventBuilder.h"
#include "runtime/bus/EventSource.h"
#include "runtime/bus/EventType.h"
#include "runtime/services/PlatformServices.h"
#include "runtime/services/network/CurlNetworkService.h"
#include "runtime/values/Log.h"
#include "runtime/values/SdkError.h"

namespace VelmoraMobile {

namespace {

namespace ConfigKeys = IdentityConstants::EventDataKeys::Configuration;

const char* const LOG_TAG = "VelmoraMobileCore";

Variant::VariantMap ConfigurationChanges(const CoreOptions& options) {
    Variant::VariantMap changes = options.configuration;
    if (!options.org_id.empty()) {
        changes[ConfigKeys::CONFIG_ONDARA_CLOUD_ORGID_KEY] = Variant::FromString(options.org_id);
    }
    if (!options.server.empty()) {
        changes[ConfigKeys::CONFIG_ONDARA_CLOUD_SERVER_KEY] = Variant::FromString(options.server);
    }
    if (options.tls) {
        changes[ConfigKeys::GLOBAL_CONFIG_SSL] = Variant::FromBoolean(*options.tls);
    }
    return changes;
}

/// Waits until the configuration tasks queued so far have run, so that the start's whole
/// configuration is published before the boot: the boot's forced sync then sees all of it, not
/// the file without the options.
bool WaitForConfiguration(ConfigurationExtension& configuration, std::chrono::steady_clock::time_point deadline) {
    auto applied = std::make_shared<std::promise<void>>();
    std::future<void> done = applied->get_future();
    configuration.AddTaskToQueue("CoreConfigurationApplied", [applied] { applied->set_value(); });
    return done.wait_until(deadline) == std::future_status::ready;
}

/// The hub works through registrations and events in one order, so once an event dispatched
/// now has been delivered, every module registered before it has run OnRegistered.
bool WaitForRegistration(EventHub& hub, std::chrono::steady_clock::time_point deadline) {
    auto delivered = std::make_shared<std::promise<void>>();
    std::future<void> registered = delivered->get_future();
    auto marker =
        EventBuilder("Core started", EventType::HUB, EventSource::Get("com.velmora.eventsource.corestarted")).Build();
    hub.RegisterOneTimeListener(typeid(VelmoraMobileCore).hash_code(), marker->GetEventType(), marker->GetEventSource(),
                                marker->GetResponsePairID(),
                                [delivered](const std::shared_ptr<Event>&) { delivered->set_value(); });
    hub.Dispatch(marker);
    return registered.wait_until(deadline) == std::future_status::ready;
}

}  // namespace

VelmoraMobileCore::VelmoraMobileCore(std::shared_ptr<PlatformServicesInterface> services, std::shared_ptr<EventHub> hub,
                                     std::shared_ptr<ConfigurationExtension> configuration_extension,
                                     std::string folder, std::chrono::milliseconds stop_deadline)
    : platform_services(std::move(services)),
      event_hub(std::move(hub)),
      configuration(std::move(configuration_extension)),
      data_dir(std::move(folder)),
      stop_timeout(stop_deadline) {}

std::shared_ptr<VelmoraMobileCore> VelmoraMobileCore::Start(const CoreOptions& options) {
    auto services = std::make_shared<PlatformServices>(options.data_dir);
    if (!options.ca_file.empty()) {
        services->SetNetworkService(std::make_shared<CurlNetworkService>(options.ca_file));
    }
    auto hub = std::make_shared<EventHub>(services);
    auto configuration = hub->RegisterModule<ConfigurationExtension>();
    std::shared_ptr<VelmoraMobileCore> core(
        new VelmoraMobileCore(services, hub, configuration, services->GetDataDirectory(), options.stop_timeout));

    if (!options.configuration_file.empty()) {
        configuration->ConfigureWithFile(options.configuration_file);
    }
    Variant::VariantMap changes = ConfigurationChanges(options);
    if (!changes.empty()) {
        configuration->UpdateConfiguration(changes);
    }
    IdentityPublicApi::Create(hub, services)->RegisterIdentity();

    auto deadline = std::chrono::steady_clock::now() + options.start_timeout;
    bool started = WaitForConfiguration(*configuration, deadline);
    if (started) {
        hub->FinishModulesRegistration();
        started = WaitForRegistration(*hub, deadline);
    }
    if (!started) {
        core->Stop(options.stop_timeout);
        Log::Error(LOG_TAG, "The core did not register its modules within %d ms and was stopped",
                   static_cast<int64_t>(options.start_timeout.count()));
        VELMORA_THROW("core.start_timeout", "The core did not register its modules in time");
    }
    Log::Debug(LOG_TAG, "Core started on the data folder %s", core->data_dir);
    return core;
}

VelmoraMobileCore::~VelmoraMobileCore() {
    Stop(stop_timeout);
}

bool VelmoraMobileCore::Stop(std::chrono::milliseconds deadline) {
    std::lock_guard<std::mutex> lock(stop_mutex_);
    if (stopped_) {
        return stopped_in_time_;
    }
    stopped_ = true;
    stopped_in_time_ = event_hub->Shutdown(deadline);
    if (!stopped_in_time_) {
        Log::Error(LOG_TAG, "The core did not stop within %d ms; what was left was abandoned",
                   static_cast<int64_t>(deadline.count()));
    }
    return stopped_in_time_;
}

bool VelmoraMobileCore::IsStopped() {
    std::lock_guard<std::mutex> lock(stop_mutex_);
    return stopped_;
}

}  // namespace VelmoraMobile
