#include <gtest/gtest.h>

#include <string>

#include "runtime/services/helpers/UrlBuilder.h"
#include "runtime/services/helpers/UrlEncoder.h"
#include "tests/support/LogCapture.h"

using namespace VelmoraMobile;

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

TEST(UrlEncoderTest, VisitorPayloadExampleAndEscapes) {
    EXPECT_EQ(UrlEncoder::Encode("TS=1542312345|OCMID=01234567890123456789012345678901234567|OCAID=5B3C1D8A"
                                 "|OCORGID=1234ABCD5678EFGH"),
              "TS%3D1542312345%7COCMID%3D01234567890123456789012345678901234567%7COCAID%3D5B3C1D8A%7COCORGID%"
              "3D1234ABCD5678EFGH");
    EXPECT_EQ(UrlEncoder::Encode("AZaz09-._~"), "AZaz09-._~");
    EXPECT_EQ(UrlEncoder::Encode(" !*'();:@&=+$,/?#[]%"),
              "%20%21%2A%27%28%29%3B%3A%40%26%3D%2B%24%2C%2F%3F%23%5B%5D%25");
    EXPECT_EQ(UrlEncoder::Encode(std::string("\xC3\xA9\0\x7F", 4)), "%C3%A9%00%7F");
}
