#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "identity/ids/VisitorId.h"
#include "identity/module/ConfigurationSharedStateIdentity.h"
#include "runtime/bus/EventData.h"
#include "runtime/services/CryptoServiceInterface.h"
#include "runtime/services/UuidInterface.h"
#include "runtime/values/Object.h"
#include "runtime/values/Variant.h"
#include "tests/support/LogCapture.h"

// Small helpers shared by the sync, MID, URL and customer-id tests. Header only.
namespace VelmoraTest {

/// A crypto service whose UUID interface gives the same 16 bytes at every call; made without
/// bytes, it has no UUID interface.
class FakeCryptoService : public VelmoraMobile::Object,
                          public virtual VelmoraMobile::CryptoServiceInterface,
                          public virtual VelmoraMobile::UuidInterface {
public:
    FakeCryptoService() = default;
    explicit FakeCryptoService(const uint8_t (&bytes)[16]) : has_uuid_(true) { std::memcpy(bytes_, bytes, 16); }
    std::shared_ptr<VelmoraMobile::UuidInterface> GetUuidInterface() override {
        return has_uuid_ ? VelmoraMobile::ObjectToSharedPtr<VelmoraMobile::UuidInterface>(*this) : nullptr;
    }
    std::string GetDigest(const std::string& input) override { return input; }
    void GenerateUuid(uint8_t (&out)[16]) override { std::memcpy(out, bytes_, sizeof(bytes_)); }

private:
    bool has_uuid_ = false;
    uint8_t bytes_[16] = {};
};

/// A configuration view as the event queue would build it from a configuration state.
inline std::shared_ptr<VelmoraMobile::ConfigurationSharedStateIdentity> MakeConfig(
    const std::string& org_id, const std::string& server = "identity.example", bool ssl = true,
    const std::string& privacy = "optedin", bool ad_id_enabled = false) {
    auto data = std::make_shared<VelmoraMobile::EventData>();
    if (!org_id.empty()) data->PutString("ondaraCloud.org", org_id);
    data->PutString("ondaraCloud.server", server);
    data->PutBoolean("global.ssl", ssl);
    data->PutString("global.privacy", privacy);
    data->PutBoolean("identity.adidEnabled", ad_id_enabled);
    return std::make_shared<VelmoraMobile::ConfigurationSharedStateIdentity>(data);
}

/// Each id as "origin:type:id:state", "null" for a null entry.
inline std::vector<std::string> DescribeIds(const std::vector<std::shared_ptr<VelmoraMobile::VisitorId>>& ids) {
    std::vector<std::string> out;
    for (const auto& id : ids) {
        out.push_back(id ? id->id_origin + ":" + id->id_type + ":" + id->id + ":" +
                               std::to_string(static_cast<int>(id->authentication_state))
                         : "null");
    }
    return out;
}

/// The messages of the identity module's tag at exactly this level, in order.
inline std::vector<std::string> IdentityLines(const LogCapture& capture, VelmoraMobile::LoggingMode mode) {
    std::vector<std::string> out;
    for (const auto& line : capture.Lines()) {
        if (line.tag == "com.velmora.module.identity" && line.mode == mode) out.push_back(line.message);
    }
    return out;
}

/// How many lines of the identity module's tag have exactly this level and text.
inline size_t CountIdentityLines(const LogCapture& capture, VelmoraMobile::LoggingMode mode,
                                 const std::string& message) {
    const auto lines = IdentityLines(capture, mode);
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), message));
}

}  // namespace VelmoraTest
