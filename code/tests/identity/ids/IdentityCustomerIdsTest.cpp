#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "identity/ids/VisitorId.h"
#include "identity/module/Identity.h"
#include "tests/identity/ids/IdentitySyncTestSupport.h"
#include "tests/support/LogCapture.h"

using namespace VelmoraMobile;
using VelmoraTest::DescribeIds;
using VelmoraTest::IdentityLines;
using VelmoraTest::LogCapture;

// Generation, merge and the stored string only touch customer_ids: an Identity off the bus is enough.
namespace {

using Ids = std::vector<std::shared_ptr<VisitorId>>;
using State = VisitorIdAuthenticationState;
using Lines = std::vector<std::string>;

const std::string EMPTY_TOKEN = "ID Service - Unable to load Customer ID from empty string: ";
const std::string MALFORMED = "ID Service - Identifier has malformed value: ";
const std::string UNDEFINED = "ID Service - Unable to load Customer ID from defaults, name or value was undefined: ";
const std::string NO_EQUALS = "ID Service - Unable to load Customer ID from defaults: ";
const std::string BAD_STATE = "Unable to create VisitorID object (stoi)";
const std::string EMPTY_TYPE =
    "Unable to create VisitorID object (Failed to initialize VisitorId object, id type is empty)";

std::shared_ptr<VisitorId> Id(const std::string& type, const std::string& id, State state,
                              const std::string& origin = "d_cid_ic") {
    return std::make_shared<VisitorId>(origin, type, id, state);
}

}  // namespace

