#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "identity/ids/VisitorIdSerializer.h"
#include "runtime/bus/EventData.h"
#include "runtime/values/SdkError.h"
#include "runtime/values/Variant.h"

using namespace VelmoraMobile;

namespace {

using VisitorIdList = std::vector<std::shared_ptr<VisitorId>>;

std::shared_ptr<Variant> Entry(const std::shared_ptr<Variant>& type, const std::shared_ptr<Variant>& state) {
    Variant::VariantMap map{{"id_origin", Variant::FromString("d_cid_ic")}, {"id", Variant::FromString("value")}};
    if (type) map["id_type"] = type;
    if (state) map["authentication_state"] = state;
    return Variant::FromVariantMap(map);
}

std::shared_ptr<Variant> GoodEntry(const std::string& type) {
    return Entry(Variant::FromString(type), Variant::FromInteger(1));
}

void ExpectError(const SdkError& error, const std::string& code, const std::string& message) {
    EXPECT_EQ(error.GetCode(), code);
    EXPECT_EQ(error.GetMessage(), message);
}

TEST(VisitorIdSerializerTest, ListRoundTripKeepsOrderNullsAndFields) {
    auto edited = std::make_shared<VisitorId>("o1", "crm", "", VisitorIdAuthenticationState::AUTHENTICATED);
    edited->id_type = "a..b!";  // a type written past the constructor is cleaned on the way back
    VisitorIdList ids{edited, nullptr,
                      std::make_shared<VisitorId>("", "t2", "v2", static_cast<VisitorIdAuthenticationState>(9))};
    auto back = Variant::FromTypedVector(ids)->GetTypedVector<VisitorId>();
    ASSERT_TRUE(back.HasValue());
    const VisitorIdList& list = back.Value();
    ASSERT_EQ(list.size(), 3u);
    ASSERT_TRUE(list[0]);
    EXPECT_EQ(list[0]->id_origin, "o1");
    EXPECT_EQ(list[0]->id_type, "a.b");
    EXPECT_EQ(list[0]->id, "");
    EXPECT_EQ(list[0]->authentication_state, VisitorIdAuthenticationState::AUTHENTICATED);
    EXPECT_EQ(list[1], nullptr);
    ASSERT_TRUE(list[2]);
    EXPECT_EQ(list[2]->id, "v2");
    EXPECT_EQ(static_cast<int>(list[2]->authentication_state), 9);
}

TEST(VisitorIdSerializerTest, WrongShapesGiveNotTypeAndOneBadElementFailsTheWholeList) {
    for (const auto& bad : {Variant::FromString("not a map"), Entry(nullptr, Variant::FromInteger(1)),
                            Entry(Variant::FromInteger(3), Variant::FromInteger(1)),
                            Entry(Variant::FromString("t"), Variant::FromLong(1))}) {
        auto result = VisitorIdSerializer().Deserialize(*bad);
        ASSERT_FALSE(result.HasValue());
        ExpectError(result.Error(), "variant.not_type", "type error");
    }
    // The second of three has its state as text: no partial list comes back.
    auto list = Variant::FromVariantVector({GoodEntry("first"),
                                            Entry(Variant::FromString("t"), Variant::FromString("authenticated")),
                                            GoodEntry("third")})
                    ->GetTypedVector<VisitorId>();
    ASSERT_FALSE(list.HasValue());
    ExpectError(list.Error(), "variant.not_type", "type error");
    EXPECT_THROW(list.Value(), SdkError);
}

TEST(VisitorIdSerializerTest, EventDataReadsTheListByKeyWithTheThreeErrorCodes) {
    EventData data;
    data.PutVariant("visitoridslist", Variant::FromTypedVector(VisitorIdList{std::make_shared<VisitorId>(
                                          "d_cid_ic", "crm", "1", VisitorIdAuthenticationState::AUTHENTICATED)}));
    data.PutString("text", "not a list");
    data.PutVariant("bad_type", Variant::FromVariantVector({GoodEntry("$")}));

    auto found = data.GetTypedVector<VisitorId>("visitoridslist");
    ASSERT_TRUE(found.HasValue());
    ASSERT_EQ(found.Value().size(), 1u);
    EXPECT_EQ(found.Value()[0]->id_type, "crm");
    auto missing = data.GetTypedVector<VisitorId>("visitoridlist");
    ASSERT_FALSE(missing.HasValue());
    ExpectError(missing.Error(), "event_data.no_such_key", "key error");
    auto wrong_kind = data.GetTypedVector<VisitorId>("text");
    ASSERT_FALSE(wrong_kind.HasValue());
    ExpectError(wrong_kind.Error(), "variant.not_vector", "type conversion error");
    // A type that cleans to nothing is the constructor's error, thrown rather than returned.
    EXPECT_THROW(data.GetTypedVector<VisitorId>("bad_type"), SdkError);
}

}  // namespace
