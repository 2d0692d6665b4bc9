#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "identity/hits/IdentityObject.h"
#include "identity/module/IdentityConstants.h"

using namespace VelmoraMobile;

namespace {

// Copied during static initialisation, as a class's log tag would be: the copy must see the
// value whatever order the linker put the files in.
const std::string kCopiedModuleName = IdentityConstants::EventDataKeys::Identity::SHARED_STATE_NAME;

TEST(IdentityConstantsTest, CopiesTakenAtStartSeeTheirValues) {
    EXPECT_EQ(kCopiedModuleName, "com.velmora.module.identity");
}

TEST(IdentityObjectTest, SetOptOutWithItsOwnListKeepsIt) {
    IdentityObject object;
    object.SetOptOut({"global"});
    object.SetOptOut(object.GetOptOut());
    EXPECT_EQ(object.GetOptOut(), std::vector<std::string>{"global"});
}

}  // namespace
