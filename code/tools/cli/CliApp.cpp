#include "tools/cli/CliApp.h"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <string>

#include "runtime/values/Log.h"
#include "tools/cli/CliError.h"

namespace VelmoraCli {

namespace {

const char* const PROGRAM = "velmora-identity";

/// host[:port]: letters, digits and ".-_:[]", nothing that would change the URL around it.
std::string CheckServer(const std::string& text) {
    if (text.empty()) return "the server is empty";
    for (unsigned char c : text) {
        if (!std::isalnum(c) && std::string(".-_:[]").find(static_cast<char>(c)) == std::string::npos) {
            return "'" + text + "' is not HOST[:PORT]";
        }
    }
    return "";
}

std::string CheckTimeout(const std::string& text) {
    char* end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    if (text.empty() || end == nullptr || *end != '\0' || !std::isfinite(seconds)) {
        return "'" + text + "' is not a number of seconds";
    }
    return seconds > 0 ? "" : "the timeout must be above 0 seconds, not " + text;
}

VelmoraMobile::LoggingMode LevelNamed(const std::string& name) {
    if (name == "error") return VelmoraMobile::LoggingMode::ERROR_LOG;
    if (name == "debug") return VelmoraMobile::LoggingMode::DEBUG_LOG;
    if (name == "verbose") return VelmoraMobile::LoggingMode::VERBOSE_LOG;
    return VelmoraMobile::LoggingMode::WARNING_LOG;
}

void AddGlobalOptions(CLI::App& app, GlobalOptions& options) {
    app.add_option("--data-dir", options.data_dir,
                   "Data folder (default $VELMORA_DATA_DIR, else $XDG_DATA_HOME/velmora, else ~/.local/share/velmora)")
        ->type_name("DIR");
    app.add_option("--server", options.server, "Identity server HOST[:PORT]; kept in the data folder")
        ->type_name("HOST")
        ->check(CLI::Validator(CheckServer, "", "HOST[:PORT]"));
    app.add_option("--org", options.org, "Organisation id; kept in the data folder")->type_name("ORG");
    app.add_flag("--no-tls", options.no_tls, "Plain HTTP to the identity server; kept in the data folder");
    app.add_option("--ca-file", options.ca_file, "PEM bundle that verifies the identity server")
        ->type_name("FILE")
        ->check(CLI::Validator(CLI::ExistingFile).description(""));
    app.add_option("--timeout", options.timeout, "Bound of every wait, in seconds (default 10)")
        ->type_name("SECONDS")
        ->check(CLI::Validator(CheckTimeout, "", "SECONDS"));
    app.add_flag("--json", options.json, "Print one JSON document");
    app.add_option("--log-level", options.log_level_name, "error (default), warning, debug or verbose")
        ->type_name("LEVEL")
        ->check(CLI::IsMember({"error", "warning", "debug", "verbose"}).description(""));
    app.set_version_flag("--version", std::string(PROGRAM) + " " + VELMORA_VERSION);
}

/// The deepest subcommand that was named, for its usage line.
const CLI::App* NamedCommand(const CLI::App& app) {
    for (const CLI::App* sub : app.get_subcommands()) {
        return NamedCommand(*sub);
    }
    return &app;
}

int UsageError(const CLI::App& app, const std::string& message) {
    const CLI::App* command = NamedCommand(app);
    std::string name = command == &app ? std::string(PROGRAM) : std::string(PROGRAM) + " " + command->get_name();
    std::cerr << PROGRAM << ": " << message << "\n"
              << CLI::Formatter().make_usage(command, name) << "Run with --help for more.\n";
    return EXIT_USAGE;
}

bool IsSubcommand(const CLI::App& app, const std::string& word) {
    for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
        if (sub->check_name(word)) return true;
    }
    return false;
}

/// For an unknown first word: CLI11 only says that a subcommand is required.
std::string UnknownSubcommand(const CLI::App& app, int argc, char** argv) {
    if (!app.get_subcommands().empty()) return "";
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word.rfind("-", 0) == 0) {
            const CLI::Option* option = word.find('=') == std::string::npos ? app.get_option_no_throw(word) : nullptr;
            if (option != nullptr && option->get_type_size_max() > 0) ++i;
            continue;
        }
        return !IsSubcommand(app, word) ? "unknown subcommand '" + word + "'" : "";
    }
    return "";
}

}  // namespace

CliApp::CliApp() : app_("What this installation's identity holds, sends and was answered.", PROGRAM) {
    AddGlobalOptions(app_, options_);
    app_.fallthrough();
    app_.require_subcommand(1);
    AddSyncCommand(app_, options_, table_);
    AddGetCommand(app_, options_, table_);
    AddAppendUrlCommand(app_, options_, table_);
    AddSetVidCommand(app_, options_, table_);
    AddPrivacyCommand(app_, options_, table_);
    AddConfigCommand(app_, options_, table_);
    AddQueueCommand(app_, options_, table_);
    AddDemoCommand(app_, options_, table_);
}

std::optional<int> CliApp::Parse(int argc, char** argv) {
    try {
        app_.parse(argc, argv);
    } catch (const CLI::Success& done) {
        return app_.exit(done);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) return app_.exit(error);
        const std::string unknown = UnknownSubcommand(app_, argc, argv);
        return UsageError(app_, unknown.empty() ? error.what() : unknown);
    }
    return std::nullopt;
}

int CliApp::Run() {
    // Quiet by default: error lines only, unless asked for more here or in VELMORA_LOG_LEVEL.
    if (!options_.log_level_name.empty()) {
        options_.log_level = LevelNamed(options_.log_level_name);
    } else if (std::getenv("VELMORA_LOG_LEVEL") != nullptr) {
        options_.log_level = VelmoraMobile::Log::GetLogLevel();
    }
    VelmoraMobile::Log::SetLogLevel(options_.log_level);
    try {
        for (const CLI::App* command : app_.get_subcommands()) {
            return table_.at(command)();
        }
    } catch (const CliError& error) {
        std::cerr << PROGRAM << ": " << error.what() << "\n";
        return error.exit_code;
    } catch (const std::exception& error) {
        std::cerr << PROGRAM << ": " << error.what() << "\n";
        return EXIT_FAILURE_NAMED;
    }
    return EXIT_USAGE;
}

}  // namespace VelmoraCli
