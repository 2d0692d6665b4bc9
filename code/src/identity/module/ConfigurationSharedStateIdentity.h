#pragma once

#include <memory>
#include <string>

#include "runtime/bus/EventData.h"
#include "runtime/values/MobilePrivacyStatus.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// The identity module's typed snapshot of the five configuration settings it uses, each with
/// its default, taken for one event. Immutable after construction and holds no reference to the
/// EventData it was read from, so any thread may read it; the module makes and reads it in its
/// task queue and passes it around by shared_ptr.
class ConfigurationSharedStateIdentity : public Object {
public:
    /// Reads "ondaraCloud.org", "global.ssl", "global.privacy", "ondaraCloud.server" and
    /// "identity.adidEnabled"; an absent or ill-typed key gives its default. A null `config`
    /// (no configuration state at all) gives every default and a trace line.
    explicit ConfigurationSharedStateIdentity(const std::shared_ptr<EventData>& config);
    ~ConfigurationSharedStateIdentity() override = default;

    /// True when an organisation id is known and the status is not opted out.
    bool CanSyncIdentifiersWithCurrentConfiguration() const;

    std::string GetOrgId() const { return org_id; }
    std::string GetOndaraCloudServer() const { return server; }
    bool GetSSLStatus() const { return ssl_enabled; }
    bool GetAdIdEnabledStatus() const { return ad_id_enabled; }
    MobilePrivacyStatus GetPrivacyStatus() const { return privacy_status; }

private:
    std::string org_id;
    bool ssl_enabled;
    MobilePrivacyStatus privacy_status;
    std::string server;
    bool ad_id_enabled;
};

}  // namespace VelmoraMobile
