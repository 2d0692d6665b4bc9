#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "SdkError.h"
#include "StringUtils.h"
#include "VisitorId.h"

using namespace VelmoraMobile;

namespace {

SdkError ConstructionError(const std::string& id_type) {
    try {
        VisitorId id("d_cid_ic", id_type, "value", VisitorIdAuthenticationState::AUTHENTICATED);
    } catch (const SdkError& error) {
        return error;
    }
    ADD_FAILURE() << "no error for id type \"" << id_type << "\"";
    return SdkError("", "", DebugInfo());
}

TEST(VisitorIdTest, ConstructorCleansTypeAndKeepsTheRestAsGiven) {
    VisitorId id("", "..my id$type..", "", static_cast<VisitorIdAuthenticationState>(7));
    EXPECT_EQ(id.id_origin, "");
    EXPECT_EQ(id.id_type, "myidtype");
    EXPECT_EQ(id.id, "");
    EXPECT_EQ(static_cast<int>(id.authentication_state), 7);
}

TEST(VisitorIdTest, TypeThatCleansToNothingThrowsTheInvalidArgumentError) {
    for (const std::string& raw : std::vector<std::string>{"", "...", "$%& -", "\xC3\xA9"}) {
        SdkError error = ConstructionError(raw);
        EXPECT_EQ(error.GetCode(), "std.logic_error.invalid_argument") << raw;
        EXPECT_EQ(error.GetMessage(), "Failed to initialize VisitorId object, id type is empty") << raw;
        const DebugInfo& where = error.GetDebugInfo();
        EXPECT_NE(where.file.find("code/src/identity/VisitorId"), std::string::npos) << where.file;
        EXPECT_GT(where.line, 0);
        EXPECT_FALSE(where.stack_trace.empty());
    }
}

TEST(VisitorIdTest, EqualsComparesCleanedIdTypeOnly) {
    auto first = std::make_shared<VisitorId>("d_cid_ic", "crm.id", "a", VisitorIdAuthenticationState::AUTHENTICATED);
    auto same_after_cleaning =
        std::make_shared<VisitorId>("other", ".crm..id!", "b", VisitorIdAuthenticationState::LOGGED_OUT);
    auto other_case =
        std::make_shared<VisitorId>("d_cid_ic", "CRM.id", "a", VisitorIdAuthenticationState::AUTHENTICATED);
    auto prefix = std::make_shared<VisitorId>("d_cid_ic", "crm", "a", VisitorIdAuthenticationState::AUTHENTICATED);

    EXPECT_TRUE(first->Equals(same_after_cleaning));
    EXPECT_TRUE(same_after_cleaning->Equals(first));
    EXPECT_FALSE(first->Equals(other_case));
    EXPECT_FALSE(first->Equals(prefix));
    EXPECT_FALSE(prefix->Equals(first));
    EXPECT_FALSE(first->Equals(nullptr));
}

TEST(VisitorIdAuthenticationStateTest, IntegerConversionMapsEverythingElseToUnknown) {
    EXPECT_EQ(IntegerToVisitorIdAuthenticationState(0), VisitorIdAuthenticationState::UNKNOWN);
    EXPECT_EQ(IntegerToVisitorIdAuthenticationState(1), VisitorIdAuthenticationState::AUTHENTICATED);
    EXPECT_EQ(IntegerToVisitorIdAuthenticationState(2), VisitorIdAuthenticationState::LOGGED_OUT);
    for (int value : {3, -1, 9, 1 << 30, -(1 << 30)}) {
        EXPECT_EQ(IntegerToVisitorIdAuthenticationState(value), VisitorIdAuthenticationState::UNKNOWN) << value;
    }
}

TEST(VisitorIdAuthenticationStateTest, TextFormsAndQuotedFormatterOutput) {
    EXPECT_EQ(AuthenticationStateToString(VisitorIdAuthenticationState::UNKNOWN), "unknown");
    EXPECT_EQ(AuthenticationStateToString(VisitorIdAuthenticationState::AUTHENTICATED), "authenticated");
    EXPECT_EQ(AuthenticationStateToString(VisitorIdAuthenticationState::LOGGED_OUT), "logged_out");
    auto out_of_range = static_cast<VisitorIdAuthenticationState>(9);
    EXPECT_EQ(AuthenticationStateToString(out_of_range), "unknown");

    // The formatter must find this overload and not fall back to the integer.
    EXPECT_EQ(StringUtils::FormatString("state %s.", VisitorIdAuthenticationState::LOGGED_OUT),
              "state \"logged_out\".");
    EXPECT_EQ(StringUtils::ToString(out_of_range), "\"unknown\"");
}

}  // namespace
