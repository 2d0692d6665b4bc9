// The README's C++ quick start, built from the README, run as a host would run it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/support/TempDir.h"
#include "tools/server/TestIdentityServer.h"

namespace {

TEST(ReadmeQuickStart, SyncsPrintsTheMidAndADecoratedUrl) {
    VelmoraTestServer::TestIdentityServer server;
    VelmoraTest::TempDir dir;
    std::ofstream(dir.File("velmora.json"))
        << R"({"ondaraCloud.org": "0123456789ABCDEF@VelmoraOrg", "ondaraCloud.server": ")" << server.Host()
        << R"(", "global.ssl": false})";
    const int status =
        std::system(("cd '" + dir.Path() + "' && '" VELMORA_README_QUICK_START "' >out.txt 2>&1").c_str());
    const std::string output(std::istreambuf_iterator<char>(std::ifstream(dir.File("out.txt")).rdbuf()), {});
    ASSERT_EQ(status, 0) << output;
    ASSERT_THAT(output, ::testing::ContainsRegex("MID [0-9]{38}\n"));
    const std::string mid = output.substr(output.find("MID ") + 4, 38);
    EXPECT_THAT(output,
                ::testing::ContainsRegex("https://shop\\.example/checkout\\?velmora_mc=TS%3D[0-9]+%7COCMID%3D" + mid));
}

}  // namespace
