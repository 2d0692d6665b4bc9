#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Identity.h"
#include "IdentityHarness.h"
#include "IdentitySyncTestSupport.h"
#include "VisitorId.h"

using namespace VelmoraMobile;
using VelmoraTest::IdentityHarness;
using VelmoraTest::MakeConfig;

namespace {

using Ids = std::vector<std::shared_ptr<VisitorId>>;
using State = VisitorIdAuthenticationState;

const std::string ORG = "1234ABCD5678EFGH";
const std::string MID = "01234567890123456789012345678901234567";

class IdentitySyncUrlTest : public ::testing::Test {
protected:
    void SetUp() override { harness.RegisterIdentity(); }

    // Sets the module's server-given fields and builds the URL inside the module's queue.
    std::string Build(const std::string& mid, const std::string& blob, const std::string& hint,
                      const std::map<std::string, std::string>& identifiers, State state,
                      const std::map<std::string, std::string>& dpids, bool ssl) {
        std::string url;
        harness.RunInIdentityQueue([&] {
            auto& identity = *harness.identity;
            identity.mid = mid;
            identity.blob = blob;
            identity.location_hint = hint;
            Ids ids = identity.GenerateCustomerIds(identifiers, state);
            url = identity.BuildUrlString(ids, dpids, MakeConfig(ORG, "identity.example", ssl));
        });
        return url;
    }

    IdentityHarness harness;
};

std::shared_ptr<VisitorId> Id(const std::string& type, const std::string& id, State state) {
    return std::make_shared<VisitorId>("d_cid_ic", type, id, state);
}

}  // namespace

TEST_F(IdentitySyncUrlTest, FullSyncWithAdvertisingIdAndPushToken) {
    EXPECT_EQ(Build(MID, "hmk_Lq6T", "9", {{"crm", "abc"}, {"DSID_20915", "AAAA-BBBB"}}, State::AUTHENTICATED,
                    {{"20920", "pushtoken"}}, true),
              "https://identity.example/id?d_rtbd=json&d_ver=2&d_orgid=1234ABCD5678EFGH"
              "&d_mid=01234567890123456789012345678901234567&d_blob=hmk_Lq6T&dcs_region=9"
              "&d_cid_ic=DSID_20915%01AAAA-BBBB%011&d_cid_ic=crm%01abc%011&d_cid=20920%01pushtoken");
}

TEST_F(IdentitySyncUrlTest, FirstSyncWithoutSslBlobOrHint) {
    EXPECT_EQ(Build(MID, "", "", {{"crm", ""}}, State::UNKNOWN, {}, false),
              "http://identity.example/id?d_rtbd=json&d_ver=2&d_orgid=1234ABCD5678EFGH"
              "&d_mid=01234567890123456789012345678901234567&d_cid_ic=crm%01%010");
}

TEST_F(IdentitySyncUrlTest, ForcedSyncWithoutMidOrIds) {
    EXPECT_EQ(Build("", "", "", {}, State::UNKNOWN, {}, true),
              "https://identity.example/id?d_rtbd=json&d_ver=2&d_orgid=1234ABCD5678EFGH");
}

TEST_F(IdentitySyncUrlTest, ServerValuesGoOutUnescapedWhileIdsAreEncoded) {
    std::string url = Build("m", "a+b/c=d&e", "x y", {{"e mail", "a b&c%01"}}, State::LOGGED_OUT,
                            {{"20920", ""}, {"1 2", "v&w"}}, true);
    EXPECT_EQ(url,
              "https://identity.example/id?d_rtbd=json&d_ver=2&d_orgid=1234ABCD5678EFGH&d_mid=m"
              "&d_blob=a+b/c=d&e&dcs_region=x y"
              "&d_cid_ic=email%01a%20b%26c%2501%012"
              "&d_cid=1%202%01v%26w&d_cid=20920%01");
}

TEST_F(IdentitySyncUrlTest, OnlyTheIdsPassedInAreSent) {
    std::string url;
    harness.RunInIdentityQueue([&] {
        auto& identity = *harness.identity;
        identity.customer_ids = {Id("stored", "old", State::AUTHENTICATED)};
        url = identity.BuildUrlString({}, {}, MakeConfig(ORG, "identity.example", false));
    });
    EXPECT_EQ(url, "http://identity.example/id?d_rtbd=json&d_ver=2&d_orgid=1234ABCD5678EFGH");
}

TEST(IdentitySyncUrlPiecesTest, CustomerIdString) {
    auto identity = std::make_shared<Identity>();
    EXPECT_EQ(identity->GenerateURLEncodedValuesCustomerIdString({}), "");
    EXPECT_EQ(
        identity->GenerateURLEncodedValuesCustomerIdString(
            {Id("a", "1", State::AUTHENTICATED), Id("b", "", State::UNKNOWN), Id("c", "3", static_cast<State>(9))}),
        "d_cid_ic=a%011%011&d_cid_ic=b%01%010&d_cid_ic=c%013%019");
}

TEST(IdentitySyncUrlPiecesTest, InternalIdString) {
    auto identity = std::make_shared<Identity>();
    EXPECT_EQ(identity->GenerateInternalIdString({}), "");
    EXPECT_EQ(identity->GenerateInternalIdString({{"20920", ""}}), "d_cid=20920%01");
    EXPECT_EQ(identity->GenerateInternalIdString({{"b", "2"}, {"a", "1"}}), "d_cid=a%011&d_cid=b%012");
}

TEST(IdentitySyncUrlPiecesTest, NullConfigurationUsesTheDefaults) {
    auto identity = std::make_shared<Identity>();
    EXPECT_EQ(identity->BuildUrlString({}, {}, nullptr), "https://id.velmora.net/id?d_rtbd=json&d_ver=2&d_orgid=");
}
