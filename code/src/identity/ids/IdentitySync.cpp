#include "identity/hits/IdentityHitDatabase.h"
#include "identity/module/ConfigurationSharedStateIdentity.h"
#include "identity/module/Identity.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/services/helpers/TimeUtils.h"
#include "runtime/values/Log.h"
#include "runtime/values/TryCatch.h"

namespace VelmoraMobile {

namespace {

// A null configuration reads as the defaults, as it does in the event queue.
std::shared_ptr<ConfigurationSharedStateIdentity> OrDefaults(
    const std::shared_ptr<ConfigurationSharedStateIdentity>& config) {
    return config ? config : std::make_shared<ConfigurationSharedStateIdentity>(nullptr);
}

}  // namespace

bool Identity::HandleSyncIdentifiers(const std::shared_ptr<Event>& event,
                                     const std::shared_ptr<ConfigurationSharedStateIdentity>& event_config) {
    namespace Keys = IdentityConstants::EventDataKeys::Identity;
    const char* tag = LOG_PREFIX.c_str();
    auto config = OrDefaults(event_config);

    if (config->GetPrivacyStatus() == MobilePrivacyStatus::OPT_OUT) {
        Log::Debug(tag, "Ignoring ID Sync due to privacy status opt out.");
        return true;
    }

    // Without an org id of its own the event borrows the latest configuration that had one;
    // with none at all it stays at the head of the queue until one arrives.
    std::shared_ptr<ConfigurationSharedStateIdentity> chosen = config;
    if (config->GetOrgId().empty()) {
        if (!latest_valid_config) {
            return false;
        }
        chosen = latest_valid_config;
    }
    if (chosen->GetPrivacyStatus() == MobilePrivacyStatus::OPT_OUT) {
        Log::Debug(tag, "Ignoring ID Sync due to privacy status opt out!");
        return true;
    }
    if (!event) {
        return true;
    }

    const std::shared_ptr<EventData>& data = event->GetData();
    std::map<std::string, std::string> dpids = ExtractDpid(data);
    std::map<std::string, std::string> identifiers = ExtractIdentifiers(data, chosen);
    VisitorIdAuthenticationState state =
        IntegerToVisitorIdAuthenticationState(data ? data->OptInteger(Keys::AUTHENTICATION_STATE, 0) : 0);
    bool force_sync = data && data->OptBoolean(Keys::FORCE_SYNC, false);

    if (!ShouldSync(identifiers, dpids, force_sync, chosen)) {
        Log::Debug(tag, "Ignoring ID sync because nothing new to sync after the last sync.");
        return true;
    }

    std::vector<std::shared_ptr<VisitorId>> new_ids = GenerateCustomerIds(identifiers, state);
    // Only this request's ids go on the wire; the merged list is what is kept and published.
    std::string url = BuildUrlString(new_ids, dpids, chosen);
    customer_ids = MergeCustomerIds(new_ids);

    // Saved and published before last_sync moves: both carry the previous sync time.
    SavePersistently();
    CreateSharedState(event->GetEventNumber(), PackageEventData());

    if (hit_database) {
        hit_database->Queue(url, chosen, event);
        last_sync = std::chrono::seconds(TimeUtils::GetUnixTimeInSeconds());
    }
    return true;
}

std::map<std::string, std::string> Identity::ExtractDpid(const std::shared_ptr<EventData>& event_data) {
    namespace Keys = IdentityConstants::EventDataKeys::Identity;
    std::map<std::string, std::string> dpids;
    if (event_data && event_data->ContainsKey(Keys::PUSH_IDENTIFIER)) {
        std::string push_id = event_data->OptString(Keys::PUSH_IDENTIFIER, "");
        UpdatePushIdentifier(push_id);
        // Sent even when unchanged or empty: the request asked for it.
        dpids[Keys::OCPNS_DPID] = push_id;
    }
    return dpids;
}

std::map<std::string, std::string> Identity::ExtractIdentifiers(
    const std::shared_ptr<EventData>& event_data, const std::shared_ptr<ConfigurationSharedStateIdentity>& config) {
    namespace Keys = IdentityConstants::EventDataKeys::Identity;
    std::map<std::string, std::string> identifiers;
    if (!event_data || event_data->IsEmpty()) {
        return identifiers;
    }
    // A request without the map (e.g. only an advertising id) is ordinary.
    event_data->GetStringMap(Keys::IDENTIFIERS, identifiers);

    if (event_data->ContainsKey(Keys::ADVERTISING_IDENTIFIER)) {
        TryCatch(
            [&] {
                std::string new_id;
                event_data->GetString(Keys::ADVERTISING_IDENTIFIER, new_id);
                if (!OrDefaults(config)->GetAdIdEnabledStatus()) {
                    // Disabled: forget the stored id and never send the new one.
                    UpdateAdvertisingIdentifier("");
                    return;
                }
                if (new_id == advertising_identifier) {
                    return;
                }
                identifiers[Keys::ADID_DSID] = new_id;
                UpdateAdvertisingIdentifier(new_id);
            },
            [&](SdkError& error) {
                Log::Error(LOG_PREFIX.c_str(), "Error updating the advertising identifier (%s)", error.GetMessage());
            });
    }
    return identifiers;
}

bool Identity::ShouldSync(const std::map<std::string, std::string>& identifiers,
                          const std::map<std::string, std::string>& dpids, bool force_sync,
                          const std::shared_ptr<ConfigurationSharedStateIdentity>& config) {
    bool can_sync = OrDefaults(config)->CanSyncIdentifiersWithCurrentConfiguration();
    if (!can_sync) {
        Log::Debug(LOG_PREFIX.c_str(), "Ignoring ID Sync due to privacy status opt out OR missing OrgID.");
    }
    int64_t now = TimeUtils::GetUnixTimeInSeconds();
    bool expired = ttl.count() < now - last_sync.count();
    bool need_sync = expired || force_sync || !identifiers.empty() || !dpids.empty() || mid.empty();
    if (!need_sync) {
        return false;
    }
    // A MID is made even when this configuration may not sync.
    if (mid.empty()) {
        mid = GenerateMID();
    }
    return can_sync;
}

void Identity::UpdateUserIdentifier(const std::string& value) {
    user_identifier = value;
    SavePersistently();
}

void Identity::UpdateAdvertisingIdentifier(const std::string& value) {
    advertising_identifier = value;
    SavePersistently();
}

}  // namespace VelmoraMobile
