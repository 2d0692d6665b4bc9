#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "identity/hits/IdentityObject.h"
#include "identity/module/ConfigurationSharedStateIdentity.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/bus/EventData.h"
#include "tests/identity/support/IdentityCoreTestSupport.h"
#include "tests/support/LogCapture.h"

using namespace VelmoraMobile;
using VelmoraTest::MakeData;

namespace {

// Every reading of the view in one line: org|ssl|privacy (0 in, 1 out, 2 unknown)|server|ad id|may sync.
std::string Read(const ConfigurationSharedStateIdentity& view) {
    return view.GetOrgId() + "|" + std::to_string(view.GetSSLStatus()) + "|" +
           std::to_string(static_cast<int>(view.GetPrivacyStatus())) + "|" + view.GetOndaraCloudServer() + "|" +
           std::to_string(view.GetAdIdEnabledStatus()) + "|" +
           std::to_string(view.CanSyncIdentifiersWithCurrentConfiguration());
}

}  // namespace

TEST(ConfigurationSharedStateIdentityTest, ReadsEveryKeyFallsBackOnMissingOrIllTypedValuesAndSaysWhenSyncingIsAllowed) {
    VelmoraTest::LogCapture log;
    auto full =
        MakeData({{"ondaraCloud.org", "ORG"}, {"global.privacy", "optunknown"}, {"ondaraCloud.server", "ids.test"}});
    full->PutBoolean("global.ssl", false);
    full->PutBoolean("identity.adidEnabled", true);
    auto ill_typed = MakeData({{"global.ssl", "false"}, {"identity.adidEnabled", "true"}, {"ondaraCloud.server", ""}});
    ill_typed->PutInteger("ondaraCloud.org", 42);
    const std::pair<std::shared_ptr<EventData>, std::string> cases[] = {
        {nullptr, "|1|0|id.velmora.net|0|0"},
        {std::make_shared<EventData>(), "|1|0|id.velmora.net|0|0"},
        {full, "ORG|0|2|ids.test|1|1"},  // unknown may sync
        {ill_typed, "|1|0||0|0"},        // an empty server is kept as given
        {MakeData({{"ondaraCloud.org", "ORG"}, {"global.privacy", "optedout"}}), "ORG|1|1|id.velmora.net|0|0"},
        {MakeData({{"ondaraCloud.org", "ORG"}, {"global.privacy", "optedin"}}), "ORG|1|0|id.velmora.net|0|1"}};
    for (const auto& [data, expected] : cases) EXPECT_EQ(Read(ConfigurationSharedStateIdentity(data)), expected);
    // Only a missing configuration says so.
    ASSERT_EQ(log.Count("Current config state is null. Using defaults"), 1u);
    EXPECT_EQ(log.Lines()[0].mode, LoggingMode::VERBOSE_LOG);

    ConfigurationSharedStateIdentity view(full);
    full->PutString("ondaraCloud.org", "OTHER");  // later changes do not reach the view
    EXPECT_EQ(view.GetOrgId(), "ORG");
}

// Copied during static initialisation, as a class's log tag would be: the copy must see the
// value whatever order the linker put the files in.
const std::string kCopiedModuleName = IdentityConstants::EventDataKeys::Identity::SHARED_STATE_NAME;

TEST(IdentityConstantsTest, CopiesTakenAtStartSeeTheirValuesAndAnOptOutListSetFromItselfIsKept) {
    EXPECT_EQ(kCopiedModuleName, "com.velmora.module.identity");
    IdentityObject object;
    object.SetOptOut({"global"});
    object.SetOptOut(object.GetOptOut());
    EXPECT_EQ(object.GetOptOut(), std::vector<std::string>{"global"});
}
