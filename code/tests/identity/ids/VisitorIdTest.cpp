#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "identity/ids/VisitorId.h"
#include "runtime/values/SdkError.h"
#include "runtime/values/StringUtils.h"

using namespace VelmoraMobile;

namespace {

TEST(VisitorIdTest, ConstructorCleansTheTypeAndThrowsWhenNothingIsLeft) {
    VisitorId id("", "..my id$type..", "", VisitorIdAuthenticationState::LOGGED_OUT);
    EXPECT_EQ(id.id_type, "myidtype");
    for (const std::string& raw : std::vector<std::string>{"", "...", "$%& -", "\xC3\xA9"}) {
        try {
            VisitorId bad("d_cid_ic", raw, "value", VisitorIdAuthenticationState::AUTHENTICATED);
            ADD_FAILURE() << "no error for id type \"" << raw << "\"";
        } catch (const SdkError& error) {
            EXPECT_EQ(error.GetCode(), "std.logic_error.invalid_argument") << raw;
            EXPECT_EQ(error.GetMessage(), "Failed to initialize VisitorId object, id type is empty") << raw;
            EXPECT_NE(error.GetDebugInfo().file.find("code/src/identity/VisitorId"), std::string::npos);
        }
    }
}

TEST(VisitorIdTest, EqualsComparesCleanedIdTypeOnly) {
    auto first = std::make_shared<VisitorId>("d_cid_ic", "crm.id", "a", VisitorIdAuthenticationState::AUTHENTICATED);
    EXPECT_TRUE(
        first->Equals(std::make_shared<VisitorId>("o", ".crm..id!", "b", VisitorIdAuthenticationState::UNKNOWN)));
    EXPECT_FALSE(first->Equals(std::make_shared<VisitorId>("d_cid_ic", "CRM.id", "a", first->authentication_state)));
    EXPECT_FALSE(first->Equals(std::make_shared<VisitorId>("d_cid_ic", "crm", "a", first->authentication_state)));
    EXPECT_FALSE(first->Equals(nullptr));
}

TEST(VisitorIdAuthenticationStateTest, OutOfRangeValuesAreUnknownAndFormatAsQuotedText) {
    EXPECT_EQ(IntegerToVisitorIdAuthenticationState(2), VisitorIdAuthenticationState::LOGGED_OUT);
    for (int value : {3, -1, 1 << 30}) {
        EXPECT_EQ(IntegerToVisitorIdAuthenticationState(value), VisitorIdAuthenticationState::UNKNOWN) << value;
    }
    // The formatter must find this overload and not fall back to the integer.
    EXPECT_EQ(StringUtils::FormatString("state %s.", VisitorIdAuthenticationState::LOGGED_OUT),
              "state \"logged_out\".");
    EXPECT_EQ(StringUtils::ToString(static_cast<VisitorIdAuthenticationState>(9)), "\"unknown\"");
}

}  // namespace
