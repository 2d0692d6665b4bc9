#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "identity/ids/VisitorIdSerializer.h"
#include "runtime/bus/EventData.h"
#include "runtime/values/SdkError.h"
#include "runtime/values/StringUtils.h"
#include "runtime/values/Variant.h"
#include "tests/identity/ids/IdentitySyncTestSupport.h"

using namespace VelmoraMobile;

namespace {

using State = VisitorIdAuthenticationState;
using VisitorIdList = std::vector<std::shared_ptr<VisitorId>>;

std::shared_ptr<Variant> Entry(const std::shared_ptr<Variant>& type, const std::shared_ptr<Variant>& state) {
    Variant::VariantMap map{{"id_origin", Variant::FromString("d_cid_ic")}, {"id", Variant::FromString("value")}};
    if (type) map["id_type"] = type;
    if (state) map["authentication_state"] = state;
    return Variant::FromVariantMap(map);
}

std::string Text(const SdkError& error) {
    return error.GetCode() + ": " + error.GetMessage();
}

TEST(VisitorIdTest, TypeIsCleanedAndComparedAloneListsRoundTripAndEachWrongShapeGivesItsError) {
    EXPECT_EQ(VisitorId("", "..my id$type..", "", State::LOGGED_OUT).id_type, "myidtype");
    for (const std::string raw : {"", "...", "$%& -", "\xC3\xA9"}) {
        EXPECT_THROW(VisitorId("d_cid_ic", raw, "value", State::AUTHENTICATED), SdkError) << raw;
    }
    auto first = std::make_shared<VisitorId>("d_cid_ic", "crm.id", "a", State::AUTHENTICATED);
    EXPECT_TRUE(first->Equals(std::make_shared<VisitorId>("o", ".crm..id!", "b", State::UNKNOWN)));
    EXPECT_FALSE(first->Equals(std::make_shared<VisitorId>("d_cid_ic", "CRM.id", "a", State::AUTHENTICATED)));
    EXPECT_FALSE(first->Equals(nullptr));

    EXPECT_EQ(IntegerToVisitorIdAuthenticationState(2), State::LOGGED_OUT);
    for (int value : {3, -1, 1 << 30}) EXPECT_EQ(IntegerToVisitorIdAuthenticationState(value), State::UNKNOWN) << value;
    // The formatter must find this overload and not fall back to the integer.
    EXPECT_EQ(StringUtils::FormatString("state %s.", State::LOGGED_OUT), "state \"logged_out\".");
    EXPECT_EQ(StringUtils::ToString(static_cast<State>(9)), "\"unknown\"");

    // A list round trip keeps order, nulls and fields.
    auto edited = std::make_shared<VisitorId>("o1", "crm", "", State::AUTHENTICATED);
    edited->id_type = "a..b!";  // a type written past the constructor is cleaned on the way back
    VisitorIdList ids{edited, nullptr, std::make_shared<VisitorId>("", "t2", "v2", static_cast<State>(9))};
    auto back = Variant::FromTypedVector(ids)->GetTypedVector<VisitorId>();
    ASSERT_TRUE(back.HasValue());
    EXPECT_EQ(VelmoraTest::DescribeIds(back.Value()), (std::vector<std::string>{"o1:a.b::1", "null", ":t2:v2:9"}));

    for (const auto& bad : {Variant::FromString("not a map"), Entry(nullptr, Variant::FromInteger(1)),
                            Entry(Variant::FromInteger(3), Variant::FromInteger(1)),
                            Entry(Variant::FromString("t"), Variant::FromLong(1))}) {
        auto result = VisitorIdSerializer().Deserialize(*bad);
        EXPECT_TRUE(!result.HasValue() && Text(result.Error()) == "variant.not_type: type error");
    }
    // A list's own errors; one bad element failing the whole list is pinned where the API reads an answer.
    EventData data;
    data.PutString("text", "not a list");
    auto error = [&](const std::string& key) {
        auto result = data.GetTypedVector<VisitorId>(key);
        return result.HasValue() ? "a list" : Text(result.Error());
    };
    EXPECT_EQ(error("missing"), "event_data.no_such_key: key error");
    EXPECT_EQ(error("text"), "variant.not_vector: type conversion error");
    // A type that cleans to nothing is the constructor's error, thrown rather than returned.
    try {
        (void)Variant::FromVariantVector({Entry(Variant::FromString("$"), Variant::FromInteger(1))})
            ->GetTypedVector<VisitorId>();
        ADD_FAILURE() << "no error for an empty type";
    } catch (const SdkError& error) {
        EXPECT_EQ(Text(error),
                  "std.logic_error.invalid_argument: Failed to initialize VisitorId object, id type is empty");
    }
}

}  // namespace
