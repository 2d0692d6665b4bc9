#pragma once

#include <map>
#include <optional>
#include <string>

#include "identity/ids/VisitorIdAuthenticationState.h"

namespace VelmoraMobile {

/// One sync as the platform core sends it for a host (Core::SyncIdentity): customer ids with one
/// state, and what IdentityPublicApi's syncs cannot carry: a push token, an advertising id, and
/// the demand to sync even when nothing changed. A plain value.
struct IdentitySyncRequest {
    /// Id type to id; may be empty.
    std::map<std::string, std::string> identifiers;
    VisitorIdAuthenticationState authentication_state{VisitorIdAuthenticationState::UNKNOWN};
    /// Set: the push token to send ("" clears it).
    std::optional<std::string> push_identifier;
    /// Set: the advertising id to send ("" clears it).
    std::optional<std::string> advertising_identifier;
    /// Sync even when the module finds nothing new.
    bool force_sync{false};
};

}  // namespace VelmoraMobile
