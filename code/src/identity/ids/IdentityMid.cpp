#include <cstdint>
#include <limits>
#include <string>

#include "identity/module/Identity.h"
#include "runtime/values/Log.h"
#include "runtime/values/StringUtils.h"

namespace VelmoraMobile {

namespace {

constexpr size_t MID_HALF_DIGITS = 19;

int64_t ReadBigEndian(const uint8_t* bytes) {
    uint64_t value = 0;
    for (int i = 0; i < 8; ++i) {
        value = (value << 8) | bytes[i];
    }
    return static_cast<int64_t>(value);
}

// The absolute value in decimal, padded to 19 digits. The lowest int64 has no absolute value
// and keeps its sign, giving 20 characters; stored MIDs of that form exist and stay valid.
std::string HalfText(int64_t value) {
    if (value < 0 && value != std::numeric_limits<int64_t>::min()) {
        value = -value;
    }
    std::string text = std::to_string(value);
    while (text.size() < MID_HALF_DIGITS) {
        text.insert(0, "0");
    }
    return text;
}

}  // namespace

std::string Identity::GenerateMID() {
    const char* tag = LOG_PREFIX.c_str();
    auto platform_services = GetPlatformServices();
    if (!platform_services) {
        Log::Warning(tag, "Unable to generate mid. Platform services is null.");
        return std::string();
    }
    auto crypto_service = platform_services->GetCryptoService();
    if (!crypto_service) {
        Log::Warning(tag, "Unable to generate mid. Crypto services is null.");
        return std::string();
    }
    auto uuid_interface = crypto_service->GetUuidInterface();
    if (!uuid_interface) {
        Log::Warning(tag, "Unable to generate mid. UUID Interface is null.");
        return std::string();
    }
    uint8_t uuid[16] = {};
    uuid_interface->GenerateUuid(uuid);
    std::string most_text = HalfText(ReadBigEndian(uuid));
    std::string least_text = HalfText(ReadBigEndian(uuid + 8));
    return StringUtils::FormatString("%d%d", most_text, least_text);
}

}  // namespace VelmoraMobile
