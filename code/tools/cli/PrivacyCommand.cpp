#include <memory>

#include "tools/cli/CliError.h"
#include "tools/cli/CliSession.h"
#include "tools/cli/Commands.h"
#include "tools/cli/Privacy.h"

namespace VelmoraCli {

using namespace VelmoraMobile;

void AddPrivacyCommand(CLI::App& app, const GlobalOptions& options, CommandTable& table) {
    auto status = std::make_shared<std::string>();
    CLI::App* privacy = app.add_subcommand(
        "privacy", "Show or set the privacy status; opting out tells the server and wipes the record");
    privacy->add_option("status", *status, "optedin, optedout or optunknown")
        ->check(CLI::IsMember({"optedin", "optedout", "optunknown"}));
    table[privacy] = [&options, status] {
        CliSession session(options);
        if (status->empty()) {
            const std::string current = CurrentPrivacyStatus(session);
            Emit(options, {{"privacy", current}}, current + "\n");
            return EXIT_OK;
        }
        PrivacyOutcome outcome = ApplyPrivacyStatus(session, StringToMobilePrivacyStatus(*status));
        Emit(options, outcome.ToJson(), outcome.ToText());
        return EXIT_OK;
    };
}

}  // namespace VelmoraCli
