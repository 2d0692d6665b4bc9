#include <gtest/gtest.h>

#include <string>

#include "NlohmannJsonUtilityService.h"

using namespace VelmoraMobile;

class JsonUtilityServiceTest : public ::testing::Test {
protected:
    std::shared_ptr<JsonObject> Parse(const std::string& text) { return service_.ParseJson(text); }
    NlohmannJsonUtilityService service_;
};

TEST_F(JsonUtilityServiceTest, TextThatIsNoJsonObjectGivesEmptyPointer) {
    for (const std::string& text :
         {std::string(""), std::string("not json"), std::string("{\"a\":"), std::string("[1,2]"), std::string("null"),
          std::string("42"), std::string("\"text\""), std::string("{} trailing"), std::string("{\"a\":\"\xFF\"}"),
          std::string("{\"a\":1,}"), std::string(10000, '[')}) {
        EXPECT_FALSE(Parse(text)) << text.substr(0, 40);
    }
    EXPECT_TRUE(Parse(" {} "));
}

TEST_F(JsonUtilityServiceTest, IdentityAnswerIsRead) {
    auto json = Parse(
        R"({"d_mid":"0123","d_blob":"hmk","dcs_region":9,"id_sync_ttl":604800,"d_optout":["global"],"error_msg":""})");
    ASSERT_TRUE(json);
    EXPECT_EQ(json->Length(), 6);
    EXPECT_EQ(json->GetString("d_mid", ""), "0123");
    EXPECT_EQ(json->GetInt("dcs_region", -1), 9);
    EXPECT_EQ(json->GetInt("id_sync_ttl", -1), 604800);
    EXPECT_EQ(json->GetString("error_msg", "x"), "");
    auto optout = json->GetJsonArray("d_optout");
    ASSERT_TRUE(optout);
    EXPECT_EQ(optout->Length(), 1);
    EXPECT_EQ(optout->GetString(0), "global");
}

TEST_F(JsonUtilityServiceTest, MissingKeyOrOtherKindGivesTheFallback) {
    auto json = Parse(R"({"s":"text","i":5,"f":1.5,"b":true,"n":null,"big":4294967296,"neg":-7,"o":{},"a":[]})");
    ASSERT_TRUE(json);
    EXPECT_EQ(json->GetInt("missing", -1), -1);
    EXPECT_EQ(json->GetInt("missing", 0), 0);
    EXPECT_EQ(json->GetInt("s", -1), -1);
    EXPECT_EQ(json->GetInt("f", -1), -1);
    EXPECT_EQ(json->GetInt("b", -1), -1);
    EXPECT_EQ(json->GetInt("n", -1), -1);
    EXPECT_EQ(json->GetInt("big", -1), -1);  // does not fit in 32 bits
    EXPECT_EQ(json->GetLong("big", -1), 4294967296LL);
    EXPECT_EQ(json->GetInt("neg", 0), -7);
    EXPECT_EQ(json->GetString("i", "fallback"), "fallback");
    EXPECT_EQ(json->GetString("n", "fallback"), "fallback");
    EXPECT_EQ(json->GetString("missing", "fallback"), "fallback");
    EXPECT_TRUE(json->GetBool("b", false));
    EXPECT_TRUE(json->GetBool("i", true));
    EXPECT_FALSE(json->GetJsonArray("s"));
    EXPECT_FALSE(json->GetJsonArray("o"));
    EXPECT_FALSE(json->GetJsonArray("missing"));
    EXPECT_FALSE(json->GetJsonObject("a"));
    EXPECT_TRUE(json->GetJsonObject("o"));
    EXPECT_TRUE(json->Has("n"));
    EXPECT_FALSE(json->Has("missing"));
}

TEST_F(JsonUtilityServiceTest, ArrayElementsOfOtherKindsOrOutOfRangeGiveEmptyText) {
    auto json = Parse(R"({"a":["x",1,null,{"k":"v"},"y"]})");
    auto array = json->GetJsonArray("a");
    ASSERT_TRUE(array);
    EXPECT_EQ(array->Length(), 5);
    EXPECT_EQ(array->GetString(0), "x");
    EXPECT_EQ(array->GetString(1), "");
    EXPECT_EQ(array->GetString(2), "");
    EXPECT_EQ(array->GetString(3), "");
    EXPECT_EQ(array->GetString(4), "y");
    EXPECT_EQ(array->GetString(5), "");
    EXPECT_EQ(array->GetString(-1), "");
}

TEST_F(JsonUtilityServiceTest, ViewsKeepTheDocumentAlive) {
    std::shared_ptr<JsonArray> array;
    std::shared_ptr<JsonObject> inner;
    {
        auto json = Parse(R"({"a":["kept"],"o":{"k":"v","n":2}})");
        array = json->GetJsonArray("a");
        inner = json->GetJsonObject("o");
    }
    EXPECT_EQ(array->GetString(0), "kept");
    EXPECT_EQ(inner->GetString("k", ""), "v");
    EXPECT_EQ(inner->Keys(), (std::vector<std::string>{"k", "n"}));
    EXPECT_EQ(inner->ToJsonString(), R"({"k":"v","n":2})");
    EXPECT_EQ(array->ToJsonString(), R"(["kept"])");
}
