#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "runtime/services/helpers/UrlBuilder.h"
#include "runtime/services/helpers/UrlEncoder.h"
#include "tests/support/LogCapture.h"

using namespace VelmoraMobile;

namespace {

const std::string kPrefix = "identity.example/id?d_rtbd=json&d_ver=2&d_orgid=1234ABCD5678EFGH";
const std::string kMid = "01234567890123456789012345678901234567";

// The sync URL assembled the way the identity module hands it over: fixed parameters through the
// map, everything else as already-encoded query texts.
std::string SyncUrl(bool ssl, const std::vector<std::string>& encoded_queries) {
    UrlBuilder builder;
    builder.EnableSsl(ssl).SetHost("identity.example").AddPath("id");
    builder.AddQueryParameters({{"d_ver", "2"}, {"d_rtbd", "json"}});
    builder.AddQuery("d_orgid=1234ABCD5678EFGH", UrlBuilder::ALREADY_ENCODED);
    for (const auto& query : encoded_queries) builder.AddQuery(query, UrlBuilder::ALREADY_ENCODED);
    return builder.Build();
}

std::string Cid(const std::string& type, const std::string& id, const std::string& state) {
    return "d_cid_ic=" + UrlEncoder::Encode(type) + "%01" + UrlEncoder::Encode(id) + "%01" + state;
}

}  // namespace

TEST(UrlBuilderTest, TheThreeSyncUrlsAndTheOptOutUrl) {
    EXPECT_EQ(
        SyncUrl(true, {"d_mid=" + kMid, "d_blob=hmk_Lq6T", "dcs_region=9",
                       Cid("DSID_20915", "AAAA-BBBB", "1") + "&" + Cid("crm", "abc", "1"), "d_cid=20920%01pushtoken"}),
        "https://" + kPrefix + "&d_mid=" + kMid +
            "&d_blob=hmk_Lq6T&dcs_region=9&d_cid_ic=DSID_20915%01AAAA-BBBB%011&d_cid_ic=crm%01abc%011"
            "&d_cid=20920%01pushtoken");
    EXPECT_EQ(SyncUrl(false, {"d_mid=" + kMid, Cid("crm", "", "0")}),
              "http://" + kPrefix + "&d_mid=" + kMid + "&d_cid_ic=crm%01%010");
    EXPECT_EQ(UrlBuilder()
                  .EnableSsl(true)
                  .SetHost("identity.example")
                  .AddPath("veloptout.jpg")
                  .AddQueryParameters({{"d_orgid", "1234ABCD5678EFGH"}, {"d_mid", kMid}})
                  .Build(),
              "https://identity.example/veloptout.jpg?d_mid=" + kMid + "&d_orgid=1234ABCD5678EFGH");
}

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
