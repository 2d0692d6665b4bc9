#include "identity/module/Identity.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/values/Log.h"
#include "runtime/values/TryCatch.h"

namespace VelmoraMobile {

std::vector<std::shared_ptr<VisitorId>> Identity::GenerateCustomerIds(
    const std::map<std::string, std::string>& identifiers, VisitorIdAuthenticationState state) {
    std::vector<std::shared_ptr<VisitorId>> ids;
    if (identifiers.empty()) {
        return ids;
    }
    const std::map<std::string, std::string> pairs = identifiers;
    for (const auto& pair : pairs) {
        TryCatch(
            [&] {
                // The advertising id is always sent as authenticated, whatever the request says.
                VisitorIdAuthenticationState id_state =
                    pair.first == IdentityConstants::EventDataKeys::Identity::ADID_DSID
                        ? VisitorIdAuthenticationState::AUTHENTICATED
                        : state;
                ids.push_back(std::make_shared<VisitorId>(IdentityConstants::VISITOR_ID_PARAMETER_KEY_CUSTOMER,
                                                          pair.first, pair.second, id_state));
            },
            [](SdkError& error) {
                Log::Debug(LOG_PREFIX.c_str(), "Unable to create VisitorID object (%s)", error.GetMessage());
            });
    }
    return ids;
}

std::vector<std::shared_ptr<VisitorId>> Identity::MergeCustomerIds(
    const std::vector<std::shared_ptr<VisitorId>>& new_ids) {
    // The copy shares the records: an overwrite below shows in customer_ids at once.
    std::vector<std::shared_ptr<VisitorId>> result = customer_ids;
    for (const auto& new_id : new_ids) {
        if (!new_id) {
            continue;
        }
        bool replaced = false;
        for (const auto& existing : result) {
            if (existing && existing->Equals(new_id)) {
                // Replaced in place: the entry keeps its origin and its position.
                existing->id = new_id->id;
                existing->authentication_state = new_id->authentication_state;
                replaced = true;
                break;
            }
        }
        if (!replaced) {
            result.push_back(new_id);
        }
    }
    return result;
}

}  // namespace VelmoraMobile
