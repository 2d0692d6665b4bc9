#include "tools/server/IdentityAnswer.h"

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>

namespace VelmoraTestServer {
namespace IdentityAnswer {

std::string SyncJson(const ServerOptions& options, const Fault& fault, const std::string& mid) {
    nlohmann::json answer = nlohmann::json::object();
    if (fault.non_string_mid) {
        answer["d_mid"] = 12345678901234;
    } else {
        answer["d_mid"] = mid;
    }
    answer["d_blob"] = options.blob;
    answer["dcs_region"] = options.location_hint;
    answer["id_sync_ttl"] = fault.ttl ? *fault.ttl : options.ttl;
    if (!fault.error_msg.empty()) answer["error_msg"] = fault.error_msg;
    if (!fault.optout.empty()) answer["d_optout"] = fault.optout;
    return answer.dump();
}

std::string Garbage(size_t size) {
    static const char kNotJson[] = "<html>this is not json</html>";
    if (size == 0) return kNotJson;
    std::string body;
    body.reserve(size);
    // Starts like markup so that a parser fails on the first byte; the rest is a cheap, fixed
    // pseudo-random run of printable characters so that no two test runs differ.
    body.append(kNotJson, std::min(size, sizeof kNotJson - 1));
    uint32_t state = 2463534242u;
    while (body.size() < size) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        body.push_back(static_cast<char>(' ' + state % 95));
    }
    return body;
}

}  // namespace IdentityAnswer
}  // namespace VelmoraTestServer
