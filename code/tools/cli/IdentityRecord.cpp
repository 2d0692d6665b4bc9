#include "tools/cli/IdentityRecord.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <sstream>

#include "identity/module/IdentityConstants.h"
#include "tools/cli/Waiting.h"

namespace VelmoraCli {

using namespace VelmoraMobile;
namespace Keys = IdentityConstants::EventDataKeys::Identity;

namespace {

/// The key of each string field in the module's answer.
const std::map<std::string, std::string>& AnswerKeys() {
    static const std::map<std::string, std::string> keys = {
        {"mid", Keys::VISITOR_ID_MID},   {"vid", Keys::USER_IDENTIFIER},
        {"push", Keys::PUSH_IDENTIFIER}, {"adid", Keys::ADVERTISING_IDENTIFIER},
        {"blob", Keys::VISITOR_ID_BLOB}, {"hint", Keys::VISITOR_ID_LOCATION_HINT},
    };
    return keys;
}

/// Answers arrive on the hub's thread; the main thread waits for them here.
struct Answers {
    std::mutex mutex;
    std::condition_variable arrived;
    std::map<std::string, std::string> values;
    std::vector<std::shared_ptr<VisitorId>> ids;
    size_t strings_expected{0};
};

}  // namespace

const std::vector<std::string>& RecordFieldNames() {
    static const std::vector<std::string> names = {"mid", "ids", "vid", "push", "adid", "blob", "hint", "all"};
    return names;
}

std::vector<std::string> ExpandFields(const std::vector<std::string>& fields) {
    if (std::find(fields.begin(), fields.end(), "all") == fields.end()) {
        return fields;
    }
    std::vector<std::string> all = RecordFieldNames();
    all.pop_back();
    return all;
}

IdentityRecord FetchRecord(CliSession& session, const std::vector<std::string>& requested) {
    const std::vector<std::string> fields = ExpandFields(requested);
    auto answers = std::make_shared<Answers>();
    const bool want_ids = std::find(fields.begin(), fields.end(), "ids") != fields.end();
    std::vector<std::string> strings;
    for (const auto& field : fields) {
        if (field != "ids") strings.push_back(field);
    }
    // The ids are answered only when there are some. Requests are answered in order, so a
    // string request sent after them tells "none" from "not yet".
    if (want_ids && strings.empty()) {
        strings.push_back("mid");
    }
    answers->strings_expected = strings.size();
    if (want_ids) {
        session.Api()->GetIdentifiers([answers](const std::vector<std::shared_ptr<VisitorId>>& ids) {
            std::lock_guard<std::mutex> lock(answers->mutex);
            answers->ids = ids;
        });
    }
    for (const auto& field : strings) {
        session.Api()->CreateIdentityRequestWithOneTimeCallbackWithStringCallbackParam(
            AnswerKeys().at(field), nullptr, [answers, field](const std::string& value) {
                std::lock_guard<std::mutex> lock(answers->mutex);
                answers->values[field] = value;
                answers->arrived.notify_all();
            });
    }
    IdentityRecord record;
    WaitOrFail("the identity module's answer", session.Options().timeout,
               [&](std::chrono::steady_clock::time_point deadline) {
                   std::unique_lock<std::mutex> lock(answers->mutex);
                   if (!answers->arrived.wait_until(
                           lock, deadline, [&] { return answers->values.size() == answers->strings_expected; })) {
                       return false;
                   }
                   record.values = answers->values;
                   record.ids = answers->ids;
                   return true;
               });
    return record;
}

std::string FetchDecoratedUrl(CliSession& session, const std::string& url) {
    struct Answer {
        std::mutex mutex;
        std::condition_variable arrived;
        bool done{false};
        std::string url;
    };
    auto answer = std::make_shared<Answer>();
    session.Api()->AppendToUrl(url, [answer](std::string decorated) {
        std::lock_guard<std::mutex> lock(answer->mutex);
        answer->url = std::move(decorated);
        answer->done = true;
        answer->arrived.notify_all();
    });
    std::string decorated;
    WaitOrFail("the identity module's answer", session.Options().timeout,
               [&](std::chrono::steady_clock::time_point deadline) {
                   std::unique_lock<std::mutex> lock(answer->mutex);
                   if (!answer->arrived.wait_until(lock, deadline, [&] { return answer->done; })) return false;
                   decorated = answer->url;
                   return true;
               });
    return decorated;
}

nlohmann::json RecordToJson(const IdentityRecord& record, const std::vector<std::string>& requested) {
    nlohmann::json json = nlohmann::json::object();
    for (const auto& field : ExpandFields(requested)) {
        if (field == "ids") {
            json["ids"] = nlohmann::json::array();
            for (const auto& id : record.ids) {
                json["ids"].push_back({{"type", id->id_type},
                                       {"id", id->id},
                                       {"state", static_cast<int>(id->authentication_state)},
                                       {"origin", id->id_origin}});
            }
        } else {
            auto value = record.values.find(field);
            json[field] = value == record.values.end() ? "" : value->second;
        }
    }
    return json;
}

std::string RecordToText(const IdentityRecord& record, const std::vector<std::string>& requested) {
    const std::vector<std::string> fields = ExpandFields(requested);
    const bool bare = fields.size() == 1;
    std::ostringstream text;
    for (const auto& field : fields) {
        if (field == "ids") {
            if (!bare) text << "ids:" << (record.ids.empty() ? " (none)" : "") << "\n";
            for (const auto& id : record.ids) {
                text << (bare ? "" : "  ") << id->id_type << "=" << id->id << " state "
                     << static_cast<int>(id->authentication_state) << " ("
                     << AuthenticationStateToString(id->authentication_state) << ")\n";
            }
            continue;
        }
        auto value = record.values.find(field);
        const std::string shown = value == record.values.end() ? "" : value->second;
        text << (bare ? "" : field + ": ") << shown << "\n";
    }
    return text.str();
}

}  // namespace VelmoraCli
