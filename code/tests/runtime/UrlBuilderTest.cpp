#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "UrlBuilder.h"
#include "UrlEncoder.h"

using namespace VelmoraMobile;

namespace {

const std::string kServer = "identity.example";
const std::string kOrg = "1234ABCD5678EFGH";
const std::string kMid = "01234567890123456789012345678901234567";

struct CustomerId {
    std::string type;
    std::string id;
    int state;
};

// The sync URL assembled from its pieces the way the identity module hands them over: the
// fixed parameters through the map, everything else as already-encoded query texts.
std::string SyncUrl(bool ssl, const std::string& mid, const std::string& blob, const std::string& hint,
                    const std::vector<CustomerId>& ids, const std::map<std::string, std::string>& dpids) {
    UrlBuilder builder;
    builder.EnableSsl(ssl).SetHost(kServer).AddPath("id").AddQueryParameters({{"d_ver", "2"}, {"d_rtbd", "json"}});
    builder.AddQuery("d_orgid=" + kOrg, UrlBuilder::ALREADY_ENCODED);
    if (!mid.empty()) builder.AddQuery("d_mid=" + mid, UrlBuilder::ALREADY_ENCODED);
    if (!blob.empty()) builder.AddQuery("d_blob=" + blob, UrlBuilder::ALREADY_ENCODED);
    if (!hint.empty()) builder.AddQuery("dcs_region=" + hint, UrlBuilder::ALREADY_ENCODED);
    std::string cids;
    for (const CustomerId& id : ids) {
        if (!cids.empty()) cids += "&";
        cids += "d_cid_ic=" + UrlEncoder::Encode(id.type) + "%01" + UrlEncoder::Encode(id.id) + "%01" +
                std::to_string(id.state);
    }
    if (!cids.empty()) builder.AddQuery(cids, UrlBuilder::ALREADY_ENCODED);
    std::string internal;
    for (const auto& dpid : dpids) {
        internal += "&d_cid=" + UrlEncoder::Encode(dpid.first) + "%01" + UrlEncoder::Encode(dpid.second);
    }
    if (!internal.empty()) builder.AddQuery(internal.substr(1), UrlBuilder::ALREADY_ENCODED);
    return builder.Build();
}

}  // namespace

TEST(UrlBuilderTest, SyncUrlsOfTheReferenceExamples) {
    EXPECT_EQ(SyncUrl(true, kMid, "hmk_Lq6T", "9", {{"DSID_20915", "AAAA-BBBB", 1}, {"crm", "abc", 1}},
                      {{"20920", "pushtoken"}}),
              "https://identity.example/id?d_rtbd=json&d_ver=2&d_orgid=1234ABCD5678EFGH"
              "&d_mid=01234567890123456789012345678901234567&d_blob=hmk_Lq6T&dcs_region=9"
              "&d_cid_ic=DSID_20915%01AAAA-BBBB%011&d_cid_ic=crm%01abc%011&d_cid=20920%01pushtoken");
    EXPECT_EQ(SyncUrl(false, kMid, "", "", {{"crm", "", 0}}, {}),
              "http://identity.example/id?d_rtbd=json&d_ver=2&d_orgid=1234ABCD5678EFGH"
              "&d_mid=01234567890123456789012345678901234567&d_cid_ic=crm%01%010");
    EXPECT_EQ(SyncUrl(true, "", "", "", {}, {}),
              "https://identity.example/id?d_rtbd=json&d_ver=2&d_orgid=1234ABCD5678EFGH");
}

TEST(UrlBuilderTest, OptOutUrlFromTheParameterMap) {
    std::string url = UrlBuilder()
                          .EnableSsl(true)
                          .SetHost(kServer)
                          .AddPath("veloptout.jpg")
                          .AddQueryParameters({{"d_orgid", kOrg}, {"d_mid", kMid}})
                          .Build();
    EXPECT_EQ(url,
              "https://identity.example/veloptout.jpg?d_mid=01234567890123456789012345678901234567"
              "&d_orgid=1234ABCD5678EFGH");
}

TEST(UrlBuilderTest, MapEntriesAreEncodedAndAlreadyEncodedTextsAreNot) {
    std::string url = UrlBuilder()
                          .SetHost("127.0.0.1:8080")
                          .AddPath("a b/c")
                          .AddQueryParameters({{"z key", "v&=1"}, {"a", "x@y"}})
                          .AddQuery("raw=%01|", UrlBuilder::ALREADY_ENCODED)
                          .AddQuery("k y=v y&w=1/2", UrlBuilder::ENCODE)
                          .AddQuery("", UrlBuilder::ALREADY_ENCODED)
                          .Build();
    EXPECT_EQ(url, "http://127.0.0.1:8080/a%20b/c?a=x%40y&z%20key=v%26%3D1&raw=%01|&k%20y=v%20y&w=1%2F2");
}

TEST(UrlBuilderTest, NoQueryAndNoPath) {
    EXPECT_EQ(UrlBuilder().SetHost("h.example").Build(), "http://h.example");
    EXPECT_EQ(UrlBuilder().SetHost("h.example").AddQuery("a=1", UrlBuilder::ALREADY_ENCODED).Build(),
              "http://h.example?a=1");
    // A later map entry for the same key replaces the earlier one; order stays by key.
    EXPECT_EQ(
        UrlBuilder().SetHost("h").AddQueryParameters({{"b", "1"}}).AddQueryParameters({{"a", "2"}, {"b", "3"}}).Build(),
        "http://h?a=2&b=3");
}

TEST(UrlBuilderTest, UnusableHostGivesEmptyUrlAndLogs) {
    VelmoraTest::LogCapture capture;
    EXPECT_EQ(UrlBuilder().AddPath("id").Build(), "");
    EXPECT_EQ(UrlBuilder().SetHost("evil.example/x?y").AddPath("id").Build(), "");
    EXPECT_EQ(UrlBuilder().SetHost("a b").Build(), "");
    EXPECT_EQ(UrlBuilder().SetHost("user@host").Build(), "");
    EXPECT_TRUE(capture.ContainsFragment("Cannot build a URL with the host"));
}

TEST(UrlEncoderTest, VisitorPayloadOfTheReferenceExample) {
    EXPECT_EQ(UrlEncoder::Encode("TS=1542312345|OCMID=01234567890123456789012345678901234567|OCAID=5B3C1D8A"
                                 "|OCORGID=1234ABCD5678EFGH"),
              "TS%3D1542312345%7COCMID%3D01234567890123456789012345678901234567%7COCAID%3D5B3C1D8A%7COCORGID%"
              "3D1234ABCD5678EFGH");
}

TEST(UrlEncoderTest, UnreservedStayEverythingElseIsEscapedUpperCase) {
    EXPECT_EQ(UrlEncoder::Encode(""), "");
    EXPECT_EQ(UrlEncoder::Encode("AZaz09-._~"), "AZaz09-._~");
    EXPECT_EQ(UrlEncoder::Encode(" !*'();:@&=+$,/?#[]%"),
              "%20%21%2A%27%28%29%3B%3A%40%26%3D%2B%24%2C%2F%3F%23%5B%5D%25");
    EXPECT_EQ(UrlEncoder::Encode("\xC3\xA9"), "%C3%A9");  // UTF-8 bytes one by one
    EXPECT_EQ(UrlEncoder::Encode(std::string("a\0b", 3)), "a%00b");
    EXPECT_EQ(UrlEncoder::Encode("\x01\x7F\xFF"), "%01%7F%FF");
}
