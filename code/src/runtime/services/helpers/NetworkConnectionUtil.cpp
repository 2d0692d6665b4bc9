#include "runtime/services/helpers/NetworkConnectionUtil.h"

#include "runtime/services/HttpConnectionConstants.h"
#include "runtime/services/LocaleNameFacet.h"

#ifndef VELMORA_VERSION
#define VELMORA_VERSION "0.0.0"
#endif

namespace VelmoraMobile {

namespace {

// A combined name such as "LC_CTYPE=en_US.UTF-8;LC_MESSAGES=de_DE.UTF-8;..." names the
// language of messages under LC_MESSAGES.
std::string MessagesPart(const std::string& name) {
    if (name.find(';') == std::string::npos) {
        return name;
    }
    const std::string key = "LC_MESSAGES=";
    size_t start = name.find(key);
    if (start == std::string::npos) {
        return "";
    }
    start += key.size();
    size_t end = name.find(';', start);
    return name.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

}  // namespace

std::string NetworkConnectionUtil::NormalizeLocaleName(const std::string& name) {
    std::string base = name.substr(0, name.find_first_of(".@"));
    if (base.empty() || base == "C" || base == "POSIX") {
        return "";
    }
    for (char ch : base) {
        auto c = static_cast<unsigned char>(ch);
        bool allowed =
            (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || ch == '_' || ch == '-';
        if (!allowed) {
            return "";
        }
    }
    return base;
}

std::string NetworkConnectionUtil::GetLocaleString(const std::locale& locale) {
    std::string carried = LocaleNameFacet::NameOf(locale);
    if (!carried.empty()) {
        return NormalizeLocaleName(carried);
    }
    return NormalizeLocaleName(MessagesPart(locale.name()));
}

std::map<std::string, std::string> NetworkConnectionUtil::GetHeaders(const std::string& language,
                                                                     const std::string& content_type) {
    std::map<std::string, std::string> headers;
    if (!language.empty()) {
        headers["Accept-Language"] = language;
    }
    if (!content_type.empty()) {
        headers["Content-Type"] = content_type;
    }
    headers["User-Agent"] = GetUserAgent();
    return headers;
}

bool NetworkConnectionUtil::IsRecoverableNetworkError(int32_t status) {
    switch (status) {
        case HttpConnectionConstants::HTTP_REQUEST_TIMEOUT:
        case HttpConnectionConstants::HTTP_TOO_MANY_REQUESTS:
        case HttpConnectionConstants::HTTP_BAD_GATEWAY:
        case HttpConnectionConstants::HTTP_SERVICE_UNAVAILABLE:
        case HttpConnectionConstants::HTTP_GATEWAY_TIMEOUT: return true;
        default: return false;
    }
}

std::string NetworkConnectionUtil::GetUserAgent() {
    return std::string("velmora-identity/") + VELMORA_VERSION;
}

}  // namespace VelmoraMobile
