// The C++ entry point: Core starts a whole core on a data folder, against the test identity server.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "host/Core.h"
#include "host/VelmoraMobileCoreBridge.h"
#include "runtime/values/SdkError.h"
#include "tests/identity/api/Answers.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"
#include "tools/server/TestIdentityServer.h"

using namespace VelmoraMobile;
using VelmoraTest::LogCapture;
using VelmoraTest::StringAnswers;
using VelmoraTest::TempDir;

namespace {

// Configuration is layered: the file, then the map, then the named options. A stopped core lets
// another start on the same data folder.
TEST(CoreTest, StartsLayeredAloneStopsIdempotentlyLogsLaterCallsAndRestarts) {
    TempDir dir;
    VelmoraTestServer::TestIdentityServer server;
    const std::string org = "0123456789ABCDEF@VelmoraOrg";
    CoreOptions plain;
    plain.data_dir = dir.Path();
    plain.org_id = org;
    plain.server = server.Host();
    plain.tls = false;
    std::ofstream(dir.File("velmora.json")) << R"({"ondaraCloud.org": "FILE@Org", "ondaraCloud.server": "x",
                                                 "custom.file": "kept", "custom.both": "file"})";
    CoreOptions options = plain;
    options.configuration_file = dir.File("velmora.json");
    options.server.clear();
    options.configuration = {{"custom.both", Variant::FromString("map")},
                             {"ondaraCloud.server", Variant::FromString(server.Host())},
                             {"global.ssl", Variant::FromBoolean(true)}};
    Core core(options);
    // Both modules' OnRegistered have run: the configuration extension announced its state and
    // the identity module opened its hit database.
    auto state = core.Running()->event_hub->GetSharedEventState("com.velmora.module.configuration", nullptr);
    ASSERT_NE(state, nullptr);
    std::vector<std::string> values;
    for (const char* key : {"ondaraCloud.org", "custom.file", "custom.both", "ondaraCloud.server"})
        values.push_back(state->OptString(key, ""));
    EXPECT_EQ(values, (std::vector<std::string>{org, "kept", "map", server.Host()}));
    EXPECT_FALSE(state->OptBoolean("global.ssl", true));
    EXPECT_TRUE(std::filesystem::exists(dir.File("VLBMobileIdentity.sqlite")));
    LogCapture log;
    EXPECT_THAT([&] { Core second(plain); },
                ::testing::Throws<SdkError>(::testing::Property(&SdkError::GetCode, "core.not_started")));
    EXPECT_TRUE(log.Contains("A core is already running in this process: stop it before starting another"));

    auto kept = core.IdentityApi();
    EXPECT_TRUE(core.Stop());
    EXPECT_TRUE(core.Stop());
    EXPECT_TRUE(core.Running() == nullptr && core.Configuration() == nullptr);
    auto answers = std::make_shared<StringAnswers>();
    kept->GetOndaraCloudId(answers->StringCallback());
    core.IdentityApi()->SyncIdentifier("crm", "alice", VisitorIdAuthenticationState::UNKNOWN);
    EXPECT_TRUE(log.Contains(
        "GetOndaraCloudId ignored: the identity module is not registered on this hub (the core is stopped or not "
        "started)"));
    { Core restarted(plain); }  // the stopped core no longer holds the process
    EXPECT_EQ(VelmoraMobileCoreBridge::GetInstance().GetCore(), nullptr);  // the destructor stopped it
    EXPECT_EQ(answers->Count(), 0u);
}

}  // namespace
