#include <gtest/gtest.h>

#include <memory>

#include "ConfigurationSharedStateIdentity.h"
#include "EventData.h"
#include "LogCapture.h"

using namespace VelmoraMobile;

namespace {

const char* const NULL_CONFIG_MESSAGE = "Current config state is null. Using defaults";

std::shared_ptr<EventData> Config(const std::map<std::string, std::string>& values) {
    auto data = std::make_shared<EventData>();
    for (const auto& entry : values) {
        data->PutString(entry.first, entry.second);
    }
    return data;
}

void ExpectDefaults(const ConfigurationSharedStateIdentity& view) {
    EXPECT_EQ(view.GetOrgId(), "");
    EXPECT_TRUE(view.GetSSLStatus());
    EXPECT_EQ(view.GetPrivacyStatus(), MobilePrivacyStatus::OPT_IN);
    EXPECT_EQ(view.GetOndaraCloudServer(), "id.velmora.net");
    EXPECT_FALSE(view.GetAdIdEnabledStatus());
    EXPECT_FALSE(view.CanSyncIdentifiersWithCurrentConfiguration());
}

}  // namespace

TEST(ConfigurationSharedStateIdentityTest, NullConfigurationGivesDefaultsAndSaysSo) {
    VelmoraTest::LogCapture log;
    ConfigurationSharedStateIdentity view(nullptr);
    ExpectDefaults(view);
    ASSERT_EQ(log.Count(NULL_CONFIG_MESSAGE), 1u);
    auto lines = log.Lines();
    EXPECT_EQ(lines[0].tag, "com.velmora.module.identity");
    EXPECT_EQ(lines[0].mode, LoggingMode::VERBOSE_LOG);
}

TEST(ConfigurationSharedStateIdentityTest, ConfigurationWithoutKeysGivesDefaultsQuietly) {
    VelmoraTest::LogCapture log;
    ConfigurationSharedStateIdentity view(std::make_shared<EventData>());
    ExpectDefaults(view);
    EXPECT_FALSE(log.Contains(NULL_CONFIG_MESSAGE));
}

TEST(ConfigurationSharedStateIdentityTest, ReadsEveryKey) {
    auto data = Config({{"ondaraCloud.org", "ORG@VelmoraOrg"},
                        {"global.privacy", "optunknown"},
                        {"ondaraCloud.server", "ids.example.test"}});
    data->PutBoolean("global.ssl", false);
    data->PutBoolean("identity.adidEnabled", true);
    ConfigurationSharedStateIdentity view(data);
    EXPECT_EQ(view.GetOrgId(), "ORG@VelmoraOrg");
    EXPECT_FALSE(view.GetSSLStatus());
    EXPECT_EQ(view.GetPrivacyStatus(), MobilePrivacyStatus::UNKNOWN);
    EXPECT_EQ(view.GetOndaraCloudServer(), "ids.example.test");
    EXPECT_TRUE(view.GetAdIdEnabledStatus());
}

TEST(ConfigurationSharedStateIdentityTest, OnlyOptOutAndMissingOrgForbidSyncing) {
    EXPECT_TRUE(ConfigurationSharedStateIdentity(Config({{"ondaraCloud.org", "ORG"}}))
                    .CanSyncIdentifiersWithCurrentConfiguration());
    EXPECT_TRUE(ConfigurationSharedStateIdentity(Config({{"ondaraCloud.org", "ORG"}, {"global.privacy", "optedin"}}))
                    .CanSyncIdentifiersWithCurrentConfiguration());
    EXPECT_TRUE(ConfigurationSharedStateIdentity(Config({{"ondaraCloud.org", "ORG"}, {"global.privacy", "optunknown"}}))
                    .CanSyncIdentifiersWithCurrentConfiguration());
    EXPECT_FALSE(ConfigurationSharedStateIdentity(Config({{"ondaraCloud.org", "ORG"}, {"global.privacy", "optedout"}}))
                     .CanSyncIdentifiersWithCurrentConfiguration());
    EXPECT_FALSE(ConfigurationSharedStateIdentity(Config({{"ondaraCloud.org", ""}, {"global.privacy", "optedin"}}))
                     .CanSyncIdentifiersWithCurrentConfiguration());
}

TEST(ConfigurationSharedStateIdentityTest, IllTypedOrUnknownValuesFallBack) {
    auto data = Config({{"global.privacy", "sometimes"}, {"global.ssl", "false"}, {"identity.adidEnabled", "true"}});
    data->PutInteger("ondaraCloud.org", 42);
    ConfigurationSharedStateIdentity view(data);
    // An unknown privacy text is what the text conversion makes of it, not the default.
    EXPECT_EQ(view.GetPrivacyStatus(), MobilePrivacyStatus::UNKNOWN);
    EXPECT_TRUE(view.GetSSLStatus());
    EXPECT_FALSE(view.GetAdIdEnabledStatus());
    EXPECT_EQ(view.GetOrgId(), "");
}

TEST(ConfigurationSharedStateIdentityTest, EmptyServerIsKeptAsGiven) {
    ConfigurationSharedStateIdentity view(Config({{"ondaraCloud.server", ""}}));
    EXPECT_EQ(view.GetOndaraCloudServer(), "");
}

TEST(ConfigurationSharedStateIdentityTest, LaterChangesToTheDataDoNotReachTheView) {
    auto data = Config({{"ondaraCloud.org", "ORG"}, {"global.privacy", "optedin"}});
    ConfigurationSharedStateIdentity view(data);
    data->PutString("ondaraCloud.org", "OTHER");
    data->PutString("global.privacy", "optedout");
    EXPECT_EQ(view.GetOrgId(), "ORG");
    EXPECT_EQ(view.GetPrivacyStatus(), MobilePrivacyStatus::OPT_IN);
}
