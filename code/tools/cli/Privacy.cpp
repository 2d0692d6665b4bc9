#include "tools/cli/Privacy.h"

#include <memory>
#include <optional>

#include "identity/module/IdentityConstants.h"
#include "tools/cli/IdentityRecord.h"
#include "tools/cli/LogWatch.h"
#include "tools/cli/Waiting.h"

namespace VelmoraCli {

using namespace VelmoraMobile;
namespace ConfigKeys = IdentityConstants::EventDataKeys::Configuration;

namespace {

const std::string SENDING_OPT_OUT = "Sending opt-out request to ";
const std::string NO_OPT_OUT = "Could not send opt-out request";

}  // namespace

std::string CurrentPrivacyStatus(CliSession& session) {
    return session.Configuration()->OptString(
        ConfigKeys::GLOBAL_CONFIG_PRIVACY,
        MobilePrivacyStatusToString(IdentityConstants::Default::DEFAULT_MOBILE_PRIVACY));
}

PrivacyOutcome ApplyPrivacyStatus(CliSession& session, MobilePrivacyStatus status) {
    PrivacyOutcome outcome;
    outcome.status = MobilePrivacyStatusToString(status);
    const bool opting_out = status == MobilePrivacyStatus::OPT_OUT;
    std::optional<LogWatch> watch;
    if (opting_out) {
        watch.emplace(session.Options().log_level, std::vector<std::string>{SENDING_OPT_OUT, NO_OPT_OUT});
    }
    const bool audience_tells_server =
        opting_out && session.Configuration()->ContainsKey(ConfigKeys::ZUMA_CONFIG_SERVER);
    session.Core().Configuration()->SetPrivacyStatus(status);
    session.AwaitConfiguration({{ConfigKeys::GLOBAL_CONFIG_PRIVACY, Variant::FromString(outcome.status)}});
    if (!opting_out) {
        return outcome;
    }
    if (audience_tells_server) {
        outcome.note = "audience.server is configured: the audience extension tells the server";
    } else {
        std::string line;
        WaitOrFail("the opt-out request", session.Options().timeout,
                   [&](std::chrono::steady_clock::time_point deadline) {
                       line = watch->WaitForLine(deadline);
                       return !line.empty();
                   });
        if (line.compare(0, SENDING_OPT_OUT.size(), SENDING_OPT_OUT) == 0) {
            outcome.opt_out_request = line.substr(SENDING_OPT_OUT.size());
            if (!outcome.opt_out_request.empty() && outcome.opt_out_request.back() == '.') {
                outcome.opt_out_request.pop_back();
            }
        } else {
            outcome.note = "no opt-out request sent: " + line;
        }
    }
    // Answered after the wipe, which ran in the task of the configuration that said opted out.
    outcome.mid_after = FetchRecord(session, {"mid"}).values["mid"];
    return outcome;
}

nlohmann::json PrivacyOutcome::ToJson() const {
    nlohmann::json json = {{"privacy", status}};
    if (status == MobilePrivacyStatusToString(MobilePrivacyStatus::OPT_OUT)) {
        json["opt_out_request"] = opt_out_request;
        if (!note.empty()) json["note"] = note;
        json["mid"] = mid_after;
    }
    return json;
}

std::string PrivacyOutcome::ToText() const {
    std::string text = "privacy: " + status + "\n";
    if (status == MobilePrivacyStatusToString(MobilePrivacyStatus::OPT_OUT)) {
        text += opt_out_request.empty() ? note + "\n" : "server told: GET " + opt_out_request + "\n";
        text += "record wiped: mid \"" + mid_after + "\"\n";
    }
    return text;
}

}  // namespace VelmoraCli
