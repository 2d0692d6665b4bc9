#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <tuple>

#include "runtime/services/SystemInfoService.h"
#include "runtime/services/helpers/ContextData.h"
#include "runtime/services/helpers/NetworkConnectionUtil.h"
#include "runtime/services/helpers/TimeUtils.h"
#include "runtime/services/helpers/UrlBuilder.h"
#include "runtime/services/helpers/UrlEncoder.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScopedEnvironment.h"

using VelmoraTest::ScopedEnvironment;
using namespace VelmoraMobile;

// Leading, doubled and trailing dots and other dropped bytes are pinned through the visitor id type.
TEST(ContextDataTest, CleanKeyKeepsLettersDigitsUnderscoreAndSingleInnerDots) {
    const std::pair<std::string, std::string> cases[] = {
        {"DSID_20915", "DSID_20915"},
        {"a.-.b", "a.b"},  // dropping bytes can join dots
        {std::string("a\0b", 3), "ab"},
    };
    for (const auto& c : cases) EXPECT_EQ(ContextData::CleanKey(c.first), c.second) << c.first;
}

// The sync's TTL tests read the seconds clock as well.
TEST(TimeUtilsTest, UnixTimeIsSecondsSinceTheEpoch) {
    using namespace std::chrono;
    auto now = [] { return duration_cast<seconds>(system_clock::now().time_since_epoch()).count(); };
    auto before = now();
    int64_t unix_time = TimeUtils::GetUnixTime();
    EXPECT_TRUE(unix_time >= before && unix_time <= now());
}

TEST(NetworkConnectionUtilTest, LocaleFromTheEnvironmentHeadersAndRecoverableStatuses) {
    using Env = std::optional<std::string>;
    const std::tuple<Env, Env, Env, std::string> cases[] = {
        // LC_ALL, LC_MESSAGES, LANG: the first set names language and region. Without a language
        // of its own the request carries no Accept-Language.
        {"", "", "de_DE@euro", "de_DE"},
        {"fr_CA.ISO-8859-1", "de_DE", "en_US", "fr_CA"},
        {{}, "pt_BR.UTF-8", "en_US", "pt_BR"},
        {{}, {}, "ja", "ja"},
        {{}, {}, "C.UTF-8", ""},
        {{}, {}, {}, ""},
        {{}, {}, "en_US\r\nX-Evil: 1", ""},
    };
    for (const auto& [all, messages, lang, expected] : cases) {
        ScopedEnvironment a("LC_ALL", all), m("LC_MESSAGES", messages), l("LANG", lang);
        EXPECT_EQ(NetworkConnectionUtil::GetLocaleString(SystemInfoService("/tmp").GetSystemLocale()), expected);
    }
    auto headers = NetworkConnectionUtil::GetHeaders("en-US", "");
    EXPECT_EQ(headers.size(), 2u);
    EXPECT_EQ(headers["User-Agent"].rfind("velmora-identity/", 0), 0u);
    headers = NetworkConnectionUtil::GetHeaders("", "application/json");
    EXPECT_EQ(headers.count("Accept-Language"), 0u);
    EXPECT_EQ(headers["Content-Type"], "application/json");
    for (int status : {408, 429, 502, 503, 504}) EXPECT_TRUE(NetworkConnectionUtil::IsRecoverableNetworkError(status));
    for (int status : {0, 200, 400, 404, 500, 501, 505})
        EXPECT_FALSE(NetworkConnectionUtil::IsRecoverableNetworkError(status));
}

// The identity sync and opt-out URLs built on this are pinned in the identity sync and privacy tests.
TEST(UrlBuilderTest, MapEntriesAreEncodedAlreadyEncodedTextsAreNotAndBadHostsGiveNothing) {
    EXPECT_EQ(UrlBuilder()
                  .SetHost("127.0.0.1:8080")
                  .AddPath("a b/c")
                  .AddQueryParameters({{"z key", "v&=1"}, {"a", "x@y"}})
                  .AddQuery("raw=%01|", UrlBuilder::ALREADY_ENCODED)
                  .AddQuery("k y=v y&w=1/2", UrlBuilder::ENCODE)
                  .AddQuery("", UrlBuilder::ALREADY_ENCODED)
                  .Build(),
              "http://127.0.0.1:8080/a%20b/c?a=x%40y&z%20key=v%26%3D1&raw=%01|&k%20y=v%20y&w=1%2F2");
    EXPECT_EQ(UrlBuilder().SetHost("h.example").Build(), "http://h.example");
    VelmoraTest::LogCapture capture;
    for (const char* host : {"", "evil.example/x?y", "a b", "user@host"}) {
        EXPECT_EQ(UrlBuilder().SetHost(host).AddPath("id").Build(), "") << host;
    }
    EXPECT_TRUE(capture.ContainsFragment("Cannot build a URL with the host"));
}

TEST(UrlEncoderTest, UnreservedBytesStayAndEveryOtherIsEscaped) {
    EXPECT_EQ(UrlEncoder::Encode("AZaz09-._~"), "AZaz09-._~");
    EXPECT_EQ(UrlEncoder::Encode(" !*'();:@&=+$,/?#[]%|"),
              "%20%21%2A%27%28%29%3B%3A%40%26%3D%2B%24%2C%2F%3F%23%5B%5D%25%7C");
    EXPECT_EQ(UrlEncoder::Encode(std::string("\xC3\xA9\0\x7F", 4)), "%C3%A9%00%7F");
}
