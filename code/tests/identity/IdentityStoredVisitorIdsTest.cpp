#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Identity.h"
#include "IdentitySyncTestSupport.h"
#include "LogCapture.h"
#include "VisitorId.h"

using namespace VelmoraMobile;
using VelmoraTest::CountIdentityLines;
using VelmoraTest::LogCapture;

namespace {

using Ids = std::vector<std::shared_ptr<VisitorId>>;

const std::string EXAMPLE = "&d_cid_ic=crm%01abc%011&d_cid_ic=loyalty%0177%012";

// The stored string is pure text work: an Identity off the bus is enough.
class IdentityStoredVisitorIdsTest : public ::testing::Test {
protected:
    std::shared_ptr<Identity> identity = std::make_shared<Identity>();
    LogCapture capture{LoggingMode::DEBUG_LOG};

    std::shared_ptr<VisitorId> Id(const std::string& origin, const std::string& type, const std::string& id,
                                  VisitorIdAuthenticationState state) {
        return std::make_shared<VisitorId>(origin, type, id, state);
    }

    size_t DebugLines(const std::string& message) {
        return CountIdentityLines(capture, LoggingMode::DEBUG_LOG, message);
    }
};

void ExpectId(const std::shared_ptr<VisitorId>& id, const std::string& origin, const std::string& type,
              const std::string& value, VisitorIdAuthenticationState state) {
    ASSERT_NE(id, nullptr);
    EXPECT_EQ(id->id_origin, origin);
    EXPECT_EQ(id->id_type, type);
    EXPECT_EQ(id->id, value);
    EXPECT_EQ(id->authentication_state, state);
}

}  // namespace

TEST_F(IdentityStoredVisitorIdsTest, WritesAndReadsBackTheExampleString) {
    // The writer always writes "d_cid_ic", whatever origin the record has.
    Ids ids{Id("somewhere", "crm", "abc", VisitorIdAuthenticationState::AUTHENTICATED),
            Id("d_cid_ic", "loyalty", "77", VisitorIdAuthenticationState::LOGGED_OUT)};
    EXPECT_EQ(identity->ConvertVisitorIdObjectsVisitorIDsString(ids), EXAMPLE);

    Ids loaded = identity->ConvertVisitorIDsStringToVisitorIdObjects(EXAMPLE);
    ASSERT_EQ(loaded.size(), 2u);
    ExpectId(loaded[0], "d_cid_ic", "crm", "abc", VisitorIdAuthenticationState::AUTHENTICATED);
    ExpectId(loaded[1], "d_cid_ic", "loyalty", "77", VisitorIdAuthenticationState::LOGGED_OUT);
    // The leading "&" gives one empty token per load: logged, nothing lost.
    EXPECT_EQ(DebugLines("ID Service - Unable to load Customer ID from empty string: "), 1u);
    EXPECT_EQ(CountIdentityLines(capture), 1u);
}

TEST_F(IdentityStoredVisitorIdsTest, EmptyListAndEmptyStringAreSilentOpposites) {
    EXPECT_EQ(identity->ConvertVisitorIdObjectsVisitorIDsString({}), "");
    EXPECT_TRUE(identity->ConvertVisitorIDsStringToVisitorIdObjects("").empty());
    EXPECT_EQ(CountIdentityLines(capture), 0u);
}

TEST_F(IdentityStoredVisitorIdsTest, WritesRawTextAndEveryRecord) {
    // Nothing is encoded and an empty id is not filtered out.
    Ids ids{Id("d_cid_ic", "crm", "", VisitorIdAuthenticationState::UNKNOWN),
            Id("d_cid_ic", "mail", "a b@c.d", VisitorIdAuthenticationState::AUTHENTICATED),
            Id("d_cid_ic", "odd", "x", static_cast<VisitorIdAuthenticationState>(9))};
    EXPECT_EQ(identity->ConvertVisitorIdObjectsVisitorIDsString(ids),
              "&d_cid_ic=crm%01%010&d_cid_ic=mail%01a b@c.d%011&d_cid_ic=odd%01x%019");
}

TEST_F(IdentityStoredVisitorIdsTest, EmptyIdSurvivesARoundTrip) {
    Ids loaded = identity->ConvertVisitorIDsStringToVisitorIdObjects(identity->ConvertVisitorIdObjectsVisitorIDsString(
        {Id("d_cid_ic", "crm", "", VisitorIdAuthenticationState::LOGGED_OUT)}));
    ASSERT_EQ(loaded.size(), 1u);
    ExpectId(loaded[0], "d_cid_ic", "crm", "", VisitorIdAuthenticationState::LOGGED_OUT);
}

TEST_F(IdentityStoredVisitorIdsTest, LoneAmpersandGivesNothing) {
    EXPECT_TRUE(identity->ConvertVisitorIDsStringToVisitorIdObjects("&").empty());
    EXPECT_EQ(DebugLines("ID Service - Unable to load Customer ID from empty string: "), 2u);
    EXPECT_EQ(CountIdentityLines(capture), 2u);
}

TEST_F(IdentityStoredVisitorIdsTest, EntryWithoutEqualsIsSkippedAndItsNeighboursLoad) {
    Ids loaded = identity->ConvertVisitorIDsStringToVisitorIdObjects(
        "&d_cid_ic=crm%01abc%011&d_cid_ic&d_cid_ic=loyalty%0177%012");
    ASSERT_EQ(loaded.size(), 2u);
    EXPECT_EQ(loaded[0]->id_type, "crm");
    EXPECT_EQ(loaded[1]->id_type, "loyalty");
    EXPECT_EQ(DebugLines("ID Service - Unable to load Customer ID from defaults: d_cid_ic"), 1u);
}

