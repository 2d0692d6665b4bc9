#pragma once

#include "identity/ids/VisitorId.h"
#include "tests/identity/support/IdentityHarness.h"

// Helpers shared by the identity state tests. Header only; test thread only.
namespace VelmoraTest {

inline const std::string STATE_ORG = "1234ABCD5678EFGH@VelmoraOrg";
inline const std::string STATE_MID = "01234567890123456789012345678901234567";

inline std::shared_ptr<VelmoraMobile::DataStoreInterface> Store(IdentityHarness& harness) {
    return harness.services->GetLocalStorageService()->GetDataStore("visitorIDServiceDataStore");
}

/// Gives the module a full identity, saves it and sets the push token "push-token".
inline void FillIdentity(IdentityHarness& harness) {
    using VelmoraMobile::VisitorId;
    harness.RunInIdentityQueue([&] {
        auto& id = *harness.identity;
        id.mid = STATE_MID;
        id.location_hint = "9";
        id.blob = "blob-value";
        id.advertising_identifier = "ad-id";
        id.user_identifier = "user-1";
        id.customer_ids = {std::make_shared<VisitorId>("d_cid_ic", "crm", "abc",
                                                       VelmoraMobile::VisitorIdAuthenticationState::AUTHENTICATED),
                           std::make_shared<VisitorId>("d_cid_ic", "loyalty", "77",
                                                       VelmoraMobile::VisitorIdAuthenticationState::LOGGED_OUT)};
        id.ttl = std::chrono::seconds(1800);
        id.last_sync = std::chrono::seconds(1700000000);
        id.SavePersistently();
        id.UpdatePushIdentifier("push-token");
    });
}

/// mid|user id|advertising id|hint|blob|push identifier|customer ids as stored|ttl|last sync
inline std::string Fields(IdentityHarness& harness) {
    std::string out;
    harness.RunInIdentityQueue([&] {
        auto& id = *harness.identity;
        out = id.mid + "|" + id.user_identifier + "|" + id.advertising_identifier + "|" + id.location_hint + "|" +
              id.blob + "|" + id.push_identifier + "|" + id.ConvertVisitorIdObjectsVisitorIDsString(id.customer_ids) +
              "|" + std::to_string(id.ttl.count()) + "|" + std::to_string(id.last_sync.count());
    });
    return out;
}

}  // namespace VelmoraTest
