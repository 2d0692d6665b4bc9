#include "identity/events/IdentityDispatcherAnalyticsRequestContent.h"
#include "identity/module/Identity.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/services/PlatformServicesInterface.h"
#include "runtime/values/Log.h"

namespace VelmoraMobile {

namespace {

const char* const NO_STORE_FOR_PUSH_FLAG = "cannot update push flag without local storage service.";

}  // namespace

void Identity::UpdatePushIdentifier(const std::string& token) {
    if (!ProcessPushToken(token)) {
        Log::Debug(LOG_PREFIX.c_str(), "Provided push token matches existing push token.  Ignoring.");
        return;
    }
    push_identifier = token;
    // The flag is read anew for each test: the first branch may have changed it.
    if (token.empty() && IsPushEnabled()) {
        ChangePushStatusAndHitAnalytics(false);
    }
    if (!token.empty() && !IsPushEnabled()) {
        ChangePushStatusAndHitAnalytics(true);
    }
}

bool Identity::ProcessPushToken(const std::string& token) {
    auto store = GetIdentityDataStore();
    if (!store) {
        Log::Trace(LOG_PREFIX.c_str(), NO_STORE_FOR_PUSH_FLAG);
        return false;
    }
    std::shared_ptr<CryptoServiceInterface> crypto;
    if (auto platform_services = GetPlatformServices()) {
        crypto = platform_services->GetCryptoService();
    } else {
        Log::Error(LOG_PREFIX.c_str(), "Failed to retrieve crypto service, platform services are not available");
    }
    if (!crypto) {
        Log::Trace(LOG_PREFIX.c_str(), "crypto services is null.");
        return false;
    }
    // Only a digest of the token is ever stored; the raw token stays in memory.
    const std::string stored_digest = store->GetString(IdentityConstants::DataStoreKeys::PUSH_IDENTIFIER, "");
    const std::string new_digest = crypto->GetDigest(token);
    if (stored_digest == new_digest) {
        return false;
    }
    if (new_digest.empty()) {
        store->Remove(IdentityConstants::DataStoreKeys::PUSH_IDENTIFIER);
    } else {
        store->SetString(IdentityConstants::DataStoreKeys::PUSH_IDENTIFIER, new_digest);
    }
    return true;
}

bool Identity::IsPushEnabled() {
    auto store = GetIdentityDataStore();
    if (!store) {
        Log::Trace(LOG_PREFIX.c_str(), NO_STORE_FOR_PUSH_FLAG);
        return false;
    }
    push_enabled = store->GetBoolean(IdentityConstants::DataStoreKeys::PUSH_ENABLED, false);
    return push_enabled;
}

bool Identity::SetPushEnabled(bool enabled) {
    auto store = GetIdentityDataStore();
    if (!store) {
        Log::Trace(LOG_PREFIX.c_str(), NO_STORE_FOR_PUSH_FLAG);
        return false;
    }
    store->SetBoolean(IdentityConstants::DataStoreKeys::PUSH_ENABLED, enabled);
    push_enabled = enabled;
    return true;
}

void Identity::ChangePushStatusAndHitAnalytics(bool enabled) {
    // No report of a change that could not be stored.
    if (!SetPushEnabled(enabled)) {
        return;
    }
    namespace Keys = IdentityConstants::EventDataKeys;
    auto data = std::make_shared<EventData>();
    data->PutString(Keys::Analytics::TRACK_ACTION, Keys::Identity::PUSH_ID_ENABLED_ACTION_NAME);
    data->PutStringMap(Keys::Analytics::CONTEXT_DATA,
                       {{Keys::Identity::EVENT_PUSH_STATUS, enabled ? "True" : "False"}});
    if (analytics_dispatcher) {
        analytics_dispatcher->DispatchAnalyticsEventWithEventData(data);
    }
}

}  // namespace VelmoraMobile
