#include <memory>

#include "identity/module/IdentityConstants.h"
#include "tools/cli/CliError.h"
#include "tools/cli/CliSession.h"
#include "tools/cli/Commands.h"
#include "tools/cli/IdentityRecord.h"

namespace VelmoraCli {

using namespace VelmoraMobile;

namespace {

int RunAppendUrl(const GlobalOptions& options, const std::string& url) {
    CliSession session(options);
    const std::string decorated = FetchDecoratedUrl(session, url);
    Emit(options, {{"url", decorated}}, decorated + "\n");
    return EXIT_OK;
}

int RunSetVid(const GlobalOptions& options, const std::string& value) {
    CliSession session(options);
    auto configuration = session.Configuration();
    if (configuration->OptString(IdentityConstants::EventDataKeys::Configuration::GLOBAL_CONFIG_PRIVACY, "") ==
        "optedout") {
        throw CliError(EXIT_FAILURE_NAMED, "opted out: the module refuses a user identifier");
    }
    session.Api()->SetUserIdentifier(value);
    // The request sends no answer; the one to this later request comes after it was applied.
    IdentityRecord record = FetchRecord(session, {"vid"});
    Emit(options, RecordToJson(record, {"vid"}), RecordToText(record, {"vid"}));
    return record.values["vid"] == value ? EXIT_OK : EXIT_FAILURE_NAMED;
}

}  // namespace

void AddAppendUrlCommand(CLI::App& app, const GlobalOptions& options, CommandTable& table) {
    auto url = std::make_shared<std::string>();
    CLI::App* append = app.add_subcommand("append-url", "Print URL decorated with the visitor's data");
    append->add_option("URL", *url, "The URL, taken as plain text")->required();
    table[append] = [&options, url] { return RunAppendUrl(options, *url); };
}

void AddSetVidCommand(CLI::App& app, const GlobalOptions& options, CommandTable& table) {
    auto value = std::make_shared<std::string>();
    CLI::App* set_vid = app.add_subcommand("set-vid", "Set the user identifier (vid)");
    set_vid->add_option("VALUE", *value, "The user identifier")->required();
    table[set_vid] = [&options, value] { return RunSetVid(options, *value); };
}

}  // namespace VelmoraCli
