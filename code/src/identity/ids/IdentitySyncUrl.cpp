#include "identity/module/ConfigurationSharedStateIdentity.h"
#include "identity/module/Identity.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/services/helpers/UrlBuilder.h"
#include "runtime/services/helpers/UrlEncoder.h"
#include "runtime/values/StringUtils.h"

namespace VelmoraMobile {

std::string Identity::BuildUrlString(const std::vector<std::shared_ptr<VisitorId>>& customer_ids,
                                     const std::map<std::string, std::string>& dpids,
                                     const std::shared_ptr<ConfigurationSharedStateIdentity>& event_config) {
    // A null configuration reads as the defaults (no org id, default server).
    auto config = event_config ? event_config : std::make_shared<ConfigurationSharedStateIdentity>(nullptr);

    // Through the builder's map these two come out in key order: d_rtbd before d_ver.
    std::map<std::string, std::string> fixed_parameters;
    fixed_parameters["d_ver"] = "2";
    fixed_parameters["d_rtbd"] = "json";

    UrlBuilder builder;
    builder.EnableSsl(config->GetSSLStatus())
        .SetHost(config->GetOndaraCloudServer())
        .AddPath("id")
        .AddQueryParameters(fixed_parameters);

    // Org id, MID, blob and hint go out as they stand; the customer and data provider id texts
    // are encoded piece by piece and must not be encoded again, as "%01" is meant literally.
    builder.AddQuery(StringUtils::FormatString("%s=%s", IdentityConstants::RESPONSE_KEY_ORGID, config->GetOrgId()),
                     UrlBuilder::ALREADY_ENCODED);
    if (!mid.empty()) {
        builder.AddQuery(StringUtils::FormatString("%s=%s", IdentityConstants::RESPONSE_KEY_MID, mid),
                         UrlBuilder::ALREADY_ENCODED);
    }
    if (!blob.empty()) {
        builder.AddQuery(StringUtils::FormatString("%s=%s", IdentityConstants::RESPONSE_KEY_BLOB, blob),
                         UrlBuilder::ALREADY_ENCODED);
    }
    if (!location_hint.empty()) {
        builder.AddQuery(StringUtils::FormatString("%s=%s", IdentityConstants::RESPONSE_KEY_HINT, location_hint),
                         UrlBuilder::ALREADY_ENCODED);
    }
    std::string customer_id_text = GenerateURLEncodedValuesCustomerIdString(customer_ids);
    if (!customer_id_text.empty()) {
        builder.AddQuery(customer_id_text, UrlBuilder::ALREADY_ENCODED);
    }
    std::string internal_id_text = GenerateInternalIdString(dpids);
    if (!internal_id_text.empty()) {
        builder.AddQuery(internal_id_text, UrlBuilder::ALREADY_ENCODED);
    }
    return builder.Build();
}

std::string Identity::GenerateURLEncodedValuesCustomerIdString(
    const std::vector<std::shared_ptr<VisitorId>>& customer_ids) {
    const std::string& delimiter = IdentityConstants::Default::CID_DELIMITER;
    std::string text;
    for (const auto& visitor_id : customer_ids) {
        if (!visitor_id) {
            continue;
        }
        if (!text.empty()) {
            text += "&";
        }
        text += IdentityConstants::VISITOR_ID_PARAMETER_KEY_CUSTOMER;
        text += "=";
        text += UrlEncoder::Encode(visitor_id->id_type);
        text += delimiter;
        if (!visitor_id->id.empty()) {
            text += UrlEncoder::Encode(visitor_id->id);
        }
        text += delimiter;
        text += std::to_string(static_cast<int32_t>(visitor_id->authentication_state));
    }
    return text;
}

std::string Identity::GenerateInternalIdString(const std::map<std::string, std::string>& dpids) {
    std::string text;
    for (const auto& dpid : dpids) {
        text += "&d_cid=";
        text += UrlEncoder::Encode(dpid.first);
        text += IdentityConstants::Default::CID_DELIMITER;
        text += UrlEncoder::Encode(dpid.second);
    }
    // The builder joins with its own "&".
    if (!text.empty() && text[0] == '&') {
        text.erase(0, 1);
    }
    return text;
}

}  // namespace VelmoraMobile
