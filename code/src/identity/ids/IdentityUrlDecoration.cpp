#include "identity/module/ConfigurationSharedStateIdentity.h"
#include "identity/module/Identity.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/services/helpers/TimeUtils.h"
#include "runtime/services/helpers/UrlEncoder.h"
#include "runtime/values/StringUtils.h"

namespace VelmoraMobile {

void Identity::HandleAppendUrl(const std::shared_ptr<Event>& event,
                               const std::shared_ptr<ConfigurationSharedStateIdentity>& config) {
    namespace Keys = IdentityConstants::EventDataKeys;
    if (!event) {
        return;
    }
    // A value that is no string reads as the empty URL and is answered with "".
    std::string base_url;
    event->GetData()->GetString(Keys::Identity::BASE_URL, base_url);
    // Not tested for null or pending: either simply yields no analytics id.
    std::shared_ptr<EventData> analytics_state = GetSharedEventState(Keys::Analytics::SHARED_STATE_NAME, event);
    AppendVisitorInfoForUrl(base_url, event->GetResponsePairID(), config, analytics_state);
}

void Identity::AppendVisitorInfoForUrl(const std::string& base_url, const std::string& pair_id,
                                       const std::shared_ptr<ConfigurationSharedStateIdentity>& config,
                                       const std::shared_ptr<EventData>& analytics_state) {
    namespace Keys = IdentityConstants::EventDataKeys;
    auto data = std::make_shared<EventData>();
    if (base_url.empty()) {
        data->PutString(Keys::Identity::UPDATED_URL, base_url);
        HandleIdentityResponseEvent("IDENTITY_APPENDED_URL", data, pair_id);
        return;
    }

    // The URL is plain text: nothing parses or validates it.
    std::string url = base_url;
    const std::string decoration = GenerateVisitorIdPayload(config, analytics_state);
    if (!decoration.empty()) {
        // The first "?" anywhere, the fragment included, counts as the start of a query.
        const size_t query = url.find('?');
        std::string prefix;
        if (query == std::string::npos) {
            prefix = "?";
        } else if (query != url.size() - 1) {
            prefix = "&";
        }
        // A leading "#" is not taken for a fragment.
        const size_t fragment = url.find('#');
        if (fragment != std::string::npos && fragment != 0) {
            url.insert(fragment, prefix + decoration);
        } else {
            url += prefix + decoration;
        }
    }
    data->PutString(Keys::Identity::UPDATED_URL, url);
    HandleIdentityResponseEvent("IDENTITY_APPENDED_URL", data, pair_id);
}

std::string Identity::GenerateVisitorIdPayload(const std::shared_ptr<ConfigurationSharedStateIdentity>& config,
                                               const std::shared_ptr<EventData>& analytics_state) {
    std::string payload;
    payload = AppendParameterToVisitorIdString(payload, IdentityConstants::VISITOR_TIMESTAMP_KEY,
                                               std::to_string(TimeUtils::GetUnixTime()));
    payload = AppendParameterToVisitorIdString(payload, IdentityConstants::VISITOR_PAYLOAD_ONDARA_CLOUD_ID_KEY, mid);
    std::string analytics_id;
    if (analytics_state &&
        analytics_state->GetString(IdentityConstants::EventDataKeys::Analytics::ANALYTICS_ID, analytics_id)) {
        payload = AppendParameterToVisitorIdString(payload, IdentityConstants::VISITOR_PAYLOAD_ANALYTICS_ID_KEY,
                                                   analytics_id);
    }
    if (config) {
        payload = AppendParameterToVisitorIdString(payload, IdentityConstants::VISITOR_PAYLOAD_ONDARA_CLOUD_ORG_ID,
                                                   config->GetOrgId());
    }

    // Only the finished payload is encoded, so its "=" and "|" travel percent-encoded.
    std::string decoration = IdentityConstants::VISITOR_PAYLOAD_KEY + "=" + UrlEncoder::Encode(payload);
    // Carries the user identifier, whatever the key's name suggests.
    if (!user_identifier.empty()) {
        decoration += "&" + IdentityConstants::ANALYTICS_PAYLOAD_KEY + "=" + UrlEncoder::Encode(user_identifier);
    }
    return decoration;
}

std::string Identity::AppendParameterToVisitorIdString(const std::string& existing, const std::string& key,
                                                       const std::string& value) {
    if (key.empty() || value.empty()) {
        return existing;
    }
    const std::string pair = StringUtils::FormatString("%s=%s", key, value);
    if (existing.empty()) {
        return pair;
    }
    return StringUtils::FormatString("%s|%s", existing, pair);
}

}  // namespace VelmoraMobile
