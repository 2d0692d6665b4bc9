#include "identity/hits/IdentityHitDatabase.h"
#include "identity/module/ConfigurationSharedStateIdentity.h"
#include "identity/module/Identity.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/bus/SharedStatePending.h"
#include "runtime/services/PlatformServicesInterface.h"
#include "runtime/services/helpers/UrlBuilder.h"
#include "runtime/values/Log.h"

namespace VelmoraMobile {

void Identity::LoadPrivacyStatus(const std::shared_ptr<Event>& event) {
    auto state = GetSharedEventState(IdentityConstants::EventDataKeys::Configuration::SHARED_STATE_NAME, event);
    // A pending configuration brings its status later, in its own response event.
    if (state == SHARED_STATE_PENDING) {
        return;
    }
    ProcessPrivacyChange(event->GetEventNumber(), state);
}

void Identity::ProcessPrivacyChange(int32_t event_number, const std::shared_ptr<EventData>& config_data) {
    if (!config_data) {
        return;
    }
    std::string privacy_text;
    if (!config_data->GetString(IdentityConstants::EventDataKeys::Configuration::GLOBAL_CONFIG_PRIVACY, privacy_text)) {
        return;
    }
    const MobilePrivacyStatus new_status = StringToMobilePrivacyStatus(privacy_text);
    if (new_status == privacy_status) {
        return;
    }
    // Written ahead of the wipe: a hit finishing on the queue's thread checks this field.
    privacy_status = new_status;

    if (privacy_status == MobilePrivacyStatus::OPT_OUT) {
        mid.clear();
        user_identifier.clear();
        advertising_identifier.clear();
        blob.clear();
        location_hint.clear();
        while (!customer_ids.empty()) {
            customer_ids.pop_back();
        }
        ttl = std::chrono::seconds(IdentityConstants::Default::DEFAULT_TTL_VALUE);
        last_sync = std::chrono::seconds(0);
        // A later opt-in must sync the analytics id anew.
        if (auto store = GetIdentityDataStore()) {
            store->Remove(IdentityConstants::DataStoreKeys::AID_SYNCED_KEY);
        }
        UpdatePushIdentifier("");
        SavePersistently();
        CreateSharedState(event_number, PackageEventData());
        ClearEventsQueue();
    }

    if (hit_database) {
        hit_database->UpdatePrivacyStatus(privacy_status);
    }
}

void Identity::HandleOptOut(const std::shared_ptr<Event>& event) {
    auto state = GetSharedEventState(IdentityConstants::EventDataKeys::Configuration::SHARED_STATE_NAME, event);
    if (!state || state == SHARED_STATE_PENDING) {
        return;
    }
    // The audience extension takes the opt-out to the server itself.
    if (state->ContainsKey(IdentityConstants::EventDataKeys::Configuration::ZUMA_CONFIG_SERVER)) {
        return;
    }
    auto config = std::make_shared<ConfigurationSharedStateIdentity>(state);
    if (config->GetPrivacyStatus() == MobilePrivacyStatus::OPT_OUT) {
        SendOptOutHit(config);
    }
}

void Identity::SendOptOutHit(const std::shared_ptr<ConfigurationSharedStateIdentity>& config) {
    const std::string url = BuildOptOutUrlString(config);
    if (url.empty()) {
        Log::Debug(LOG_PREFIX.c_str(), "Could not send opt-out request as url is empty.");
        return;
    }
    std::shared_ptr<NetworkServiceInterface> network_service;
    if (!GetNetworkService(network_service)) {
        Log::Debug(LOG_PREFIX.c_str(), "Could not send opt-out request as network service is unavailable.");
        return;
    }
    Log::Debug(LOG_PREFIX.c_str(), "Sending opt-out request to %s.", url);
    // Fire and forget: never retried, never queued, and the answer is not looked at.
    network_service->ConnectUrlAsync(url, HttpCommand::GET, "", {}, IdentityConstants::Default::TIMEOUT,
                                     IdentityConstants::Default::TIMEOUT,
                                     [](const std::shared_ptr<HttpConnectionInterface>&) {});
}

std::string Identity::BuildOptOutUrlString(const std::shared_ptr<ConfigurationSharedStateIdentity>& config) {
    if (!config) {
        return "";
    }
    const std::string org_id = config->GetOrgId();
    if (org_id.empty() || mid.empty()) {
        return "";
    }
    const std::map<std::string, std::string> parameters = {
        {IdentityConstants::RESPONSE_KEY_ORGID, org_id},
        {IdentityConstants::RESPONSE_KEY_MID, mid},
    };
    return UrlBuilder()
        .EnableSsl(config->GetSSLStatus())
        .SetHost(config->GetOndaraCloudServer())
        .AddPath(IdentityConstants::KEY_PATH_OPTOUT)
        .AddQueryParameters(parameters)
        .Build();
}

bool Identity::GetNetworkService(std::shared_ptr<NetworkServiceInterface>& service) {
    auto platform_services = GetPlatformServices();
    if (!platform_services) {
        Log::Warning(LOG_PREFIX.c_str(), "Platform services are not available");
        return false;
    }
    service = platform_services->GetNetworkService();
    if (!service) {
        Log::Warning(LOG_PREFIX.c_str(), "Network services are not available");
        return false;
    }
    return true;
}

}  // namespace VelmoraMobile
