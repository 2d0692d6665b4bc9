#pragma once

#include <cstdint>
#include <locale>
#include <map>
#include <string>

namespace VelmoraMobile {

/// HTTP helpers. Stateless; callable from any thread.
class NetworkConnectionUtil {
public:
    /// Language and region joined by "_" ("en_US"), or the language alone; "" for the
    /// C/POSIX locale or a name that is no locale tag. Reads the name carried by a
    /// LocaleNameFacet first, else the locale's own name without encoding and modifier.
    static std::string GetLocaleString(const std::locale& locale);

    /// Request headers: "Accept-Language" when `language` is not empty, "Content-Type" when
    /// `content_type` is not empty, and always a "User-Agent" naming this library and its version.
    static std::map<std::string, std::string> GetHeaders(const std::string& language, const std::string& content_type);

    /// True for statuses where a later attempt may succeed: 408, 429, 502, 503, 504.
    static bool IsRecoverableNetworkError(int32_t status);

    /// "velmora-identity/<version>".
    static std::string GetUserAgent();

    /// "en_US.UTF-8@euro" -> "en_US"; "" for "C", "POSIX", "C.UTF-8", "*" and anything that is
    /// not made of letters, digits, "_" and "-".
    static std::string NormalizeLocaleName(const std::string& name);
};

}  // namespace VelmoraMobile
