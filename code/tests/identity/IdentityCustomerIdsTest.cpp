#include <gtest/gtest.h>

#include <map>
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
using State = VisitorIdAuthenticationState;

// Generation and merge only touch customer_ids: an Identity off the bus is enough.
class IdentityCustomerIdsTest : public ::testing::Test {
protected:
    std::shared_ptr<Identity> identity = std::make_shared<Identity>();

    static std::shared_ptr<VisitorId> Id(const std::string& type, const std::string& id, State state,
                                         const std::string& origin = "d_cid_ic") {
        return std::make_shared<VisitorId>(origin, type, id, state);
    }
};

std::vector<std::string> Types(const Ids& ids) {
    std::vector<std::string> types;
    for (const auto& id : ids) types.push_back(id->id_type);
    return types;
}

}  // namespace

TEST_F(IdentityCustomerIdsTest, GeneratesInKeyOrderWithTheAdvertisingIdAlwaysAuthenticated) {
    Ids ids = identity->GenerateCustomerIds({{"crm", "abc"}, {"DSID_20915", "AAAA-BBBB"}, {"loyalty", ""}},
                                            State::LOGGED_OUT);
    ASSERT_EQ(ids.size(), 3u);
    EXPECT_EQ(Types(ids), (std::vector<std::string>{"DSID_20915", "crm", "loyalty"}));
    EXPECT_EQ(ids[0]->id, "AAAA-BBBB");
    EXPECT_EQ(ids[0]->authentication_state, State::AUTHENTICATED);
    EXPECT_EQ(ids[1]->authentication_state, State::LOGGED_OUT);
    // An empty value is not looked at.
    EXPECT_EQ(ids[2]->id, "");
    EXPECT_EQ(ids[2]->authentication_state, State::LOGGED_OUT);
    for (const auto& id : ids) EXPECT_EQ(id->id_origin, "d_cid_ic");

    EXPECT_TRUE(identity->GenerateCustomerIds({}, State::AUTHENTICATED).empty());
}

TEST_F(IdentityCustomerIdsTest, OnlyTheExactAdvertisingKeyIsForcedToAuthenticated) {
    // "DSID_20915." cleans to the same type but is not the advertising id's key.
    Ids ids = identity->GenerateCustomerIds({{"DSID_20915.", "x"}}, State::UNKNOWN);
    ASSERT_EQ(ids.size(), 1u);
    EXPECT_EQ(ids[0]->id_type, "DSID_20915");
    EXPECT_EQ(ids[0]->authentication_state, State::UNKNOWN);
}

TEST_F(IdentityCustomerIdsTest, KeyThatCleansToNothingIsLoggedAndSkipped) {
    LogCapture capture(LoggingMode::DEBUG_LOG);
    Ids ids = identity->GenerateCustomerIds({{"!!!", "lost"}, {"a", "1"}, {"zz", "2"}}, State::AUTHENTICATED);
    EXPECT_EQ(Types(ids), (std::vector<std::string>{"a", "zz"}));
    EXPECT_EQ(CountIdentityLines(capture, LoggingMode::DEBUG_LOG,
                                 "Unable to create VisitorID object (Failed to initialize VisitorId object, id type is "
                                 "empty)"),
              1u);
}

TEST_F(IdentityCustomerIdsTest, MergeReplacesInPlaceAndAppendsNewTypes) {
    auto crm = Id("crm", "old", State::AUTHENTICATED, "stored-origin");
    auto loyalty = Id("loyalty", "77", State::AUTHENTICATED);
    identity->customer_ids = {crm, loyalty};

    Ids merged = identity->MergeCustomerIds(
        {Id("email", "e@x", State::UNKNOWN), Id("crm", "new", State::LOGGED_OUT, "other-origin")});

    EXPECT_EQ(Types(merged), (std::vector<std::string>{"crm", "loyalty", "email"}));
    // The existing record itself is overwritten, keeping its place and its origin.
    EXPECT_EQ(merged[0], crm);
    EXPECT_EQ(crm->id, "new");
    EXPECT_EQ(crm->authentication_state, State::LOGGED_OUT);
    EXPECT_EQ(crm->id_origin, "stored-origin");
    EXPECT_EQ(merged[1], loyalty);
    EXPECT_EQ(loyalty->id, "77");
    // The module's own list sees the overwrite at once but is not assigned.
    ASSERT_EQ(identity->customer_ids.size(), 2u);
    EXPECT_EQ(identity->customer_ids[0]->id, "new");
}

TEST_F(IdentityCustomerIdsTest, EmptyValueBlanksButNeverRemoves) {
    identity->customer_ids = {Id("crm", "abc", State::AUTHENTICATED)};
    Ids merged = identity->MergeCustomerIds({Id("crm", "", State::LOGGED_OUT)});
    ASSERT_EQ(merged.size(), 1u);
    EXPECT_EQ(merged[0]->id, "");
    EXPECT_EQ(merged[0]->authentication_state, State::LOGGED_OUT);
}

TEST_F(IdentityCustomerIdsTest, MergeIntoEmptyAndMergeOfNothing) {
    Ids fresh{Id("b", "1", State::UNKNOWN), Id("a", "2", State::UNKNOWN)};
    Ids merged = identity->MergeCustomerIds(fresh);
    EXPECT_EQ(merged, fresh);

    identity->customer_ids = merged;
    Ids same = identity->MergeCustomerIds({});
    EXPECT_EQ(same, identity->customer_ids);
}

TEST_F(IdentityCustomerIdsTest, TwoKeysOfOneCleanedTypeGoOutTwiceAndMergeToOne) {
    Ids ids = identity->GenerateCustomerIds({{"c-rm", "first"}, {"crm", "second"}}, State::AUTHENTICATED);
    ASSERT_EQ(ids.size(), 2u);
    EXPECT_EQ(Types(ids), (std::vector<std::string>{"crm", "crm"}));
    Ids merged = identity->MergeCustomerIds(ids);
    ASSERT_EQ(merged.size(), 1u);
    EXPECT_EQ(merged[0]->id, "second");
}
