#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "tools/cli/GlobalOptions.h"

namespace VelmoraCli {

/// What runs once the arguments are parsed; gives the exit code or throws CliError.
using CommandRunner = std::function<int()>;
/// Subcommand to its runner.
using CommandTable = std::map<const CLI::App*, CommandRunner>;

// Each adds one subcommand to `app`, reading the global options through `options` when it runs.
void AddSyncCommand(CLI::App& app, const GlobalOptions& options, CommandTable& table);
void AddGetCommand(CLI::App& app, const GlobalOptions& options, CommandTable& table);
void AddAppendUrlCommand(CLI::App& app, const GlobalOptions& options, CommandTable& table);
void AddSetVidCommand(CLI::App& app, const GlobalOptions& options, CommandTable& table);
void AddPrivacyCommand(CLI::App& app, const GlobalOptions& options, CommandTable& table);
void AddConfigCommand(CLI::App& app, const GlobalOptions& options, CommandTable& table);
void AddQueueCommand(CLI::App& app, const GlobalOptions& options, CommandTable& table);
void AddDemoCommand(CLI::App& app, const GlobalOptions& options, CommandTable& table);

/// Prints the result on stdout: `json` as one document with --json, else `text` as it stands.
void Emit(const GlobalOptions& options, const nlohmann::json& json, const std::string& text);

}  // namespace VelmoraCli
