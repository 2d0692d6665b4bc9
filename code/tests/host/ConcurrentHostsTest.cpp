// Many host threads on one core: every callback gets the answer to its own request.

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host/Core.h"
#include "tests/identity/api/Answers.h"
#include "tests/support/TempDir.h"
#include "tools/server/TestIdentityServer.h"

using namespace VelmoraMobile;
using VelmoraTest::IdAnswers;
using VelmoraTest::StringAnswers;

namespace {

TEST(ConcurrentHosts, EightThreadsGetTheirOwnAnswers) {
    constexpr int THREADS = 8;
    constexpr int ROUNDS = 25;
    // The server answers every sync, so answers are applied among the host threads' requests.
    VelmoraTestServer::TestIdentityServer server;
    VelmoraTest::TempDir dir;
    CoreOptions options;
    options.data_dir = dir.Path();
    options.org_id = "0123456789ABCDEF@VelmoraOrg";
    options.server = server.Host();
    options.tls = false;
    Core core(options);

    auto mids = std::make_shared<StringAnswers>();
    auto ids = std::make_shared<IdAnswers>();
    auto urls = std::make_shared<StringAnswers>();
    std::vector<std::thread> hosts;
    for (int t = 0; t < THREADS; ++t) {
        hosts.emplace_back([&, t] {
            auto api = core.IdentityApi();
            for (int round = 0; round < ROUNDS; ++round) {
                api->SyncIdentifier("type" + std::to_string(t), "id" + std::to_string(round),
                                    VisitorIdAuthenticationState::AUTHENTICATED);
                api->GetOndaraCloudId(mids->StringCallback());
                api->GetIdentifiers(ids->IdsCallback());
                std::string base = "https://t" + std::to_string(t) + ".example/" + std::to_string(round);
                api->AppendToUrl(base, [base, urls](std::string url) {
                    if (url.rfind(base + "?velmora_mc=", 0) == 0) urls->Add(url);  // only its own URL counts
                });
            }
        });
    }
    for (auto& host : hosts) host.join();

    const size_t calls = THREADS * ROUNDS;
    ASSERT_TRUE(urls->WaitForCount(calls)) << urls->Count() << " of " << calls << " URLs";
    ASSERT_TRUE(mids->WaitForCount(calls));
    ASSERT_TRUE(ids->WaitForCount(calls)) << "each thread synced before asking, so every list has ids";
    const auto all_mids = mids->Values();
    EXPECT_EQ(std::set<std::string>(all_mids.begin(), all_mids.end()), std::set<std::string>{all_mids[0]});
    EXPECT_EQ(all_mids[0].size(), 38u);

    EXPECT_TRUE(server.WaitForRequests(1, std::chrono::seconds(20)));
}

}  // namespace
