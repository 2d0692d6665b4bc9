#include <gtest/gtest.h>

#include <locale>

#include "runtime/services/LocaleNameFacet.h"
#include "runtime/services/SystemInfoService.h"
#include "runtime/services/helpers/NetworkConnectionUtil.h"
#include "tests/support/ScopedEnvironment.h"

using namespace VelmoraMobile;
using VelmoraTest::ScopedEnvironment;

namespace {

std::string SystemLocaleString(const std::optional<std::string>& lc_all, const std::optional<std::string>& lc_messages,
                               const std::optional<std::string>& lang) {
    ScopedEnvironment a("LC_ALL", lc_all);
    ScopedEnvironment m("LC_MESSAGES", lc_messages);
    ScopedEnvironment l("LANG", lang);
    return NetworkConnectionUtil::GetLocaleString(SystemInfoService("/tmp").GetSystemLocale());
}

}  // namespace

TEST(NetworkConnectionUtilTest, SystemLocaleFromTheEnvironmentGivesLanguageAndRegion) {
    EXPECT_EQ(SystemLocaleString("", "", "de_DE@euro"), "de_DE");
    EXPECT_EQ(SystemLocaleString("fr_CA.ISO-8859-1", "de_DE", "en_US"), "fr_CA");
    EXPECT_EQ(SystemLocaleString(std::nullopt, "pt_BR.UTF-8", "en_US"), "pt_BR");
    EXPECT_EQ(SystemLocaleString(std::nullopt, std::nullopt, "ja"), "ja");
    // No language of its own: the request then carries no Accept-Language.
    EXPECT_EQ(SystemLocaleString(std::nullopt, std::nullopt, "C.UTF-8"), "");
    EXPECT_EQ(SystemLocaleString(std::nullopt, std::nullopt, std::nullopt), "");
    EXPECT_EQ(SystemLocaleString(std::nullopt, std::nullopt, "en_US\r\nX-Evil: 1"), "");
    EXPECT_EQ(NetworkConnectionUtil::GetLocaleString(LocaleNameFacet::Attach(std::locale::classic(), "es_ES.UTF-8")),
              "es_ES");
}

TEST(NetworkConnectionUtilTest, HeadersAndRecoverableStatuses) {
    auto headers = NetworkConnectionUtil::GetHeaders("en-US", "");
    EXPECT_EQ(headers.size(), 2u);
    EXPECT_EQ(headers["Accept-Language"], "en-US");
    EXPECT_EQ(headers["User-Agent"].rfind("velmora-identity/", 0), 0u);
    headers = NetworkConnectionUtil::GetHeaders("", "application/json");
    EXPECT_EQ(headers.count("Accept-Language"), 0u);
    EXPECT_EQ(headers["Content-Type"], "application/json");
    for (int status : {408, 429, 502, 503, 504}) EXPECT_TRUE(NetworkConnectionUtil::IsRecoverableNetworkError(status));
    for (int status : {0, 200, 400, 404, 500, 501, 505}) {
        EXPECT_FALSE(NetworkConnectionUtil::IsRecoverableNetworkError(status)) << status;
    }
}
