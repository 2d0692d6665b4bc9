#pragma once

#include <stdexcept>
#include <string>

namespace VelmoraCli {

/// Exit codes of velmora-identity.
constexpr int EXIT_OK = 0;
/// A failure the message names: a timeout, an unreachable server, an opted-out installation.
constexpr int EXIT_FAILURE_NAMED = 1;
/// A usage error: one line saying what is wrong, then the usage.
constexpr int EXIT_USAGE = 2;

/// Ends a command: main prints "velmora-identity: <what>" on stderr and exits with `exit_code`.
struct CliError : std::runtime_error {
    CliError(int code, const std::string& message) : std::runtime_error(message), exit_code(code) {}
    int exit_code;
};

}  // namespace VelmoraCli
