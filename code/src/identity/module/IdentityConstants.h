#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "runtime/values/MobilePrivacyStatus.h"

namespace VelmoraMobile {

/// Every key and default the identity module shares with its data store, the identity server,
/// the other extensions on the bus and the host. Keys are case-sensitive and used as they stand.
///
/// The strings are immutable, defined once in IdentityConstants.cpp and initialised ahead of
/// ordinary static objects, so another file may copy one into a namespace-scope constant of its
/// own. Read-only after start: any thread may read them.
namespace IdentityConstants {

/// Empty on purpose: the public API's two listener-registration failures log with an empty
/// tag, and log readers rely on that. Use EventDataKeys::Identity::SHARED_STATE_NAME for the
/// module name.
extern const std::string LOG_PREFIX;

extern const std::string VISITOR_PAYLOAD_KEY;
extern const std::string VISITOR_TIMESTAMP_KEY;
extern const std::string VISITOR_PAYLOAD_ONDARA_CLOUD_ORG_ID;
extern const std::string VISITOR_PAYLOAD_ONDARA_CLOUD_ID_KEY;
extern const std::string VISITOR_PAYLOAD_ANALYTICS_ID_KEY;
extern const std::string ANALYTICS_PAYLOAD_KEY;
extern const std::string RESPONSE_KEY_MID;
extern const std::string RESPONSE_KEY_ORGID;
extern const std::string RESPONSE_KEY_BLOB;
extern const std::string RESPONSE_KEY_HINT;
extern const std::string RESPONSE_KEY_TTL;
extern const std::string RESPONSE_KEY_ERROR;
extern const std::string RESPONSE_KEY_OPT_OUT;
extern const std::string VISITOR_ID_PARAMETER_KEY_CUSTOMER;
extern const std::string KEY_PATH_OPTOUT;

namespace Default {
/// Identity server host when the configuration names none.
extern const std::string SERVER;
/// The literal three characters "%01", never decoded.
extern const std::string CID_DELIMITER;
/// Seconds a sync stays fresh when neither the server nor the data store gave a value.
constexpr int64_t DEFAULT_TTL_VALUE = 600;
/// Connect and read timeout of each identity request.
constexpr std::chrono::seconds TIMEOUT{2};
constexpr bool DEFAULT_SSL = true;
constexpr bool DEFAULT_ADID_ENABLED = false;
constexpr MobilePrivacyStatus DEFAULT_MOBILE_PRIVACY = MobilePrivacyStatus::OPT_IN;
}  // namespace Default

/// Keys of the data store "visitorIDServiceDataStore".
namespace DataStoreKeys {
extern const std::string VISITOR_IDS_STRING;
extern const std::string ONDARA_CLOUD_ID;
/// Reserved by the stored format; nothing reads or writes it.
extern const std::string ONDARA_CLOUD_ORG_ID;
extern const std::string LOCATION_HINT;
extern const std::string BLOB;
extern const std::string TTL;
extern const std::string LAST_SYNC;
extern const std::string VISITOR_ID;
extern const std::string ADVERTISING_IDENTIFIER;
extern const std::string PUSH_IDENTIFIER;
extern const std::string PUSH_ENABLED;
extern const std::string AID_SYNCED_KEY;
}  // namespace DataStoreKeys

namespace EventDataKeys {
extern const std::string STATE_OWNER;

namespace Identity {
/// The module's name on the bus and the name of its shared state.
extern const std::string SHARED_STATE_NAME;
extern const std::string ADID_DSID;
extern const std::string ADVERTISING_IDENTIFIER;
extern const std::string AUTHENTICATION_STATE;
extern const std::string BASE_URL;
/// Reserved; nothing reads or writes it.
extern const std::string DPIDS;
extern const std::string EVENT_PUSH_STATUS;
extern const std::string FORCE_SYNC;
extern const std::string IDENTIFIERS;
extern const std::string IS_SYNC_EVENT;
extern const std::string OCPNS_DPID;
extern const std::string PUSH_ID_ENABLED_ACTION_NAME;
extern const std::string PUSH_IDENTIFIER;
extern const std::string UPDATED_URL;
extern const std::string USER_IDENTIFIER;
extern const std::string VISITOR_ID_BLOB;
extern const std::string VISITOR_ID_LOCATION_HINT;
extern const std::string VISITOR_ID_MID;
extern const std::string VISITOR_IDS_LAST_SYNC;
extern const std::string VISITOR_IDS_LIST;
extern const std::string ANALYTICS_ID;
}  // namespace Identity

namespace Analytics {
extern const std::string SHARED_STATE_NAME;
extern const std::string ANALYTICS_ID;
extern const std::string TRACK_INTERNAL;
extern const std::string TRACK_ACTION;
extern const std::string CONTEXT_DATA;
}  // namespace Analytics

namespace Configuration {
extern const std::string SHARED_STATE_NAME;
extern const std::string GLOBAL_CONFIG_PRIVACY;
extern const std::string GLOBAL_CONFIG_SSL;
extern const std::string CONFIG_ONDARA_CLOUD_ORGID_KEY;
extern const std::string CONFIG_ONDARA_CLOUD_SERVER_KEY;
extern const std::string IDENTITY_ADID_ENABLED;
extern const std::string CONFIGURATION_REQUEST_CONTENT_UPDATE_CONFIG;
extern const std::string ZUMA_CONFIG_SERVER;
}  // namespace Configuration

namespace Audience {
extern const std::string OPTED_OUT_HIT_SENT;
}  // namespace Audience

}  // namespace EventDataKeys

}  // namespace IdentityConstants

}  // namespace VelmoraMobile
