#include <gtest/gtest.h>

#include <chrono>

#include "runtime/services/helpers/ContextData.h"
#include "runtime/services/helpers/TimeUtils.h"

using namespace VelmoraMobile;

TEST(ContextDataTest, CleanKeyKeepsLettersDigitsUnderscoreAndSingleInnerDots) {
    EXPECT_EQ(ContextData::CleanKey("DSID_20915"), "DSID_20915");
    EXPECT_EQ(ContextData::CleanKey("crm.id"), "crm.id");
    EXPECT_EQ(ContextData::CleanKey("a b-c!d"), "abcd");
    EXPECT_EQ(ContextData::CleanKey("a..b...c"), "a.b.c");
    EXPECT_EQ(ContextData::CleanKey("..a.b.."), "a.b");
    EXPECT_EQ(ContextData::CleanKey("a.-.b"), "a.b");  // dropping bytes can join dots
    EXPECT_EQ(ContextData::CleanKey("\xC3\xA9t\xC3\xA9"), "t");
    EXPECT_EQ(ContextData::CleanKey(std::string("a\0b", 3)), "ab");
    EXPECT_EQ(ContextData::CleanKey(""), "");
    EXPECT_EQ(ContextData::CleanKey("..."), "");
    EXPECT_EQ(ContextData::CleanKey("%&/ "), "");
}

TEST(TimeUtilsTest, BothClocksGiveSecondsSinceTheEpoch) {
    auto before =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
    int64_t seconds = TimeUtils::GetUnixTimeInSeconds();
    int64_t unix_time = TimeUtils::GetUnixTime();
    auto after =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
    EXPECT_GE(seconds, before);
    EXPECT_LE(seconds, after);
    EXPECT_GE(unix_time, before);
    EXPECT_LE(unix_time, after);
}