TEST_F(IdentityStoredVisitorIdsTest, MissingNameOrValueLogsTheWholePart) {
    Ids loaded = identity->ConvertVisitorIDsStringToVisitorIdObjects("=crm%01abc%011&d_cid_ic=&x=crm%01abc%011");
    ASSERT_EQ(loaded.size(), 1u);
    // Whatever stands before the "=" becomes the origin.
    ExpectId(loaded[0], "x", "crm", "abc", VisitorIdAuthenticationState::AUTHENTICATED);
    EXPECT_EQ(DebugLines("ID Service - Unable to load Customer ID from defaults, name or value was undefined: "
                         "=crm%01abc%011"),
              1u);
    EXPECT_EQ(
        DebugLines("ID Service - Unable to load Customer ID from defaults, name or value was undefined: d_cid_ic="),
        1u);
}

TEST_F(IdentityStoredVisitorIdsTest, WrongFieldCountLogsTheValueOnly) {
    Ids loaded = identity->ConvertVisitorIDsStringToVisitorIdObjects(
        "d_cid_ic=crm%01abc&d_cid_ic=crm%01abc%011%01extra&d_cid_ic=ok%01v%012");
    ASSERT_EQ(loaded.size(), 1u);
    EXPECT_EQ(loaded[0]->id_type, "ok");
    EXPECT_EQ(DebugLines("ID Service - Identifier has malformed value: crm%01abc"), 1u);
    EXPECT_EQ(DebugLines("ID Service - Identifier has malformed value: crm%01abc%011%01extra"), 1u);
}

TEST_F(IdentityStoredVisitorIdsTest, BadStateOrTypeCostsOnlyThatEntry) {
    Ids loaded = identity->ConvertVisitorIDsStringToVisitorIdObjects(
        "&d_cid_ic=crm%01abc%01x"            // not a number
        "&d_cid_ic=big%01abc%0199999999999"  // out of the integer range
        "&d_cid_ic=!!%01abc%011"             // type cleans to nothing
        "&d_cid_ic=good%01v%012");
    ASSERT_EQ(loaded.size(), 1u);
    ExpectId(loaded[0], "d_cid_ic", "good", "v", VisitorIdAuthenticationState::LOGGED_OUT);
    EXPECT_EQ(DebugLines("Unable to create VisitorID object (stoi)"), 2u);
    EXPECT_EQ(DebugLines("Unable to create VisitorID object (Failed to initialize VisitorId object, id type is empty)"),
              1u);
}

TEST_F(IdentityStoredVisitorIdsTest, StatesAreMappedAndTrailingTextIgnored) {
    Ids loaded = identity->ConvertVisitorIDsStringToVisitorIdObjects(
        "d_cid_ic=a%01x%017&d_cid_ic=b%01y%01-1&d_cid_ic=c%01z%012abc&d_cid_ic=d.d%01w%011");
    ASSERT_EQ(loaded.size(), 4u);
    EXPECT_EQ(loaded[0]->authentication_state, VisitorIdAuthenticationState::UNKNOWN);
    EXPECT_EQ(loaded[1]->authentication_state, VisitorIdAuthenticationState::UNKNOWN);
    EXPECT_EQ(loaded[2]->authentication_state, VisitorIdAuthenticationState::LOGGED_OUT);
    EXPECT_EQ(loaded[3]->id_type, "d.d");
    // An out-of-range state is written back as 0.
    EXPECT_EQ(identity->ConvertVisitorIdObjectsVisitorIDsString({loaded[0]}), "&d_cid_ic=a%01x%010");
}

TEST_F(IdentityStoredVisitorIdsTest, UnencodedSpecialCharactersInIds) {
    // "&" and "%01" inside an id break its entry on the way back; "=" survives.
    Ids ids{Id("d_cid_ic", "amp", "a&b", VisitorIdAuthenticationState::AUTHENTICATED),
            Id("d_cid_ic", "delim", "a%01b", VisitorIdAuthenticationState::AUTHENTICATED),
            Id("d_cid_ic", "eq", "a=b", VisitorIdAuthenticationState::AUTHENTICATED)};
    Ids loaded =
        identity->ConvertVisitorIDsStringToVisitorIdObjects(identity->ConvertVisitorIdObjectsVisitorIDsString(ids));
    ASSERT_EQ(loaded.size(), 1u);
    ExpectId(loaded[0], "d_cid_ic", "eq", "a=b", VisitorIdAuthenticationState::AUTHENTICATED);
    EXPECT_EQ(DebugLines("ID Service - Identifier has malformed value: amp%01a"), 1u);
    EXPECT_EQ(DebugLines("ID Service - Unable to load Customer ID from defaults: b%011"), 1u);
    EXPECT_EQ(DebugLines("ID Service - Identifier has malformed value: delim%01a%01b%011"), 1u);
}

TEST_F(IdentityStoredVisitorIdsTest, ControlByteIsNoDelimiter) {
    Ids loaded =
        identity->ConvertVisitorIDsStringToVisitorIdObjects(std::string("d_cid_ic=crm\x01"
                                                                        "abc\x01"
                                                                        "1"));
    EXPECT_TRUE(loaded.empty());
    EXPECT_EQ(DebugLines(std::string("ID Service - Identifier has malformed value: crm\x01"
                                     "abc\x01"
                                     "1")),
              1u);
}
