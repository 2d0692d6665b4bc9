#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

#include "identity/ids/VisitorId.h"
#include "identity/module/Identity.h"
#include "tests/identity/ids/IdentitySyncTestSupport.h"
#include "tests/identity/support/IdentityHarness.h"

using namespace VelmoraMobile;
using VelmoraTest::IdentityHarness;
using VelmoraTest::MakeConfig;

namespace {

using State = VisitorIdAuthenticationState;
using StringMap = std::map<std::string, std::string>;

const std::string MID = "01234567890123456789012345678901234567";

}  // namespace

TEST(IdentitySyncUrlTest, WorkedExamplesAndEncoding) {
    IdentityHarness harness;
    harness.RegisterIdentity();
    // Sets the module's server-given fields and builds the URL inside the module's queue.
    auto build = [&](const std::string& mid, const std::string& blob, const std::string& hint,
                     const StringMap& identifiers, State state, const StringMap& dpids, bool ssl) {
        std::string url;
        harness.RunInIdentityQueue([&] {
            auto& identity = *harness.identity;
            identity.mid = mid;
            identity.blob = blob;
            identity.location_hint = hint;
            identity.customer_ids = identity.GenerateCustomerIds({{"stored", "old"}}, State::UNKNOWN);
            url = identity.BuildUrlString(identity.GenerateCustomerIds(identifiers, state), dpids,
                                          MakeConfig("1234ABCD5678EFGH", "identity.example", ssl));
        });
        return url;
    };
    // Full sync with an advertising id and a push token.
    EXPECT_EQ(build(MID, "hmk_Lq6T", "9", {{"crm", "abc"}, {"DSID_20915", "AAAA-BBBB"}}, State::AUTHENTICATED,
                    {{"20920", "pushtoken"}}, true),
              "https://identity.example/id?d_rtbd=json&d_ver=2&d_orgid=1234ABCD5678EFGH"
              "&d_mid=01234567890123456789012345678901234567&d_blob=hmk_Lq6T&dcs_region=9"
              "&d_cid_ic=DSID_20915%01AAAA-BBBB%011&d_cid_ic=crm%01abc%011&d_cid=20920%01pushtoken");
    // First sync without SSL, blob or hint.
    EXPECT_EQ(build(MID, "", "", {{"crm", ""}}, State::UNKNOWN, {}, false),
              "http://identity.example/id?d_rtbd=json&d_ver=2&d_orgid=1234ABCD5678EFGH"
              "&d_mid=01234567890123456789012345678901234567&d_cid_ic=crm%01%010");
    // Forced sync without MID or ids: the stored customer ids are not sent.
    EXPECT_EQ(build("", "", "", {}, State::UNKNOWN, {}, true),
              "https://identity.example/id?d_rtbd=json&d_ver=2&d_orgid=1234ABCD5678EFGH");

    // Server values go out unescaped while ids are encoded.
    EXPECT_EQ(build("m", "a+b/c=d&e", "x y", {{"e mail", "a b&c%01"}}, State::LOGGED_OUT,
                    {{"20920", ""}, {"1 2", "v&w"}}, true),
              "https://identity.example/id?d_rtbd=json&d_ver=2&d_orgid=1234ABCD5678EFGH&d_mid=m"
              "&d_blob=a+b/c=d&e&dcs_region=x y"
              "&d_cid_ic=email%01a%20b%26c%2501%012"
              "&d_cid=1%202%01v%26w&d_cid=20920%01");
    // Without a configuration the default server is used.
    EXPECT_EQ(std::make_shared<Identity>()->BuildUrlString({}, {}, nullptr),
              "https://id.velmora.net/id?d_rtbd=json&d_ver=2&d_orgid=");
}
