#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "EventData.h"
#include "SdkError.h"
#include "Variant.h"
#include "VisitorIdSerializer.h"

using namespace VelmoraMobile;

namespace {

using VisitorIdList = std::vector<std::shared_ptr<VisitorId>>;

std::shared_ptr<Variant> Entry(const std::shared_ptr<Variant>& origin, const std::shared_ptr<Variant>& type,
                               const std::shared_ptr<Variant>& id, const std::shared_ptr<Variant>& state) {
    Variant::VariantMap map;
    if (origin) map["id_origin"] = origin;
    if (type) map["id_type"] = type;
    if (id) map["id"] = id;
    if (state) map["authentication_state"] = state;
    return Variant::FromVariantMap(map);
}

std::shared_ptr<Variant> GoodEntry(const std::string& type, int state = 1) {
    return Entry(Variant::FromString("d_cid_ic"), Variant::FromString(type), Variant::FromString("value"),
                 Variant::FromInteger(state));
}

void ExpectError(const SdkError& error, const std::string& code, const std::string& message) {
    EXPECT_EQ(error.GetCode(), code);
    EXPECT_EQ(error.GetMessage(), message);
    // Returned errors carry an empty debug info.
    EXPECT_EQ(error.GetDebugInfo().file, "");
    EXPECT_EQ(error.GetDebugInfo().line, -1);
    EXPECT_EQ(error.GetDebugInfo().stack_trace, "");
}

TEST(VisitorIdSerializerTest, ListRoundTripKeepsOrderNullsAndFields) {
    auto edited = std::make_shared<VisitorId>("o1", "crm", "", VisitorIdAuthenticationState::AUTHENTICATED);
    // Fields are public: a type written past the constructor is cleaned again on the way back.
    edited->id_type = "a..b!";
    VisitorIdList ids{edited, nullptr,
                      std::make_shared<VisitorId>("", "t2", "v2", static_cast<VisitorIdAuthenticationState>(9))};

    auto variant = Variant::FromTypedVector(ids);
    Variant::VariantVector elements;
    Variant::VariantMap first;
    ASSERT_TRUE(variant->GetVariantVector(elements));
    ASSERT_TRUE(elements[0]->GetVariantMap(first));
    EXPECT_EQ(first.size(), 4u);  // exactly the four fields, nothing more
    auto back = variant->GetTypedVector<VisitorId>();
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
    EXPECT_EQ(list[2]->id_origin, "");
    EXPECT_EQ(list[2]->id, "v2");
    EXPECT_EQ(static_cast<int>(list[2]->authentication_state), 9);
}

TEST(VisitorIdSerializerTest, EmptyListIsAnEmptyVectorBothWays) {
    auto variant = Variant::FromTypedVector(VisitorIdList{});
    Variant::VariantVector elements{Variant::FromNull()};
    ASSERT_TRUE(variant->GetVariantVector(elements));
    EXPECT_TRUE(elements.empty());
    auto back = variant->GetTypedVector<VisitorId>();
    ASSERT_TRUE(back.HasValue());
    EXPECT_TRUE(back.Value().empty());
}

TEST(VisitorIdSerializerTest, DeserializeAcceptsNullAndExtraKeys) {
    VisitorIdSerializer serializer;
    auto null_result = serializer.Deserialize(*Variant::FromNull());
    ASSERT_TRUE(null_result.HasValue());
    EXPECT_EQ(null_result.Value(), nullptr);

    Variant::VariantMap map;
    ASSERT_TRUE(GoodEntry("crm")->GetVariantMap(map));
    map["unexpected"] = Variant::FromInteger(1);
    auto result = serializer.Deserialize(*Variant::FromVariantMap(map));
    ASSERT_TRUE(result.HasValue());
    EXPECT_EQ(result.Value()->id_type, "crm");
}

TEST(VisitorIdSerializerTest, WrongShapesGiveNotType) {
    VisitorIdSerializer serializer;
    auto s = [](const char* text) { return Variant::FromString(text); };
    std::vector<std::shared_ptr<Variant>> bad{
        Variant::FromString("not a map"),
        Variant::FromVariantVector({}),
        Entry(nullptr, s("t"), s("v"), Variant::FromInteger(1)),
        Entry(s("o"), nullptr, s("v"), Variant::FromInteger(1)),
        Entry(s("o"), s("t"), nullptr, Variant::FromInteger(1)),
        Entry(s("o"), s("t"), s("v"), nullptr),
        Entry(s("o"), s("t"), s("v"), s("1")),                // state as text
        Entry(s("o"), s("t"), s("v"), Variant::FromLong(1)),  // state as long
        Entry(s("o"), Variant::FromInteger(3), s("v"), Variant::FromInteger(1)),
        Entry(s("o"), s("t"), s("v"), Variant::FromNull()),
    };
    // A map entry that holds no Variant at all.
    Variant::VariantMap holey;
    ASSERT_TRUE(GoodEntry("t")->GetVariantMap(holey));
    holey["id"] = nullptr;
    bad.push_back(Variant::FromVariantMap(holey));

    for (size_t i = 0; i < bad.size(); ++i) {
        auto result = serializer.Deserialize(*bad[i]);
        ASSERT_FALSE(result.HasValue()) << "case " << i;
        ExpectError(result.Error(), "variant.not_type", "type error");
    }
}

TEST(VisitorIdSerializerTest, OneBadElementFailsTheWholeList) {
    auto variant = Variant::FromVariantVector({GoodEntry("first"),
                                               Entry(Variant::FromString("o"), Variant::FromString("t"),
                                                     Variant::FromString("v"), Variant::FromString("authenticated")),
                                               GoodEntry("third")});
    auto result = variant->GetTypedVector<VisitorId>();
    ASSERT_FALSE(result.HasValue());
    ExpectError(result.Error(), "variant.not_type", "type error");
    EXPECT_THROW(result.Value(), SdkError);
}

TEST(VisitorIdSerializerTest, NonVectorGivesNotVector) {
    for (const auto& variant : {Variant::FromNull(), Variant::FromString("x"), GoodEntry("crm")}) {
        auto result = variant->GetTypedVector<VisitorId>();
        ASSERT_FALSE(result.HasValue());
        ExpectError(result.Error(), "variant.not_vector", "type conversion error");
    }
}

TEST(VisitorIdSerializerTest, TypeCleaningToNothingIsThrownNotReturned) {
    auto variant = Variant::FromVariantVector({GoodEntry("ok"), GoodEntry("$$$")});
    try {
        variant->GetTypedVector<VisitorId>();
        FAIL() << "expected the constructor's error to be thrown";
    } catch (const SdkError& error) {
        EXPECT_EQ(error.GetCode(), "std.logic_error.invalid_argument");
        EXPECT_EQ(error.GetMessage(), "Failed to initialize VisitorId object, id type is empty");
    }
}

TEST(VisitorIdSerializerTest, EventDataReadsTheListByKey) {
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

    EXPECT_THROW(data.GetTypedVector<VisitorId>("bad_type"), SdkError);
}

}  // namespace