TEST(IdentityCustomerIdsTest, GeneratesInKeyOrderMergesInPlaceStoresWithoutEncodingAndSkipsDamagedStoredEntries) {
    auto identity = std::make_shared<Identity>();
    LogCapture capture(LoggingMode::DEBUG_LOG);
    EXPECT_EQ(DescribeIds(identity->GenerateCustomerIds(
                  {{"crm", "abc"}, {"DSID_20915", "AAAA-BBBB"}, {"loyalty", ""}, {"!!!", "lost"}}, State::LOGGED_OUT)),
              (Lines{"d_cid_ic:DSID_20915:AAAA-BBBB:1", "d_cid_ic:crm:abc:2", "d_cid_ic:loyalty::2"}));
    EXPECT_EQ(IdentityLines(capture, LoggingMode::DEBUG_LOG), Lines{EMPTY_TYPE});
    // "DSID_20915." cleans to the same type but is not the advertising id's key.
    EXPECT_EQ(DescribeIds(identity->GenerateCustomerIds({{"DSID_20915.", "x"}}, State::UNKNOWN)),
              Lines{"d_cid_ic:DSID_20915:x:0"});
    // Two keys of one cleaned type go out twice but merge to one.
    Ids twice = identity->GenerateCustomerIds({{"c-rm", "first"}, {"crm", "second"}}, State::AUTHENTICATED);
    EXPECT_EQ(twice.size(), 2u);
    EXPECT_EQ(DescribeIds(identity->MergeCustomerIds(twice)), Lines{"d_cid_ic:crm:second:1"});

    // Merge overwrites in place, appends new types and never removes.
    auto crm = Id("crm", "old", State::AUTHENTICATED, "stored-origin");
    identity->customer_ids = {crm, Id("loyalty", "77", State::AUTHENTICATED)};
    Ids merged = identity->MergeCustomerIds({Id("email", "e@x", State::UNKNOWN),
                                             Id("crm", "new", State::LOGGED_OUT, "other-origin"),
                                             Id("loyalty", "", State::LOGGED_OUT)});
    EXPECT_EQ(DescribeIds(merged), (Lines{"stored-origin:crm:new:2", "d_cid_ic:loyalty::2", "d_cid_ic:email:e@x:0"}));
    // The stored record itself is overwritten: the module's list sees it at once.
    EXPECT_EQ(merged[0], crm);
    identity->customer_ids = merged;
    EXPECT_EQ(identity->MergeCustomerIds({}), merged);

    // The stored string's writer always writes "d_cid_ic"; nothing is encoded, out-of-range states stand as they are.
    EXPECT_EQ(identity->ConvertVisitorIdObjectsVisitorIDsString(
                  {Id("crm", "abc", State::AUTHENTICATED, "somewhere"), Id("loyalty", "77", State::LOGGED_OUT),
                   Id("mail", "a b&c", State::UNKNOWN), Id("odd", "", static_cast<State>(9)),
                   Id("big", "b", static_cast<State>(12)), Id("neg", "n", static_cast<State>(-3))}),
              "&d_cid_ic=crm%01abc%011&d_cid_ic=loyalty%0177%012&d_cid_ic=mail%01a b&c%010&d_cid_ic=odd%01%019"
              "&d_cid_ic=big%01b%0112&d_cid_ic=neg%01n%01-3");
    EXPECT_EQ(identity->ConvertVisitorIdObjectsVisitorIDsString({}), "");

    // The stored string loads back; damaged entries are logged and skipped.
    const struct {
        std::string stored;
        Lines loaded;
        Lines log;
    } cases[] = {
        // The writer's leading "&" gives one empty token per load: logged, nothing lost.
        {"&d_cid_ic=crm%01abc%011&d_cid_ic=l%01%012", {"d_cid_ic:crm:abc:1", "d_cid_ic:l::2"}, {EMPTY_TOKEN}},
        {"", {}, {}},
        {"&", {}, {EMPTY_TOKEN, EMPTY_TOKEN}},
        {"d_cid_ic=crm%01abc%011&d_cid_ic&d_cid_ic=l%0177%012",
         {"d_cid_ic:crm:abc:1", "d_cid_ic:l:77:2"},
         {NO_EQUALS + "d_cid_ic"}},
        // Whatever stands before the "=" becomes the origin.
        {"=crm%01abc%011&d_cid_ic=&x=crm%01abc%011",
         {"x:crm:abc:1"},
         {UNDEFINED + "=crm%01abc%011", UNDEFINED + "d_cid_ic="}},
        // A raw control byte is no delimiter.
        {"d_cid_ic=crm%01abc&d_cid_ic=crm%01abc%011%01extra&d_cid_ic=crm\001abc\0011&d_cid_ic=ok%01v%012",
         {"d_cid_ic:ok:v:2"},
         {MALFORMED + "crm%01abc", MALFORMED + "crm%01abc%011%01extra", MALFORMED + "crm\001abc\0011"}},
        {"d_cid_ic=crm%01abc%01x&d_cid_ic=big%01abc%0199999999999", {}, {BAD_STATE, BAD_STATE}},
        {"d_cid_ic=!!%01abc%011", {}, {EMPTY_TYPE}},
        // "&" and "%01" inside an id break its entry; "=" survives.
        {"d_cid_ic=amp%01a&b%011&d_cid_ic=eq%01a=b%011",
         {"d_cid_ic:eq:a=b:1"},
         {MALFORMED + "amp%01a", NO_EQUALS + "b%011"}},
        // Unknown states map to UNKNOWN, trailing text after the number is ignored, "." is kept.
        {"d_cid_ic=a%01x%017&d_cid_ic=b%01y%01-1&d_cid_ic=c%01z%012abc&d_cid_ic=d.d%01w%011",
         {"d_cid_ic:a:x:0", "d_cid_ic:b:y:0", "d_cid_ic:c:z:2", "d_cid_ic:d.d:w:1"},
         {}},
    };
    for (const auto& c : cases) {
        LogCapture capture(LoggingMode::DEBUG_LOG);
        EXPECT_EQ(DescribeIds(identity->ConvertVisitorIDsStringToVisitorIdObjects(c.stored)), c.loaded) << c.stored;
        EXPECT_EQ(IdentityLines(capture, LoggingMode::DEBUG_LOG), c.log) << c.stored;
    }
}
