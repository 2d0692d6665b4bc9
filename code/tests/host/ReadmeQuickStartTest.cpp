// The README's C++ quick start, built from the README, run as a host would run it.

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <string>

#include "host/Core.h"
#include "tests/identity/api/Answers.h"
#include "tests/support/TempDir.h"
#include "tests/support/WaitFor.h"
#include "tools/server/TestIdentityServer.h"

namespace {

/// Runs `command` in a shell and gives its output; fails the test on a non-zero exit.
std::string RunCommand(const std::string& command) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    std::array<char, 256> buffer{};
    while (pipe != nullptr && fgets(buffer.data(), buffer.size(), pipe) != nullptr) output += buffer.data();
    EXPECT_TRUE(pipe != nullptr && pclose(pipe) == 0) << command << "\n" << output;
    return output;
}

TEST(ReadmeQuickStart, SyncsPrintsTheMidAndADecoratedUrl) {
    VelmoraTestServer::TestIdentityServer server;
    VelmoraTest::TempDir dir;
    std::ofstream(dir.File("velmora.json"))
        << R"({"ondaraCloud.org": "0123456789ABCDEF@VelmoraOrg", )"
        << R"("ondaraCloud.server": ")" << server.Host() << R"(", "global.ssl": false})";
    std::string output = RunCommand("cd '" + dir.Path() + "' && '" VELMORA_README_QUICK_START "' 2>&1");
    size_t line = output.find("MID ");
    ASSERT_NE(line, std::string::npos) << output;
    std::string mid = output.substr(line + 4, output.find('\n', line) - line - 4);
    EXPECT_EQ(mid.size(), 38u) << output;
    EXPECT_EQ(mid.find_first_not_of("0123456789"), std::string::npos) << output;
    EXPECT_NE(output.find("https://shop.example/checkout?velmora_mc=TS%3D"), std::string::npos) << output;
    EXPECT_NE(output.find("%7COCMID%3D" + mid), std::string::npos) << output;

    // The same folder in a new process keeps the MID, and sends the sync that the quick start's
    // stop may have left in the hit queue.
    VelmoraMobile::CoreOptions options;
    options.data_dir = dir.File("velmora-data");
    options.configuration_file = dir.File("velmora.json");
    VelmoraMobile::Core core(options);
    auto answer = std::make_shared<VelmoraTest::StringAnswers>();
    core.IdentityApi()->GetOndaraCloudId(answer->StringCallback());
    EXPECT_EQ(answer->First(), mid);
    EXPECT_TRUE(VelmoraTest::WaitFor([&] {
        for (const auto& request : server.Requests()) {
            if (request.query.find("d_cid_ic=crm%01alice-42%011") != std::string::npos) return true;
        }
        return false;
    }));
}

}  // namespace
