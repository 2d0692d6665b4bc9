#include <gtest/gtest.h>

#include <string>

#include "runtime/services/json/NlohmannJsonUtilityService.h"

using namespace VelmoraMobile;

TEST(JsonUtilityServiceTest, TextThatIsNoJsonObjectGivesEmptyPointer) {
    NlohmannJsonUtilityService service;
    for (const std::string& text : {std::string(""), std::string("{\"a\":"), std::string("[1,2]"),
                                    std::string("{} trailing"), std::string("{\"a\":\"\xFF\"}")}) {
        EXPECT_FALSE(service.ParseJson(text)) << text;
    }
    EXPECT_TRUE(service.ParseJson(" {} "));
}

TEST(JsonUtilityServiceTest, IdentityAnswerIsReadAndOtherKindsGiveTheFallback) {
    std::shared_ptr<JsonArray> optout;
    {
        auto json = NlohmannJsonUtilityService().ParseJson(
            R"({"d_mid":"0123","dcs_region":9,"d_optout":["global",1],"f":1.5,"big":4294967296,"o":{}})");
        ASSERT_TRUE(json);
        EXPECT_EQ(json->GetString("d_mid", ""), "0123");
        EXPECT_EQ(json->GetInt("dcs_region", -1), 9);
        EXPECT_EQ(json->GetInt("d_mid", -1), -1);
        EXPECT_EQ(json->GetInt("f", -1), -1);
        EXPECT_EQ(json->GetInt("big", -1), -1);  // does not fit in 32 bits
        EXPECT_EQ(json->GetLong("big", -1), 4294967296LL);
        EXPECT_EQ(json->GetString("dcs_region", "fallback"), "fallback");
        EXPECT_FALSE(json->GetJsonArray("o"));
        optout = json->GetJsonArray("d_optout");
    }
    ASSERT_TRUE(optout);  // a view keeps its document alive
    EXPECT_EQ(optout->Length(), 2);
    EXPECT_EQ(optout->GetString(0), "global");
    EXPECT_EQ(optout->GetString(1), "");
    EXPECT_EQ(optout->GetString(2), "");
}
