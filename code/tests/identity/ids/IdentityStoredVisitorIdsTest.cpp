#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "identity/ids/VisitorId.h"
#include "identity/module/Identity.h"
#include "tests/support/LogCapture.h"

using namespace VelmoraMobile;
using VelmoraTest::LogCapture;

namespace {

using Ids = std::vector<std::shared_ptr<VisitorId>>;
using State = VisitorIdAuthenticationState;
using Lines = std::vector<std::string>;

const std::string EXAMPLE = "&d_cid_ic=crm%01abc%011&d_cid_ic=loyalty%0177%012";
const std::string EMPTY_TOKEN = "ID Service - Unable to load Customer ID from empty string: ";
const std::string MALFORMED = "ID Service - Identifier has malformed value: ";
const std::string UNDEFINED = "ID Service - Unable to load Customer ID from defaults, name or value was undefined: ";
const std::string NO_EQUALS = "ID Service - Unable to load Customer ID from defaults: ";
const std::string BAD_STATE = "Unable to create VisitorID object (stoi)";
const std::string EMPTY_TYPE =
    "Unable to create VisitorID object (Failed to initialize VisitorId object, id type is empty)";

std::shared_ptr<VisitorId> Id(const std::string& origin, const std::string& type, const std::string& id, State state) {
    return std::make_shared<VisitorId>(origin, type, id, state);
}

// Each id as "origin:type:id:state".
Lines Describe(const Ids& ids) {
    Lines out;
    for (const auto& id : ids) {
        out.push_back(id->id_origin + ":" + id->id_type + ":" + id->id + ":" +
                      std::to_string(static_cast<int>(id->authentication_state)));
    }
    return out;
}

// The identity module's debug lines, in order.
Lines DebugLines(const LogCapture& capture) {
    Lines out;
    for (const auto& line : capture.Lines()) {
        if (line.tag == "com.velmora.module.identity" && line.mode == LoggingMode::DEBUG_LOG) {
            out.push_back(line.message);
        }
    }
    return out;
}

}  // namespace

// The stored string is pure text work: an Identity off the bus is enough.
TEST(IdentityStoredVisitorIdsTest, WritesAndReadsBackTheExampleString) {
    auto identity = std::make_shared<Identity>();
    LogCapture capture(LoggingMode::DEBUG_LOG);
    // The writer always writes "d_cid_ic", whatever origin the record has.
    Ids ids{Id("somewhere", "crm", "abc", State::AUTHENTICATED), Id("d_cid_ic", "loyalty", "77", State::LOGGED_OUT)};
    EXPECT_EQ(identity->ConvertVisitorIdObjectsVisitorIDsString(ids), EXAMPLE);
    EXPECT_EQ(Describe(identity->ConvertVisitorIDsStringToVisitorIdObjects(EXAMPLE)),
              (Lines{"d_cid_ic:crm:abc:1", "d_cid_ic:loyalty:77:2"}));
    // The leading "&" gives one empty token per load: logged, nothing lost.
    EXPECT_EQ(DebugLines(capture), Lines{EMPTY_TOKEN});

    // Nothing is encoded, empty ids are kept, out-of-range states are written as they stand.
    EXPECT_EQ(identity->ConvertVisitorIdObjectsVisitorIDsString({Id("d_cid_ic", "crm", "", State::LOGGED_OUT),
                                                                 Id("d_cid_ic", "mail", "a b&c", State::UNKNOWN),
                                                                 Id("d_cid_ic", "odd", "x", static_cast<State>(9))}),
              "&d_cid_ic=crm%01%012&d_cid_ic=mail%01a b&c%010&d_cid_ic=odd%01x%019");
    EXPECT_EQ(Describe(identity->ConvertVisitorIDsStringToVisitorIdObjects("&d_cid_ic=crm%01%012")),
              Lines{"d_cid_ic:crm::2"});

    capture.Clear();
    EXPECT_EQ(identity->ConvertVisitorIdObjectsVisitorIDsString({}), "");
    EXPECT_TRUE(identity->ConvertVisitorIDsStringToVisitorIdObjects("").empty());
    EXPECT_TRUE(DebugLines(capture).empty());
}

TEST(IdentityStoredVisitorIdsTest, DamagedEntriesAreLoggedAndSkippedAndTheirNeighboursLoad) {
    struct Case {
        std::string stored;
        Lines loaded;
        Lines log;
    };
    const std::vector<Case> cases = {
        {"&", {}, {EMPTY_TOKEN, EMPTY_TOKEN}},
        {"d_cid_ic=crm%01abc%011&d_cid_ic&d_cid_ic=l%0177%012",
         {"d_cid_ic:crm:abc:1", "d_cid_ic:l:77:2"},
         {NO_EQUALS + "d_cid_ic"}},
        // Whatever stands before the "=" becomes the origin.
        {"=crm%01abc%011&d_cid_ic=&x=crm%01abc%011",
         {"x:crm:abc:1"},
         {UNDEFINED + "=crm%01abc%011", UNDEFINED + "d_cid_ic="}},
        // Wrong field counts.
        {"d_cid_ic=crm%01abc&d_cid_ic=crm%01abc%011%01extra&d_cid_ic=ok%01v%012",
         {"d_cid_ic:ok:v:2"},
         {MALFORMED + "crm%01abc", MALFORMED + "crm%01abc%011%01extra"}},
        // Non-numeric state, state beyond the integer range, type that cleans to nothing.
        {"d_cid_ic=crm%01abc%01x", {}, {BAD_STATE}},
        {"d_cid_ic=big%01abc%0199999999999", {}, {BAD_STATE}},
        {"d_cid_ic=!!%01abc%011", {}, {EMPTY_TYPE}},
        // "&" and "%01" inside an id break its entry; "=" survives.
        {"d_cid_ic=amp%01a&b%011&d_cid_ic=eq%01a=b%011",
         {"d_cid_ic:eq:a=b:1"},
         {MALFORMED + "amp%01a", NO_EQUALS + "b%011"}},
        {"d_cid_ic=delim%01a%01b%011", {}, {MALFORMED + "delim%01a%01b%011"}},
        // A raw control byte is no delimiter.
        {"d_cid_ic=crm\001abc\0011", {}, {MALFORMED + "crm\001abc\0011"}},
        // Unknown states map to UNKNOWN, trailing text after the number is ignored, "." is kept.
        {"d_cid_ic=a%01x%017&d_cid_ic=b%01y%01-1&d_cid_ic=c%01z%012abc&d_cid_ic=d.d%01w%011",
         {"d_cid_ic:a:x:0", "d_cid_ic:b:y:0", "d_cid_ic:c:z:2", "d_cid_ic:d.d:w:1"},
         {}},
    };
    auto identity = std::make_shared<Identity>();
    for (const auto& c : cases) {
        LogCapture capture(LoggingMode::DEBUG_LOG);
        EXPECT_EQ(Describe(identity->ConvertVisitorIDsStringToVisitorIdObjects(c.stored)), c.loaded) << c.stored;
        EXPECT_EQ(DebugLines(capture), c.log) << c.stored;
    }
}
