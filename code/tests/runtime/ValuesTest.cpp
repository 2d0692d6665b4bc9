#include <gtest/gtest.h>

#include "Expected.h"
#include "Log.h"
#include "LogCapture.h"
#include "StringUtils.h"
#include "TryCatch.h"
#include "Variant.h"

using namespace VelmoraMobile;

TEST(ExpectedTest, ValueOnErrorThrowsBadCast) {
    Expected<int> error(SdkError("x.y", "z", DebugInfo()));
    try {
        error.Value();
        FAIL() << "no throw";
    } catch (const SdkError& e) {
        EXPECT_EQ(e.GetCode(), "std.bad_cast");
        EXPECT_EQ(e.GetMessage(), "Value type not available.");
        EXPECT_EQ(e.GetDebugInfo().file, "Headers/Expected");
    }
}
