#include <ctime>
#include <memory>
#include <sstream>

#include "identity/hits/IdentityDatabaseHit.h"
#include "identity/hits/IdentityDatabaseHitSchema.h"
#include "runtime/hitqueue/HitQueueBase.h"
#include "runtime/services/PlatformServices.h"
#include "tools/cli/CliError.h"
#include "tools/cli/CliSession.h"
#include "tools/cli/Commands.h"

namespace VelmoraCli {

using namespace VelmoraMobile;

namespace {

/// The queue is opened to be read or emptied, never brought on line: nothing is sent.
class NeverSends : public HitProcessorBase {
public:
    HitProcessResult ProcessBase(const std::shared_ptr<DatabaseHitBase>&) override { return HitProcessResult::RETRY; }
};

int RunQueue(const GlobalOptions& options, const std::string& action) {
    auto services = std::make_shared<PlatformServices>(CheckDataDir(options.data_dir));
    auto queue = std::make_shared<HitQueueBase>(services, std::make_shared<IdentityDatabaseHitSchema>(),
                                                std::make_shared<NeverSends>());
    std::vector<std::shared_ptr<DatabaseHitBase>> rows = queue->QueryHits(std::make_shared<Query>());
    nlohmann::json json = {{"rows", nlohmann::json::array()}};
    std::ostringstream text;
    if (action == "clear") {
        if (!queue->DeleteAllHits()) {
            throw CliError(EXIT_FAILURE_NAMED, "the hit database could not be emptied");
        }
        json = {{"cleared", rows.size()}};
        text << "cleared " << rows.size() << " row" << (rows.size() == 1 ? "" : "s") << "\n";
    } else {
        const int64_t now = static_cast<int64_t>(std::time(nullptr));
        for (const auto& row : rows) {
            auto hit = std::dynamic_pointer_cast<IdentityDatabaseHit>(row);
            if (!hit) continue;
            const int64_t age = now - hit->timestamp.count();
            json["rows"].push_back({{"url", hit->url},
                                    {"pair_id", hit->pair_id},
                                    {"event_number", hit->event_number},
                                    {"age_seconds", age}});
            text << hit->url << "\n  pair id \"" << hit->pair_id << "\", event " << hit->event_number << ", age " << age
                 << " s\n";
        }
        if (rows.empty()) text << "(no rows)\n";
    }
    queue->Dispose(std::chrono::milliseconds(0));
    Emit(options, json, text.str());
    return EXIT_OK;
}

}  // namespace

void AddQueueCommand(CLI::App& app, const GlobalOptions& options, CommandTable& table) {
    auto action = std::make_shared<std::string>("list");
    CLI::App* queue = app.add_subcommand("queue", "List or empty the syncs waiting in the hit database");
    queue->add_option("action", *action, "list (default) or clear")->check(CLI::IsMember({"list", "clear"}));
    table[queue] = [&options, action] { return RunQueue(options, *action); };
}

}  // namespace VelmoraCli
