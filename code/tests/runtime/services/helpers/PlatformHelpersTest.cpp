#include <gtest/gtest.h>

#include <chrono>

#include "runtime/services/helpers/ContextData.h"
#include "runtime/services/helpers/TimeUtils.h"

using namespace VelmoraMobile;

TEST(ContextDataTest, CleanKeyKeepsLettersDigitsUnderscoreAndSingleInnerDots) {
    const std::pair<std::string, std::string> cases[] = {
        {"DSID_20915", "DSID_20915"},
        {"a b-c!d", "abcd"},
        {"a..b...c", "a.b.c"},
        {"..a.b..", "a.b"},
        {"a.-.b", "a.b"},  // dropping bytes can join dots
        {"\xC3\xA9t\xC3\xA9", "t"},
        {std::string("a\0b", 3), "ab"},
        {"...", ""},
    };
    for (const auto& c : cases) EXPECT_EQ(ContextData::CleanKey(c.first), c.second) << c.first;
}

TEST(TimeUtilsTest, BothClocksGiveSecondsSinceTheEpoch) {
    auto now = [] {
        return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
            .count();
    };
    auto before = now();
    for (int64_t seconds : {TimeUtils::GetUnixTimeInSeconds(), TimeUtils::GetUnixTime()}) {
        EXPECT_GE(seconds, before);
        EXPECT_LE(seconds, now());
    }
}
