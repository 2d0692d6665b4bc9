#include "identity/module/Identity.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/services/LocalStorageServiceInterface.h"
#include "runtime/services/PlatformServicesInterface.h"
#include "runtime/values/Log.h"

namespace VelmoraMobile {

namespace {

// Writes a string field of the image: an empty field leaves no key behind, so a later load
// falls back to the default instead of reading a stored "".
void SetOrRemove(DataStoreInterface& store, const std::string& key, const std::string& value) {
    if (value.empty()) {
        store.Remove(key);
    } else {
        store.SetString(key, value);
    }
}

}  // namespace

std::shared_ptr<DataStoreInterface> Identity::GetIdentityDataStore() {
    auto platform_services = GetPlatformServices();
    if (!platform_services) {
        Log::Warning(LOG_PREFIX.c_str(), "platform services is null. cannot load persistent data");
        return nullptr;
    }
    auto local_storage = platform_services->GetLocalStorageService();
    if (!local_storage) {
        Log::Warning(LOG_PREFIX.c_str(), "data storage service is null. cannot load persistent data");
        return nullptr;
    }
    return local_storage->GetDataStore(IDENTITY_PROPERTIES_DATA_STORE_NAME);
}

void Identity::LoadVariablesFromPersistentData() {
    namespace Keys = IdentityConstants::DataStoreKeys;
    auto store = GetIdentityDataStore();
    if (!store) {
        Log::Trace(LOG_PREFIX.c_str(), "load from persistence failed. null data store");
        LoadDefaultValues();
        return;
    }
    mid = store->GetString(Keys::ONDARA_CLOUD_ID, "");
    location_hint = store->GetString(Keys::LOCATION_HINT, "");
    blob = store->GetString(Keys::BLOB, "");
    ttl = std::chrono::seconds(store->GetLong(Keys::TTL, IdentityConstants::Default::DEFAULT_TTL_VALUE));
    last_sync = std::chrono::seconds(store->GetLong(Keys::LAST_SYNC, 0));
    advertising_identifier = store->GetString(Keys::ADVERTISING_IDENTIFIER, "");
    user_identifier = store->GetString(Keys::VISITOR_ID, "");
    // push_identifier is deliberately not restored: only the digest of the token is stored.
    customer_ids = ConvertVisitorIDsStringToVisitorIdObjects(store->GetString(Keys::VISITOR_IDS_STRING, ""));
}

void Identity::SavePersistently() {
    namespace Keys = IdentityConstants::DataStoreKeys;
    auto store = GetIdentityDataStore();
    if (!store) {
        Log::Trace(LOG_PREFIX.c_str(), "saving into persistence failed. null data store");
        return;
    }
    // One commit for the whole image: a sync that changes several values waits for the disk once.
    store->WriteTogether([&] {
        if (customer_ids.empty()) {
            store->Remove(Keys::VISITOR_IDS_STRING);
        } else {
            store->SetString(Keys::VISITOR_IDS_STRING, ConvertVisitorIdObjectsVisitorIDsString(customer_ids));
        }
        SetOrRemove(*store, Keys::ONDARA_CLOUD_ID, mid);
        SetOrRemove(*store, Keys::VISITOR_ID, user_identifier);
        SetOrRemove(*store, Keys::ADVERTISING_IDENTIFIER, advertising_identifier);
        SetOrRemove(*store, Keys::LOCATION_HINT, location_hint);
        SetOrRemove(*store, Keys::BLOB, blob);
        // Zero is a real answer of the server, so both numbers are always written.
        store->SetLong(Keys::TTL, ttl.count());
        store->SetLong(Keys::LAST_SYNC, last_sync.count());
    });
}

void Identity::LoadDefaultValues() {
    latest_valid_config.reset();
    mid.clear();
    user_identifier.clear();
    advertising_identifier.clear();
    push_identifier.clear();
    blob.clear();
    location_hint.clear();
    ttl = std::chrono::seconds(IdentityConstants::Default::DEFAULT_TTL_VALUE);
    last_sync = std::chrono::seconds(0);
    // customer_ids and privacy_status are left as they are on purpose.
}

}  // namespace VelmoraMobile
