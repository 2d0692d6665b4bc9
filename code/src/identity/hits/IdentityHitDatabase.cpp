#include "identity/hits/IdentityHitDatabase.h"

#include "identity/module/Identity.h"
#include "runtime/values/DebugInfo.h"
#include "runtime/values/Log.h"
#include "runtime/values/SdkError.h"
#include "runtime/values/TryCatch.h"

namespace VelmoraMobile {

std::shared_ptr<IdentityHitDatabase> IdentityHitDatabase::CreateIdentityDatabase(
    const std::shared_ptr<Identity>& module, const std::shared_ptr<PlatformServicesInterface>& platform_services,
    const std::shared_ptr<IdentityHitQueue>& hit_queue) {
    auto database = std::make_shared<IdentityHitDatabase>();
    TryCatch(
        [&] {
            database->Init(platform_services);
            std::shared_ptr<NetworkServiceInterface> network_service = platform_services->GetNetworkService();
            std::shared_ptr<SystemInfoServiceInterface> system_info_service = platform_services->GetSystemInfoService();
            std::shared_ptr<JsonUtilityServiceInterface> json_utility_service =
                platform_services->GetJsonUtilityService();
            database->hit_processor = std::make_shared<IdentityHitProcessor>(network_service, system_info_service,
                                                                             json_utility_service, module);
            database->hit_queue = hit_queue ? hit_queue
                                            : std::make_shared<IdentityHitQueue>(
                                                  platform_services, database->hit_schema, database->hit_processor);
            database->ResetEventNumberAndPairIdForExistingRequests();
        },
        [&](SdkError& error) {
            Log::Warning(Identity::LOG_PREFIX.c_str(), "Failed to create IdentityHitDatabase: %s", error);
            database.reset();
        });
    return database;
}

void IdentityHitDatabase::Init(const std::shared_ptr<PlatformServicesInterface>& platform_services) {
    if (!platform_services) {
        Log::Error(Identity::LOG_PREFIX.c_str(), "Failed to initialize hit database (platform services was null)");
        throw SdkError("platform_services.missing_service", "Cannot function without platform services.",
                       DebugInfo("code/src/identity/IdentityHitDatabase", __LINE__,
                                 GetCurrentDebugInfoPrivate::GetCurrentStackTrace()));
    }
    hit_schema = std::make_shared<IdentityDatabaseHitSchema>();
    system_info_service = platform_services->GetSystemInfoService();
    platform_service = platform_services->GetDatabaseService();
}

bool IdentityHitDatabase::Dispose(std::chrono::milliseconds timeout) {
    if (!hit_queue) {
        return true;
    }
    return hit_queue->Dispose(timeout);
}

void IdentityHitDatabase::Queue(const std::string& url, const std::shared_ptr<ConfigurationSharedStateIdentity>& config,
                                const std::shared_ptr<Event>& event) {
    const char* tag = Identity::LOG_PREFIX.c_str();
    if (url.empty()) {
        Log::Debug(tag, "Url for queuing Identity request is empty, ignoring");
        return;
    }
    if (!event) {
        Log::Debug(tag, "Event for queuing Identity request is null, ignoring");
        return;
    }
    std::shared_ptr<ConfigurationSharedStateIdentity> effective_config =
        config ? config : std::make_shared<ConfigurationSharedStateIdentity>(nullptr);

    auto hit = std::make_shared<IdentityDatabaseHit>();
    hit->url = url;
    // Event time is in milliseconds; the row keeps whole seconds, truncated.
    hit->timestamp = std::chrono::seconds(event->GetTimestamp() / 1000);
    hit->pair_id = event->GetResponsePairID();
    hit->event_number = event->GetEventNumber();
    hit->config_ssl = effective_config->GetSSLStatus();

    // Stored first whatever the privacy status: an unknown status keeps the row for later.
    hit_queue->Queue(hit);
    if (effective_config->GetPrivacyStatus() == MobilePrivacyStatus::OPT_IN) {
        hit_queue->BringOnline();
    }
}

void IdentityHitDatabase::UpdatePrivacyStatus(MobilePrivacyStatus status) {
    const char* tag = Identity::LOG_PREFIX.c_str();
    if (!hit_queue) {
        Log::Trace(tag, "Hit queue is null");
        return;
    }
    switch (status) {
        case MobilePrivacyStatus::OPT_IN:
            Log::Debug(tag, "Privacy opted-in: Attempting to send Identity queued hits from database");
            hit_queue->BringOnline();
            break;
        case MobilePrivacyStatus::OPT_OUT:
            Log::Debug(tag, "Privacy opted-out: Clearing Identity queued hits from database");
            // Suspend first, so that the worker takes no row between the two calls.
            hit_queue->Suspend();
            hit_queue->DeleteAllHits();
            break;
        case MobilePrivacyStatus::UNKNOWN:
            Log::Debug(tag, "Privacy opt-unknown: Suspend Identity database");
            hit_queue->Suspend();
            break;
        default:
            // The number: the text form would read "optunknown" and hide the bad value.
            Log::Trace(tag, "Unknown MobilePrivacyStatus value: %s", static_cast<int32_t>(status));
            break;
    }
}

void IdentityHitDatabase::ResetEventNumberAndPairIdForExistingRequests() {
    // The events those rows were queued for belong to an earlier run. Marked rather than rewritten,
    // so that a start costs the same with any backlog.
    hit_queue->UpdateEarlierHits(hit_schema->GenerateUpdateValuesForResetEventNumberAndPairId());
}

}  // namespace VelmoraMobile
