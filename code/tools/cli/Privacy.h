#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "runtime/values/MobilePrivacyStatus.h"
#include "tools/cli/CliSession.h"

namespace VelmoraCli {

/// What a change of the privacy status did, as far as it can be seen from outside the module.
struct PrivacyOutcome {
    std::string status;
    /// Opted out: the opt-out request that went to the server, or "" with `note` saying why none.
    std::string opt_out_request;
    std::string note;
    /// Opted out: the MID after the wipe ("" when wiped).
    std::string mid_after;
    nlohmann::json ToJson() const;
    std::string ToText() const;
};

/// Sets the status through the configuration and waits (bounded) until it is published; for
/// opted out also until the module has told the server (or said why not) and wiped the record.
PrivacyOutcome ApplyPrivacyStatus(CliSession& session, VelmoraMobile::MobilePrivacyStatus status);

/// The status the configuration holds, as text; "optedin" (the module's default) when unset.
std::string CurrentPrivacyStatus(CliSession& session);

}  // namespace VelmoraCli
