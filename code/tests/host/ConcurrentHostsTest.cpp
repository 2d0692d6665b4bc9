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
    auto foreign_urls = std::make_shared<StringAnswers>();
    auto urls = std::make_shared<StringAnswers>();
    std::vector<std::thread> hosts;
    for (int t = 0; t < THREADS; ++t) {
        hosts.emplace_back([&, t] {
            auto api = core.IdentityApi();
            for (int round = 0; round < ROUNDS; ++round) {
                std::string type = "type" + std::to_string(t);
                api->SyncIdentifier(type, "id" + std::to_string(round), VisitorIdAuthenticationState::AUTHENTICATED);
                api->GetOndaraCloudId(mids->StringCallback());
                api->GetIdentifiers(ids->IdsCallback());
                std::string base = "https://t" + std::to_string(t) + ".example/" + std::to_string(round);
                api->AppendToUrl(base, [base, urls, foreign_urls](std::string url) {
                    (url.rfind(base + "?velmora_mc=", 0) == 0 ? urls : foreign_urls)->Add(url);
                });
            }
        });
    }
    for (auto& host : hosts) host.join();

    const size_t calls = THREADS * ROUNDS;
    ASSERT_TRUE(urls->WaitForCount(calls)) << urls->Count() << " of " << calls << " URLs";
    ASSERT_TRUE(mids->WaitForCount(calls));
    ASSERT_TRUE(ids->WaitForCount(calls)) << "each thread synced before asking, so every list has ids";
    EXPECT_EQ(foreign_urls->Count(), 0u);
    std::set<std::string> distinct_mids;
    for (const auto& mid : mids->Values()) distinct_mids.insert(mid);
    ASSERT_EQ(distinct_mids.size(), 1u);
    EXPECT_EQ(distinct_mids.begin()->size(), 38u);

    auto last = std::make_shared<IdAnswers>();
    core.IdentityApi()->GetIdentifiers(last->IdsCallback());
    std::set<std::string> final_ids;
    for (const auto& id : last->First()) final_ids.insert(id->id_type + "=" + id->id);
    std::set<std::string> expected;
    for (int t = 0; t < THREADS; ++t) expected.insert("type" + std::to_string(t) + "=id" + std::to_string(ROUNDS - 1));
    EXPECT_EQ(final_ids, expected);
    EXPECT_TRUE(server.WaitForRequests(1, std::chrono::seconds(20)));
}

}  // namespace
