#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "runtime/services/json/BoundedJson.h"
#include "runtime/services/json/NlohmannJsonUtilityService.h"
#include "tests/support/LogCapture.h"

using VelmoraTest::LogCapture;
using namespace VelmoraMobile;

namespace {

std::string Nested(int levels, const std::string& open = "[", const std::string& close = "]") {
    std::string text;
    for (int i = 0; i < levels; ++i) text += open;
    text += "1";
    for (int i = 0; i < levels; ++i) text += close;
    return text;
}

std::string Refused(const std::string& key) {
    return "JSON value \"" + key + "\" is nested deeper than 100 levels and was refused";
}

}  // namespace

TEST(BoundedJsonTest, TopLevelEntryNestedTooDeepIsRefusedWithOneLineAndTheRestKept) {
    const std::pair<std::string, bool> cases[] = {
        {R"({"ok":1,"deep":)" + Nested(99) + "}", false},  // the root counts as one level: 99 inside make 100
        {R"({"ok":1,"deep":)" + Nested(100) + "}", true},
        {R"({"ok":1,"deep":)" + Nested(150, R"({"a":)", "}") + "}", true},
    };
    for (const auto& [text, refused] : cases) {
        SCOPED_TRACE(text.substr(0, 30));
        LogCapture log;
        nlohmann::json document = BoundedJson::Parse(text);
        EXPECT_TRUE(document.contains("ok"));
        EXPECT_EQ(document.contains("deep"), !refused);
        EXPECT_EQ(log.Lines().size(), refused ? 1u : 0u);
        EXPECT_EQ(log.Count(Refused("deep")), refused ? 1u : 0u);
    }
}

TEST(JsonUtilityServiceTest, IdentityAnswerIsReadOtherKindsGiveTheFallbackAndNoObjectGivesNothing) {
    NlohmannJsonUtilityService service;
    for (const std::string& text : {std::string(""), std::string("{\"a\":"), std::string("[1,2]"),
                                    std::string("{} trailing"), std::string("{\"a\":\"\xFF\"}"), Nested(100000)}) {
        EXPECT_FALSE(service.ParseJson(text)) << text.substr(0, 30);
    }
    EXPECT_TRUE(service.ParseJson(" {} "));
    // Plain reads of strings and numbers, and a number read as text, fail IdentityHitProcessorTest.
    LogCapture log;
    std::shared_ptr<JsonArray> optout;
    {
        auto json = service.ParseJson(R"({"d_mid":"0123","x":)" + Nested(100000) +
                                      R"(,"d_optout":["global",1],"f":1.5,"big":4294967296,"o":{}})");
        ASSERT_TRUE(json);
        EXPECT_FALSE(json->Has("x"));
        EXPECT_EQ(log.Count(Refused("x")), 1u);
        EXPECT_EQ(json->GetInt("d_mid", -1), -1);
        EXPECT_EQ(json->GetInt("f", -1), -1);
        EXPECT_EQ(json->GetInt("big", -1), -1);  // does not fit in 32 bits
        EXPECT_EQ(json->GetLong("big", -1), 4294967296LL);
        EXPECT_FALSE(json->GetJsonArray("o"));
        optout = json->GetJsonArray("d_optout");
    }
    ASSERT_TRUE(optout);  // a view keeps its document alive
    EXPECT_EQ(optout->Length(), 2);
    EXPECT_EQ(optout->GetString(0), "global");
    EXPECT_EQ(optout->GetString(1), "");
    EXPECT_EQ(optout->GetString(2), "");
}
