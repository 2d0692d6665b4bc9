#include <memory>

#include "tools/cli/CliError.h"
#include "tools/cli/CliSession.h"
#include "tools/cli/Commands.h"
#include "tools/cli/IdentityRecord.h"

namespace VelmoraCli {

void AddGetCommand(CLI::App& app, const GlobalOptions& options, CommandTable& table) {
    auto field = std::make_shared<std::string>("all");
    CLI::App* get = app.add_subcommand("get", "Print what the identity module holds");
    get->add_option("field", *field, "mid, ids, vid, push, adid, blob, hint or all (default)")
        ->check(CLI::IsMember(RecordFieldNames()));
    table[get] = [&options, field] {
        CliSession session(options);
        IdentityRecord record = FetchRecord(session, {*field});
        Emit(options, RecordToJson(record, {*field}), RecordToText(record, {*field}));
        return EXIT_OK;
    };
}

}  // namespace VelmoraCli
