#include "identity/module/IdentityConstants.h"

// Other files copy some of these into their own namespace-scope constants (a class's log tag,
// for one). Initialising these first makes such copies safe whatever the link order.
#if defined(__GNUC__) || defined(__clang__)
#define VELMORA_EARLY_INIT __attribute__((init_priority(200)))
#else
#define VELMORA_EARLY_INIT
#endif

namespace VelmoraMobile {
namespace IdentityConstants {

// Deliberately empty, not the module name; see the header.
const std::string LOG_PREFIX VELMORA_EARLY_INIT = "";

const std::string VISITOR_PAYLOAD_KEY VELMORA_EARLY_INIT = "velmora_mc";
const std::string VISITOR_TIMESTAMP_KEY VELMORA_EARLY_INIT = "TS";
const std::string VISITOR_PAYLOAD_ONDARA_CLOUD_ORG_ID VELMORA_EARLY_INIT = "OCORGID";
const std::string VISITOR_PAYLOAD_ONDARA_CLOUD_ID_KEY VELMORA_EARLY_INIT = "OCMID";
const std::string VISITOR_PAYLOAD_ANALYTICS_ID_KEY VELMORA_EARLY_INIT = "OCAID";
const std::string ANALYTICS_PAYLOAD_KEY VELMORA_EARLY_INIT = "velmora_aa_vid";
const std::string RESPONSE_KEY_MID VELMORA_EARLY_INIT = "d_mid";
const std::string RESPONSE_KEY_ORGID VELMORA_EARLY_INIT = "d_orgid";
const std::string RESPONSE_KEY_BLOB VELMORA_EARLY_INIT = "d_blob";
const std::string RESPONSE_KEY_HINT VELMORA_EARLY_INIT = "dcs_region";
const std::string RESPONSE_KEY_TTL VELMORA_EARLY_INIT = "id_sync_ttl";
const std::string RESPONSE_KEY_ERROR VELMORA_EARLY_INIT = "error_msg";
const std::string RESPONSE_KEY_OPT_OUT VELMORA_EARLY_INIT = "d_optout";
const std::string VISITOR_ID_PARAMETER_KEY_CUSTOMER VELMORA_EARLY_INIT = "d_cid_ic";
const std::string KEY_PATH_OPTOUT VELMORA_EARLY_INIT = "veloptout.jpg";

namespace Default {
const std::string SERVER VELMORA_EARLY_INIT = "id.velmora.net";
const std::string CID_DELIMITER VELMORA_EARLY_INIT = "%01";
}  // namespace Default

namespace DataStoreKeys {
const std::string VISITOR_IDS_STRING VELMORA_EARLY_INIT = "VELMORAMOBILE_VISITORID_IDS";
const std::string ONDARA_CLOUD_ID VELMORA_EARLY_INIT = "VELMORAMOBILE_PERSISTED_MID";
const std::string ONDARA_CLOUD_ORG_ID VELMORA_EARLY_INIT = "VELMORAMOBILE_PERSISTED_ORG_ID";
const std::string LOCATION_HINT VELMORA_EARLY_INIT = "VELMORAMOBILE_PERSISTED_MID_HINT";
const std::string BLOB VELMORA_EARLY_INIT = "VELMORAMOBILE_PERSISTED_MID_BLOB";
const std::string TTL VELMORA_EARLY_INIT = "VELMORAMOBILE_VISITORID_TTL";
const std::string LAST_SYNC VELMORA_EARLY_INIT = "VELMORAMOBILE_VISITORID_SYNC";
const std::string VISITOR_ID VELMORA_EARLY_INIT = "VELMORAMOBILE_VISITOR_ID";
const std::string ADVERTISING_IDENTIFIER VELMORA_EARLY_INIT = "VELMORAMOBILE_ADVERTISING_IDENTIFIER";
const std::string PUSH_IDENTIFIER VELMORA_EARLY_INIT = "VELMORAMOBILE_PUSH_IDENTIFIER";
const std::string PUSH_ENABLED VELMORA_EARLY_INIT = "VELMORAMOBILE_PUSH_ENABLED";
const std::string AID_SYNCED_KEY VELMORA_EARLY_INIT = "VELMORAMOBILE_AID_SYNCED";
}  // namespace DataStoreKeys

namespace EventDataKeys {
const std::string STATE_OWNER VELMORA_EARLY_INIT = "stateowner";

namespace Identity {
const std::string SHARED_STATE_NAME VELMORA_EARLY_INIT = "com.velmora.module.identity";
const std::string ADID_DSID VELMORA_EARLY_INIT = "DSID_20915";
const std::string ADVERTISING_IDENTIFIER VELMORA_EARLY_INIT = "advertisingidentifier";
const std::string AUTHENTICATION_STATE VELMORA_EARLY_INIT = "authenticationstate";
const std::string BASE_URL VELMORA_EARLY_INIT = "baseurl";
const std::string DPIDS VELMORA_EARLY_INIT = "dpids";
const std::string EVENT_PUSH_STATUS VELMORA_EARLY_INIT = "a.push.optin";
const std::string FORCE_SYNC VELMORA_EARLY_INIT = "forcesync";
const std::string IDENTIFIERS VELMORA_EARLY_INIT = "visitoridentifiers";
const std::string IS_SYNC_EVENT VELMORA_EARLY_INIT = "issyncevent";
const std::string OCPNS_DPID VELMORA_EARLY_INIT = "20920";
const std::string PUSH_ID_ENABLED_ACTION_NAME VELMORA_EARLY_INIT = "Push";
const std::string PUSH_IDENTIFIER VELMORA_EARLY_INIT = "pushidentifier";
const std::string UPDATED_URL VELMORA_EARLY_INIT = "updatedurl";
const std::string USER_IDENTIFIER VELMORA_EARLY_INIT = "vid";
const std::string VISITOR_ID_BLOB VELMORA_EARLY_INIT = "blob";
const std::string VISITOR_ID_LOCATION_HINT VELMORA_EARLY_INIT = "locationhint";
const std::string VISITOR_ID_MID VELMORA_EARLY_INIT = "mid";
const std::string VISITOR_IDS_LAST_SYNC VELMORA_EARLY_INIT = "lastsync";
const std::string VISITOR_IDS_LIST VELMORA_EARLY_INIT = "visitoridslist";
const std::string ANALYTICS_ID VELMORA_EARLY_INIT = "AVID";
}  // namespace Identity

namespace Analytics {
const std::string SHARED_STATE_NAME VELMORA_EARLY_INIT = "com.velmora.module.analytics";
const std::string ANALYTICS_ID VELMORA_EARLY_INIT = "aid";
const std::string TRACK_INTERNAL VELMORA_EARLY_INIT = "trackinternal";
const std::string TRACK_ACTION VELMORA_EARLY_INIT = "action";
const std::string CONTEXT_DATA VELMORA_EARLY_INIT = "contextdata";
}  // namespace Analytics

namespace Configuration {
const std::string SHARED_STATE_NAME VELMORA_EARLY_INIT = "com.velmora.module.configuration";
const std::string GLOBAL_CONFIG_PRIVACY VELMORA_EARLY_INIT = "global.privacy";
const std::string GLOBAL_CONFIG_SSL VELMORA_EARLY_INIT = "global.ssl";
const std::string CONFIG_ONDARA_CLOUD_ORGID_KEY VELMORA_EARLY_INIT = "ondaraCloud.org";
const std::string CONFIG_ONDARA_CLOUD_SERVER_KEY VELMORA_EARLY_INIT = "ondaraCloud.server";
const std::string IDENTITY_ADID_ENABLED VELMORA_EARLY_INIT = "identity.adidEnabled";
const std::string CONFIGURATION_REQUEST_CONTENT_UPDATE_CONFIG VELMORA_EARLY_INIT = "config.update";
const std::string ZUMA_CONFIG_SERVER VELMORA_EARLY_INIT = "audience.server";
}  // namespace Configuration

namespace Audience {
const std::string OPTED_OUT_HIT_SENT VELMORA_EARLY_INIT = "optedouthitsent";
}  // namespace Audience

}  // namespace EventDataKeys
}  // namespace IdentityConstants
}  // namespace VelmoraMobile
