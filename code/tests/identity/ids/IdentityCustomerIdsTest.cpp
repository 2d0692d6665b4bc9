#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "identity/ids/VisitorId.h"
#include "identity/module/Identity.h"
#include "tests/identity/ids/IdentitySyncTestSupport.h"
#include "tests/support/LogCapture.h"

using namespace VelmoraMobile;
using VelmoraTest::CountIdentityLines;
using VelmoraTest::LogCapture;

namespace {

using Ids = std::vector<std::shared_ptr<VisitorId>>;
using State = VisitorIdAuthenticationState;

std::shared_ptr<VisitorId> Id(const std::string& type, const std::string& id, State state,
                              const std::string& origin = "d_cid_ic") {
    return std::make_shared<VisitorId>(origin, type, id, state);
}

// Each id as "origin:type:id:state".
std::vector<std::string> Describe(const Ids& ids) {
    std::vector<std::string> out;
    for (const auto& id : ids) {
        out.push_back(id->id_origin + ":" + id->id_type + ":" + id->id + ":" +
                      std::to_string(static_cast<int>(id->authentication_state)));
    }
    return out;
}

}  // namespace

// Generation and merge only touch customer_ids: an Identity off the bus is enough.
TEST(IdentityCustomerIdsTest, GeneratesInKeyOrderCleaningTypesAndAuthenticatingOnlyTheAdvertisingId) {
    auto identity = std::make_shared<Identity>();
    LogCapture capture(LoggingMode::DEBUG_LOG);
    EXPECT_EQ(
        Describe(identity->GenerateCustomerIds(
            {{"crm", "abc"}, {"DSID_20915", "AAAA-BBBB"}, {"loyalty", ""}, {"!!!", "lost"}}, State::LOGGED_OUT)),
        (std::vector<std::string>{"d_cid_ic:DSID_20915:AAAA-BBBB:1", "d_cid_ic:crm:abc:2", "d_cid_ic:loyalty::2"}));
    EXPECT_EQ(CountIdentityLines(capture, LoggingMode::DEBUG_LOG,
                                 "Unable to create VisitorID object (Failed to initialize VisitorId object, id type is "
                                 "empty)"),
              1u);
    // "DSID_20915." cleans to the same type but is not the advertising id's key.
    EXPECT_EQ(Describe(identity->GenerateCustomerIds({{"DSID_20915.", "x"}}, State::UNKNOWN)),
              std::vector<std::string>{"d_cid_ic:DSID_20915:x:0"});
    EXPECT_TRUE(identity->GenerateCustomerIds({}, State::AUTHENTICATED).empty());

    // Two keys of one cleaned type go out twice but merge to one.
    Ids twice = identity->GenerateCustomerIds({{"c-rm", "first"}, {"crm", "second"}}, State::AUTHENTICATED);
    EXPECT_EQ(twice.size(), 2u);
    EXPECT_EQ(Describe(identity->MergeCustomerIds(twice)), std::vector<std::string>{"d_cid_ic:crm:second:1"});
}

TEST(IdentityCustomerIdsTest, MergeOverwritesInPlaceAppendsNewTypesAndNeverRemoves) {
    auto identity = std::make_shared<Identity>();
    auto crm = Id("crm", "old", State::AUTHENTICATED, "stored-origin");
    auto loyalty = Id("loyalty", "77", State::AUTHENTICATED);
    identity->customer_ids = {crm, loyalty};

    Ids merged = identity->MergeCustomerIds({Id("email", "e@x", State::UNKNOWN),
                                             Id("crm", "new", State::LOGGED_OUT, "other-origin"),
                                             Id("loyalty", "", State::LOGGED_OUT)});
    EXPECT_EQ(Describe(merged),
              (std::vector<std::string>{"stored-origin:crm:new:2", "d_cid_ic:loyalty::2", "d_cid_ic:email:e@x:0"}));
    // The stored records themselves are overwritten: the module's list sees it at once.
    EXPECT_EQ(merged[0], crm);
    EXPECT_EQ(merged[1], loyalty);
    ASSERT_EQ(identity->customer_ids.size(), 2u);
    EXPECT_EQ(identity->customer_ids[0]->id, "new");

    identity->customer_ids = merged;
    EXPECT_EQ(identity->MergeCustomerIds({}), merged);
    identity->customer_ids.clear();
    EXPECT_EQ(identity->MergeCustomerIds(merged), merged);
}
