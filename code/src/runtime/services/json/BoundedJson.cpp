#include "runtime/services/json/BoundedJson.h"

#include <iterator>

#include "runtime/values/Log.h"

namespace VelmoraMobile {

namespace {

const char* const LOG_TAG = "JSON";

}  // namespace

nlohmann::json BoundedJson::Parse(const std::string& text) {
    using ParseEvent = nlohmann::json::parse_event_t;
    // The callback sees each container's depth as it starts (root 0). A container too deep is
    // never built; the top-level entry around it (depth 1) is then dropped as a whole when it ends,
    // so no caller ever sees a silently truncated value.
    bool entry_too_deep = false;
    bool refused = false;
    std::string entry_key;
    auto bound = [&](int depth, ParseEvent event, nlohmann::json& parsed) {
        switch (event) {
            case ParseEvent::object_start:
            case ParseEvent::array_start:
                if (depth >= MAX_DEPTH) {
                    entry_too_deep = true;
                    return false;
                }
                return true;
            case ParseEvent::key:
                if (depth == 1) {
                    entry_key = parsed.get<std::string>();
                }
                return true;
            case ParseEvent::object_end:
            case ParseEvent::array_end:
                if (depth == 1 && entry_too_deep) {
                    entry_too_deep = false;
                    refused = true;
                    Log::Warning(LOG_TAG, "JSON value \"%s\" is nested deeper than %d levels and was refused",
                                 entry_key, MAX_DEPTH);
                    return false;
                }
                return true;
            default: return true;
        }
    };
    nlohmann::json document = nlohmann::json::parse(text, bound, false);
    // The parser drops a refused entry from an array, and an object from an object, but leaves
    // an array refused inside an object in place as a discarded value.
    if (refused && document.is_object()) {
        for (auto it = document.begin(); it != document.end();) {
            it = it->is_discarded() ? document.erase(it) : std::next(it);
        }
    }
    return document;
}

}  // namespace VelmoraMobile
