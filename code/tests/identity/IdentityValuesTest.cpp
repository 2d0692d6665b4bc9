#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "IdentityConstants.h"
#include "IdentityObject.h"
#include "Log.h"
#include "LogCapture.h"

using namespace VelmoraMobile;

namespace {

// Copied during static initialisation of this file, as a class's log tag would be: the copy
// must see the value whatever order the linker put the files in.
const std::string kCopiedModuleName = IdentityConstants::EventDataKeys::Identity::SHARED_STATE_NAME;
const std::string kCopiedLogPrefix = IdentityConstants::LOG_PREFIX;

TEST(IdentityConstantsTest, CopiesTakenAtStartSeeTheirValues) {
    EXPECT_EQ(kCopiedModuleName, "com.velmora.module.identity");
    EXPECT_EQ(kCopiedLogPrefix, "");
    EXPECT_EQ(IdentityConstants::LOG_PREFIX, "");
}

TEST(IdentityConstantsTest, EmptyTagLineIsStillWritten) {
    VelmoraTest::LogCapture capture;
    Log::Warning(IdentityConstants::LOG_PREFIX.c_str(), "Failed to register the RESPONSE_IDENTITY listener (%s)",
                 std::string("boom"));
    auto lines = capture.Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].tag, "");
    EXPECT_EQ(lines[0].message, "Failed to register the RESPONSE_IDENTITY listener (boom)");
}

TEST(IdentityObjectTest, SetOptOutCopiesAndIgnoresItsOwnList) {
    IdentityObject object;
    EXPECT_TRUE(object.GetOptOut().empty());
    std::vector<std::string> entries{"global"};
    object.SetOptOut(entries);
    entries.push_back("later");
    ASSERT_EQ(object.GetOptOut(), std::vector<std::string>{"global"});
    object.SetOptOut(object.GetOptOut());
    EXPECT_EQ(object.GetOptOut(), std::vector<std::string>{"global"});
}

}  // namespace
