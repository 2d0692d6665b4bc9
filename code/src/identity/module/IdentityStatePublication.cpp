#include <algorithm>

#include "identity/events/IdentityDispatcherIdentityResponseIdentity.h"
#include "identity/ids/VisitorIdSerializer.h"
#include "identity/module/Identity.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/values/Variant.h"

namespace VelmoraMobile {

namespace IdentityKeys = IdentityConstants::EventDataKeys::Identity;

std::shared_ptr<EventData> Identity::PackageEventData() {
    std::shared_ptr<Variant> ids = customer_ids.empty() ? nullptr : PublishedCustomerIds();
    if (!PublishedRecordIsCurrent(ids)) {
        auto data = std::make_shared<EventData>();
        // An empty value is left out rather than published empty.
        if (!mid.empty()) {
            data->PutString(IdentityKeys::VISITOR_ID_MID, mid);
        }
        if (!user_identifier.empty()) {
            data->PutString(IdentityKeys::USER_IDENTIFIER, user_identifier);
        }
        if (!advertising_identifier.empty()) {
            data->PutString(IdentityKeys::ADVERTISING_IDENTIFIER, advertising_identifier);
        }
        if (!push_identifier.empty()) {
            data->PutString(IdentityKeys::PUSH_IDENTIFIER, push_identifier);
        }
        if (!blob.empty()) {
            data->PutString(IdentityKeys::VISITOR_ID_BLOB, blob);
        }
        if (!location_hint.empty()) {
            data->PutString(IdentityKeys::VISITOR_ID_LOCATION_HINT, location_hint);
        }
        if (ids) {
            // Variants are immutable, so records may share one list.
            data->PutVariant(IdentityKeys::VISITOR_IDS_LIST, ids);
        }
        data->PutLong(IdentityKeys::VISITOR_IDS_LAST_SYNC, static_cast<int64_t>(last_sync.count()));
        data->ShareEntries();
        published_record_ = data;
        published_record_source_ = {mid,
                                    user_identifier,
                                    advertising_identifier,
                                    push_identifier,
                                    blob,
                                    location_hint,
                                    ids,
                                    static_cast<int64_t>(last_sync.count())};
    }
    // A fresh object each time: receivers of one response must not see what another wrote. It
    // shares the record's entries until it is written to.
    return std::make_shared<EventData>(*published_record_);
}

bool Identity::PublishedRecordIsCurrent(const std::shared_ptr<Variant>& ids) const {
    const PublishedRecordSource& source = published_record_source_;
    return published_record_ && source.customer_ids == ids &&
           source.last_sync == static_cast<int64_t>(last_sync.count()) && source.mid == mid &&
           source.user_identifier == user_identifier && source.advertising_identifier == advertising_identifier &&
           source.push_identifier == push_identifier && source.blob == blob && source.location_hint == location_hint;
}

std::shared_ptr<Variant> Identity::PublishedCustomerIds() {
    auto same = [](const std::optional<VisitorId>& published, const std::shared_ptr<VisitorId>& current) {
        if (!current) {
            return !published;
        }
        return published && published->authentication_state == current->authentication_state &&
               published->id == current->id && published->id_type == current->id_type &&
               published->id_origin == current->id_origin;
    };
    const auto& source = published_customer_ids_source_;
    if (published_customer_ids_ && source->size() == customer_ids.size() &&
        std::equal(source->begin(), source->end(), customer_ids.begin(), same)) {
        return published_customer_ids_;
    }
    auto copy = std::make_shared<std::vector<std::optional<VisitorId>>>();
    copy->reserve(customer_ids.size());
    for (const auto& current : customer_ids) {
        copy->push_back(current ? std::optional<VisitorId>(*current) : std::nullopt);
    }
    published_customer_ids_source_ = copy;
    // Most records are never read for their ids (a start answers the MID first), so the four
    // Variants per id are made by the first reader, from the copy, which nothing changes.
    published_customer_ids_ = Variant::FromDeferredVector([copy] { return VisitorIdSerializer::ListOf(*copy); });
    return published_customer_ids_;
}

void Identity::HandleIdentityResponseEvent(const std::string& event_name, const std::shared_ptr<EventData>& data,
                                           const std::string& pair_id) {
    // Null before OnRegistered has made it: the response is dropped.
    if (!identity_response_dispatcher) {
        return;
    }
    identity_response_dispatcher->DispatchIdentityResponse(event_name, data, pair_id);
}

}  // namespace VelmoraMobile
