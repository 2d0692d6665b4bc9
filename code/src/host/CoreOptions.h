#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "runtime/values/Variant.h"

namespace VelmoraMobile {

/// What a core starts with. Every field is optional; a plain value, copy it freely.
///
/// Configuration is layered: the file, then `configuration`, then the named fields (org_id,
/// server, tls) on top. Values given here are programmatic changes of the configuration
/// extension, so they are kept in the data folder and come back at the next start. Until some
/// configuration is known (given here, stored by an earlier run, or set later through
/// Core::Configuration()) identity requests wait for it.
struct CoreOptions {
    /// Where the data stores and the hit database live. Empty: $VELMORA_DATA_DIR, else
    /// $XDG_DATA_HOME/velmora, else ~/.local/share/velmora. Created when missing.
    std::string data_dir;
    /// A flat JSON object of configuration keys, e.g. {"ondaraCloud.org": "...",
    /// "ondaraCloud.server": "...", "global.privacy": "optedin"}. Empty: none.
    std::string configuration_file;
    /// Configuration keys and their values ("identity.adidEnabled" as a boolean, ...).
    Variant::VariantMap configuration;
    /// "ondaraCloud.org" when not empty.
    std::string org_id;
    /// "ondaraCloud.server", the identity server's host[:port], when not empty.
    std::string server;
    /// "global.ssl" when set: false sends the identity requests over plain HTTP.
    std::optional<bool> tls;
    /// PEM bundle that verifies the identity server's certificate, instead of the system's.
    /// Empty: $VELMORA_CA_FILE when set, else the system's bundle.
    std::string ca_file;
    /// How long a start waits for the modules to be registered before it gives up.
    std::chrono::milliseconds start_timeout{std::chrono::seconds(10)};
    /// The deadline of the stop that the destructor of Core makes.
    std::chrono::milliseconds stop_timeout{std::chrono::seconds(5)};
};

}  // namespace VelmoraMobile
