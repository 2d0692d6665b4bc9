#pragma once

#include <CLI/CLI.hpp>
#include <optional>

#include "tools/cli/Commands.h"
#include "tools/cli/GlobalOptions.h"

namespace VelmoraCli {

/// The command line of velmora-identity: its global options and subcommands. Parsing only checks
/// the arguments and chooses the subcommand; running it starts a core. One thread; one parse.
class CliApp {
public:
    CliApp();

    /// Parses argv. Gives nothing when a subcommand is ready to run, else the exit code of what
    /// parsing printed: help or the version (0), or a usage error (2) on stderr.
    std::optional<int> Parse(int argc, char** argv);

    /// Runs the chosen subcommand and gives its exit code; a failure is named on stderr.
    int Run();

private:
    CLI::App app_;
    GlobalOptions options_;
    CommandTable table_;
};

}  // namespace VelmoraCli
