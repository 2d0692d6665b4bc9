#pragma once

#include <string>

#include "runtime/values/LoggingMode.h"

namespace VelmoraCli {

/// The options every subcommand takes, as parsed. A plain value.
struct GlobalOptions {
    /// Empty: the core's default folder ($VELMORA_DATA_DIR, $XDG_DATA_HOME/velmora, ...).
    std::string data_dir;
    /// "ondaraCloud.server" (host[:port]) when not empty; kept in the data folder.
    std::string server;
    /// "ondaraCloud.org" when not empty; kept in the data folder.
    std::string org;
    /// Plain HTTP to the identity server ("global.ssl" false).
    bool no_tls{false};
    std::string ca_file;
    /// Bound of every wait, in seconds.
    double timeout{10.0};
    bool json{false};
    /// As given (empty: not given); log_level is made from it after parsing.
    std::string log_level_name;
    VelmoraMobile::LoggingMode log_level{VelmoraMobile::LoggingMode::ERROR_LOG};
};

}  // namespace VelmoraCli
