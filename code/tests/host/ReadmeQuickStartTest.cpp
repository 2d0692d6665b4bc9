// The README's C++ quick start, built from the README, run as a host would run it.

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
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
    const std::string command = "cd '" + dir.Path() + "' && '" VELMORA_README_QUICK_START "' 2>&1";
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    std::array<char, 256> buffer{};
    while (pipe != nullptr && fgets(buffer.data(), buffer.size(), pipe) != nullptr) output += buffer.data();
    ASSERT_TRUE(pipe != nullptr && pclose(pipe) == 0) << output;
    const size_t line = output.find("MID ");
    ASSERT_NE(line, std::string::npos) << output;
    const std::string mid = output.substr(line + 4, output.find('\n', line) - line - 4);
    EXPECT_EQ(mid.size(), 38u) << output;
    EXPECT_EQ(mid.find_first_not_of("0123456789"), std::string::npos) << output;
    EXPECT_NE(output.find("https://shop.example/checkout?velmora_mc=TS%3D"), std::string::npos) << output;
    EXPECT_NE(output.find("%7COCMID%3D" + mid), std::string::npos) << output;
}

}  // namespace
