#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "identity/hits/IdentityObject.h"
#include "identity/module/ConfigurationSharedStateIdentity.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/bus/EventData.h"
#include "tests/support/LogCapture.h"

using namespace VelmoraMobile;

namespace {

std::shared_ptr<EventData> Config(const std::map<std::string, std::string>& values) {
    auto data = std::make_shared<EventData>();
    for (const auto& entry : values) data->PutString(entry.first, entry.second);
    return data;
}

}  // namespace

TEST(ConfigurationSharedStateIdentityTest, MissingConfigurationGivesDefaultsAndOnlyNullSaysSo) {
    VelmoraTest::LogCapture log;
    for (const auto& data : {std::shared_ptr<EventData>(), std::make_shared<EventData>()}) {
        ConfigurationSharedStateIdentity view(data);
        EXPECT_EQ(view.GetOrgId(), "");
        EXPECT_TRUE(view.GetSSLStatus());
        EXPECT_EQ(view.GetPrivacyStatus(), MobilePrivacyStatus::OPT_IN);
        EXPECT_EQ(view.GetOndaraCloudServer(), "id.velmora.net");
        EXPECT_FALSE(view.GetAdIdEnabledStatus());
        EXPECT_FALSE(view.CanSyncIdentifiersWithCurrentConfiguration());
    }
    ASSERT_EQ(log.Count("Current config state is null. Using defaults"), 1u);
    EXPECT_EQ(log.Lines()[0].mode, LoggingMode::VERBOSE_LOG);
}

TEST(ConfigurationSharedStateIdentityTest, ReadsEveryKeyFallsBackOnIllTypedValuesAndSaysWhenSyncingIsAllowed) {
    auto data = Config({{"ondaraCloud.org", "ORG@VelmoraOrg"},
                        {"global.privacy", "optunknown"},
                        {"ondaraCloud.server", "ids.example.test"}});
    data->PutBoolean("global.ssl", false);
    data->PutBoolean("identity.adidEnabled", true);
    ConfigurationSharedStateIdentity view(data);
    data->PutString("ondaraCloud.org", "OTHER");  // later changes do not reach the view
    EXPECT_EQ(view.GetOrgId(), "ORG@VelmoraOrg");
    EXPECT_FALSE(view.GetSSLStatus());
    EXPECT_EQ(view.GetPrivacyStatus(), MobilePrivacyStatus::UNKNOWN);
    EXPECT_EQ(view.GetOndaraCloudServer(), "ids.example.test");
    EXPECT_TRUE(view.GetAdIdEnabledStatus());
    EXPECT_TRUE(view.CanSyncIdentifiersWithCurrentConfiguration());  // unknown may sync

    auto ill_typed = Config({{"global.ssl", "false"}, {"identity.adidEnabled", "true"}, {"ondaraCloud.server", ""}});
    ill_typed->PutInteger("ondaraCloud.org", 42);
    ConfigurationSharedStateIdentity fallback(ill_typed);
    EXPECT_TRUE(fallback.GetSSLStatus());
    EXPECT_FALSE(fallback.GetAdIdEnabledStatus());
    EXPECT_EQ(fallback.GetOrgId(), "");
    EXPECT_EQ(fallback.GetOndaraCloudServer(), "");                       // an empty server is kept as given
    EXPECT_FALSE(fallback.CanSyncIdentifiersWithCurrentConfiguration());  // no organisation

    EXPECT_FALSE(ConfigurationSharedStateIdentity(Config({{"ondaraCloud.org", "ORG"}, {"global.privacy", "optedout"}}))
                     .CanSyncIdentifiersWithCurrentConfiguration());
    EXPECT_TRUE(ConfigurationSharedStateIdentity(Config({{"ondaraCloud.org", "ORG"}, {"global.privacy", "optedin"}}))
                    .CanSyncIdentifiersWithCurrentConfiguration());
}

namespace {

// Copied during static initialisation, as a class's log tag would be: the copy must see the
// value whatever order the linker put the files in.
const std::string kCopiedModuleName = IdentityConstants::EventDataKeys::Identity::SHARED_STATE_NAME;

TEST(IdentityConstantsTest, CopiesTakenAtStartSeeTheirValues) {
    EXPECT_EQ(kCopiedModuleName, "com.velmora.module.identity");
}

TEST(IdentityObjectTest, SetOptOutWithItsOwnListKeepsIt) {
    IdentityObject object;
    object.SetOptOut({"global"});
    object.SetOptOut(object.GetOptOut());
    EXPECT_EQ(object.GetOptOut(), std::vector<std::string>{"global"});
}

}  // namespace
