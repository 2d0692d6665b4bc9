#include "identity/hits/IdentityObject.h"
#include "identity/module/Identity.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/bus/EventData.h"
#include "runtime/values/Log.h"
#include "runtime/values/TryCatch.h"
#include "runtime/values/Variant.h"

namespace VelmoraMobile {

namespace {
const char* const UPDATED_IDENTITY_RESPONSE = "UPDATED_IDENTITY_RESPONSE";
}  // namespace

// Runs as the module's task "NetworkResponseLoaded", which the hit processor adds.
void Identity::NetworkResponseLoaded(const std::shared_ptr<IdentityObject>& identity_object, const std::string& pair_id,
                                     int32_t /*event_number*/) {
    // An opted-out device keeps nothing the server says; the wipe has already been saved.
    if (privacy_status != MobilePrivacyStatus::OPT_OUT) {
        ParseIDsOnjsonResponseReceivedCallback(identity_object);
        SavePersistently();
    }
    // Everybody hears of the end of every hit, answered or not; the requester once more, paired.
    HandleIdentifiersRequest(UPDATED_IDENTITY_RESPONSE, "");
    if (!pair_id.empty()) {
        HandleIdentifiersRequest(UPDATED_IDENTITY_RESPONSE, pair_id);
    }
}

void Identity::ParseIDsOnjsonResponseReceivedCallback(const std::shared_ptr<IdentityObject>& identity_object) {
    const char* tag = LOG_PREFIX.c_str();
    if (!identity_object) {
        Log::Debug(tag, "empty json object");
        return;
    }

    // The status itself changes only when the configuration comes back with it.
    if (!identity_object->GetOptOut().empty()) {
        Log::Debug(tag, "ID Service - Got Global Opt Out Response, forcing opt out.");
        Variant::VariantMap update = {
            {IdentityConstants::EventDataKeys::Configuration::GLOBAL_CONFIG_PRIVACY,
             Variant::FromString(MobilePrivacyStatusToString(MobilePrivacyStatus::OPT_OUT))},
        };
        auto data = std::make_shared<EventData>();
        data->PutVariantMap(
            IdentityConstants::EventDataKeys::Configuration::CONFIGURATION_REQUEST_CONTENT_UPDATE_CONFIG, update);
        HandleIdentityConfigurationUpdateEvent(data);
    }

    // A server error is never logged and never overwrites anything; it only makes sure there is a MID.
    if (!identity_object->GetError().empty()) {
        if (mid.empty()) {
            mid = GenerateMID();
        }
        return;
    }
    // The server's MID only opens the gate: the device keeps its own.
    if (identity_object->GetMid().empty()) {
        return;
    }
    TrySwallow([&] {
        blob = identity_object->GetBlob();
        location_hint = identity_object->GetHint();
        ttl = identity_object->GetTtl();
        Log::Debug(tag, "ID Service - Got ID Response (mid: %s, blob: %s, hint: %s, ttl: %d)", mid, blob, location_hint,
                   static_cast<int64_t>(ttl.count()));
    });
}

}  // namespace VelmoraMobile
