#pragma once

#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "identity/ids/VisitorId.h"
#include "tools/cli/CliSession.h"

namespace VelmoraCli {

/// The identity record as the public API hands it out, field by field.
struct IdentityRecord {
    /// Field name ("mid", "vid", "push", "adid", "blob", "hint") to value; "" when the module has
    /// none.
    std::map<std::string, std::string> values;
    std::vector<std::shared_ptr<VelmoraMobile::VisitorId>> ids;
};

/// The field names of `get`, "ids" and "all" included, in display order.
const std::vector<std::string>& RecordFieldNames();

/// Asks the module for `fields` (names of RecordFieldNames; "all" for every one) and waits,
/// bounded by the session's timeout (CliError exit 1 on timeout).
IdentityRecord FetchRecord(CliSession& session, const std::vector<std::string>& fields);

/// `url` decorated by the module with the visitor's data, waiting as FetchRecord does.
std::string FetchDecoratedUrl(CliSession& session, const std::string& url);

/// One JSON object with `fields`: strings, and "ids" as a list of {type, id, state, origin}.
nlohmann::json RecordToJson(const IdentityRecord& record, const std::vector<std::string>& fields);
/// Human form: a lone field prints its bare value (ids: one per line); several print
/// "name: value" lines.
std::string RecordToText(const IdentityRecord& record, const std::vector<std::string>& fields);

/// `fields` with "all" expanded.
std::vector<std::string> ExpandFields(const std::vector<std::string>& fields);

}  // namespace VelmoraCli
