#include <gtest/gtest.h>

#include <string>

#include "runtime/services/json/BoundedJson.h"
#include "runtime/services/json/NlohmannJsonUtilityService.h"
#include "tests/support/LogCapture.h"

using VelmoraTest::LogCapture;
using namespace VelmoraMobile;

namespace {

std::string Nested(int levels, const std::string& inner = "1") {
    return std::string(levels, '[') + inner + std::string(levels, ']');
}

std::string NestedObjects(int levels) {
    std::string text;
    for (int i = 0; i < levels; ++i) text += R"({"a":)";
    return text + "1" + std::string(levels, '}');
}

std::string Refused(const std::string& key) {
    return "JSON value \"" + key + "\" is nested deeper than 100 levels and was refused";
}

}  // namespace

TEST(BoundedJsonTest, TopLevelEntryNestedTooDeepIsRefusedWithOneLineAndTheRestKept) {
    struct Case {
        std::string name;
        std::string text;
        std::string kept;     // key that must survive
        std::string refused;  // key that must be gone ("" when none)
    };
    const Case cases[] = {
        // The root counts as one level: 99 inside it make 100.
        {"at the bound", R"({"ok":1,"deep":)" + Nested(99) + "}", "deep", ""},
        {"one past", R"({"ok":1,"deep":)" + Nested(100) + "}", "ok", "deep"},
        {"objects", R"({"deep":)" + NestedObjects(150) + R"(,"ok":"kept"})", "ok", "deep"},
        {"a hundred thousand", R"({"deep":)" + Nested(100000) + R"(,"ok":[[1]]})", "ok", "deep"},
    };
    for (const Case& c : cases) {
        LogCapture log;
        nlohmann::json document = BoundedJson::Parse(c.text);
        ASSERT_TRUE(document.is_object()) << c.name;
        EXPECT_TRUE(document.contains(c.kept)) << c.name;
        if (c.refused.empty()) {
            EXPECT_TRUE(log.Lines().empty()) << c.name;
            EXPECT_EQ(document.dump().size(), c.text.size()) << c.name;
        } else {
            EXPECT_FALSE(document.contains(c.refused)) << c.name;
            EXPECT_EQ(log.Count(Refused(c.refused)), 1u) << c.name;
            EXPECT_EQ(log.Lines().size(), 1u) << c.name;
        }
    }
}

TEST(BoundedJsonTest, ServerAnswerWithADeepExtraKeyStillGivesItsIds) {
    LogCapture log;
    auto json =
        NlohmannJsonUtilityService().ParseJson(R"({"d_mid":"0123","x":)" + Nested(100000) + R"(,"d_blob":"b"})");
    ASSERT_TRUE(json);
    EXPECT_EQ(json->GetString("d_mid", ""), "0123");
    EXPECT_EQ(json->GetString("d_blob", ""), "b");
    EXPECT_FALSE(json->Has("x"));
    EXPECT_EQ(log.Count(Refused("x")), 1u);
    EXPECT_FALSE(json->ToJsonString().empty());
    // A root that is itself too deep is no object at all.
    EXPECT_FALSE(NlohmannJsonUtilityService().ParseJson(Nested(100000)));
}

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
