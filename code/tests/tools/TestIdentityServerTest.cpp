#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>

#include <chrono>
#include <future>
#include <nlohmann/json.hpp>

#include "tools/server/TestIdentityServer.h"

namespace VelmoraTestServer {
namespace {

constexpr auto kWait = std::chrono::seconds(20);

// Status and parsed body (null when the body is no JSON); status -1 when no answer came.
std::pair<int, nlohmann::json> Fetch(const TestIdentityServer& server, const std::string& target) {
    httplib::Client client(server.BaseUrl());
    client.set_url_encode(false);  // the sync query carries its own escapes, such as "%01"
    auto result = client.Get(target.c_str());
    if (!result) return {-1, nullptr};
    return {result->status, nlohmann::json::parse(result->body, nullptr, false)};
}

// The answer carries the options and keeps the MID asked for, or makes one; every request is
// recorded; Stop cuts delayed and idle connections short.
TEST(TestIdentityServerTest, AnswersRecordsAndStopCutsDelayedAndIdleConnectionsShort) {
    ServerOptions options;
    options.blob = "hmk_Lq6T";
    options.location_hint = 6;
    options.ttl = 42;
    TestIdentityServer server(options);

    const std::string mid = "01234567890123456789012345678901234567";
    EXPECT_EQ(Fetch(server, "/id?d_mid=" + mid + "&d_cid_ic=DSID_20915%01AAAA%011&d_cid_ic=crm%01abc%011").second,
              nlohmann::json({{"d_mid", mid}, {"d_blob", "hmk_Lq6T"}, {"dcs_region", 6}, {"id_sync_ttl", 42}}));
    EXPECT_THAT(Fetch(server, "/id?d_orgid=ORG").second.value("d_mid", ""), ::testing::MatchesRegex("[0-9]{38}"));
    const auto first = server.Requests().at(0);
    EXPECT_EQ(first.params.at("d_cid_ic"), std::string("DSID_20915\x01") + "AAAA\x01" + "1");
    EXPECT_EQ(first.all_params.count("d_cid_ic"), 2u);

    // A hanging connection is cut too: NetworkServiceTest's held request.
    Fault slow;
    slow.delay_ms = 10 * 60 * 1000;
    server.PushFault(slow);
    auto slow_call = std::async(std::launch::async, [&] { return Fetch(server, "/id").first; });
    ASSERT_TRUE(server.WaitForRequests(3, kWait));
    httplib::Client idle(server.BaseUrl());
    idle.set_keep_alive(true);
    ASSERT_TRUE(idle.Get("/veloptout.jpg"));

    auto stopped = std::async(std::launch::async, [&] { server.Stop(); });
    ASSERT_EQ(stopped.wait_for(kWait), std::future_status::ready) << "Stop hangs";
    EXPECT_EQ(slow_call.get(), -1);
    EXPECT_EQ(Fetch(server, "/id").first, -1);
    server.Stop();  // a second stop, and the destructor's, are harmless
}

}  // namespace
}  // namespace VelmoraTestServer
