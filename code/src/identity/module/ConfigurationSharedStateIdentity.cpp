#include "identity/module/ConfigurationSharedStateIdentity.h"

#include "identity/module/Identity.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/values/Log.h"

namespace VelmoraMobile {

namespace ConfigKeys = IdentityConstants::EventDataKeys::Configuration;
namespace Defaults = IdentityConstants::Default;

ConfigurationSharedStateIdentity::ConfigurationSharedStateIdentity(const std::shared_ptr<EventData>& config)
    : ssl_enabled(Defaults::DEFAULT_SSL),
      privacy_status(Defaults::DEFAULT_MOBILE_PRIVACY),
      server(Defaults::SERVER),
      ad_id_enabled(Defaults::DEFAULT_ADID_ENABLED) {
    if (!config) {
        Log::Trace(Identity::LOG_PREFIX.c_str(), "Current config state is null. Using defaults");
        return;
    }
    org_id = config->OptString(ConfigKeys::CONFIG_ONDARA_CLOUD_ORGID_KEY, "");
    ssl_enabled = config->OptBoolean(ConfigKeys::GLOBAL_CONFIG_SSL, Defaults::DEFAULT_SSL);
    // The default goes through the text form, like a configured value, so that both take the
    // same conversion.
    const std::string privacy_text = config->OptString(ConfigKeys::GLOBAL_CONFIG_PRIVACY,
                                                       MobilePrivacyStatusToString(Defaults::DEFAULT_MOBILE_PRIVACY));
    privacy_status = StringToMobilePrivacyStatus(privacy_text);
    // An empty server is kept as given: only an absent key falls back to the default.
    server = config->OptString(ConfigKeys::CONFIG_ONDARA_CLOUD_SERVER_KEY, Defaults::SERVER);
    ad_id_enabled = config->OptBoolean(ConfigKeys::IDENTITY_ADID_ENABLED, Defaults::DEFAULT_ADID_ENABLED);
}

bool ConfigurationSharedStateIdentity::CanSyncIdentifiersWithCurrentConfiguration() const {
    return !org_id.empty() && privacy_status != MobilePrivacyStatus::OPT_OUT;
}

}  // namespace VelmoraMobile
