#include <memory>
#include <optional>
#include <vector>

#include "identity/module/IdentityConstants.h"
#include "tools/cli/CliError.h"
#include "tools/cli/CliSession.h"
#include "tools/cli/Commands.h"
#include "tools/cli/IdArgument.h"
#include "tools/cli/IdentityRecord.h"
#include "tools/cli/Waiting.h"

namespace VelmoraCli {

using namespace VelmoraMobile;
namespace ConfigKeys = IdentityConstants::EventDataKeys::Configuration;

namespace {

struct SyncArguments {
    std::vector<std::string> ids;
    std::optional<std::string> push;
    std::optional<std::string> adid;
    bool force{false};
};

/// Refuses, with the reason, what the module would drop or hold without a word.
void CheckCanSync(CliSession& session) {
    auto configuration = session.Configuration();
    if (configuration->OptString(ConfigKeys::GLOBAL_CONFIG_PRIVACY, "") == "optedout") {
        throw CliError(EXIT_FAILURE_NAMED, "opted out: the module sends no sync (see `privacy optedin`)");
    }
    if (configuration->OptString(ConfigKeys::CONFIG_ONDARA_CLOUD_ORGID_KEY, "").empty()) {
        throw CliError(EXIT_FAILURE_NAMED, "no organisation id configured: give --org ORG");
    }
}

/// One request per authentication state; the first carries the push token, the advertising id
/// and --force. Without customer ids or push token the sync is forced, so that it does reach the
/// server and the answer can be waited for.
std::vector<IdentitySyncRequest> BuildRequests(const SyncArguments& arguments) {
    std::map<VisitorIdAuthenticationState, IdentitySyncRequest> by_state;
    for (const auto& text : arguments.ids) {
        IdArgument id;
        ParseIdArgument(text, id);  // checked by the parser already
        by_state[id.state].authentication_state = id.state;
        by_state[id.state].identifiers[id.type] = id.id;
    }
    std::vector<IdentitySyncRequest> requests;
    for (auto& entry : by_state) requests.push_back(entry.second);
    if (requests.empty()) requests.emplace_back();
    requests.front().push_identifier = arguments.push;
    requests.front().advertising_identifier = arguments.adid;
    requests.front().force_sync = arguments.force || (arguments.ids.empty() && !arguments.push);
    return requests;
}

int RunSync(const GlobalOptions& options, const SyncArguments& arguments) {
    CliSession session(options);
    CheckCanSync(session);
    const std::vector<IdentitySyncRequest> requests = BuildRequests(arguments);
    for (const auto& request : requests) {
        const bool plain = !request.push_identifier && !request.advertising_identifier && !request.force_sync;
        if (plain) {
            session.Api()->SyncIdentifiers(request.identifiers, request.authentication_state);
        } else {
            session.Core().SyncIdentity(request);
        }
    }
    const std::string server = session.Configuration()->OptString(ConfigKeys::CONFIG_ONDARA_CLOUD_SERVER_KEY, "");
    WaitOrFail("the identity server's answer" + (server.empty() ? "" : " from " + server), options.timeout,
               [&](std::chrono::steady_clock::time_point deadline) {
                   return session.Observer().WaitForSyncAnswers(requests.size(), deadline).size() == requests.size();
               });
    IdentityRecord record = FetchRecord(session, {"all"});
    Emit(options, RecordToJson(record, {"all"}), RecordToText(record, {"all"}));
    return EXIT_OK;
}

}  // namespace

void AddSyncCommand(CLI::App& app, const GlobalOptions& options, CommandTable& table) {
    auto arguments = std::make_shared<SyncArguments>();
    CLI::App* sync = app.add_subcommand(
        "sync", "Sync customer ids with the identity server, wait for its answer and print the record");
    sync->add_option("ids", arguments->ids,
                     "Customer ids: TYPE=ID[:STATE], STATE 0 unknown, 1 authenticated, 2 logged out")
        ->type_name("TYPE=ID[:STATE]")
        ->check(CLI::Validator(
            [](std::string& text) {
                IdArgument ignored;
                return ParseIdArgument(text, ignored);
            },
            "", "TYPE=ID[:STATE]"));
    sync->add_option("--push", arguments->push, "Push token to send (\"\" clears it)")->type_name("TOKEN");
    sync->add_option("--adid", arguments->adid, "Advertising id to send (needs identity.adidEnabled=true)")
        ->type_name("ID");
    sync->add_flag("--force", arguments->force, "Sync even when nothing changed");
    table[sync] = [&options, arguments] { return RunSync(options, *arguments); };
}

}  // namespace VelmoraCli
