#include <gtest/gtest.h>
#include <httplib.h>

#include <chrono>
#include <future>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "TestIdentityServer.h"

namespace VelmoraTestServer {
namespace {

using namespace std::chrono_literals;

constexpr auto kWait = std::chrono::seconds(20);

std::unique_ptr<httplib::Client> ClientFor(const TestIdentityServer& server) {
    auto client = std::make_unique<httplib::Client>(server.BaseUrl());
    client->set_url_encode(false);  // the sync query carries its own escapes, such as "%01"
    client->set_read_timeout(30, 0);
    if (server.Tls()) {
        client->set_ca_cert_path(server.CaFile().c_str());
        client->enable_server_certificate_verification(true);
    }
    return client;
}

nlohmann::json GetJson(const TestIdentityServer& server, const std::string& target) {
    auto result = ClientFor(server)->Get(target.c_str());
    if (!result || result->status != 200) {
        ADD_FAILURE() << "GET " << target << " failed: " << (result ? result->status : -1);
        return nlohmann::json();
    }
    return nlohmann::json::parse(result->body);
}

TEST(TestIdentityServerTest, IdAnswerKeepsTheDevicesMidOrMakesOne) {
    ServerOptions options;
    options.blob = "hmk_Lq6T";
    options.location_hint = 6;
    options.ttl = 42;
    TestIdentityServer server(options);
    ASSERT_GT(server.Port(), 0);
    EXPECT_EQ(server.Host(), "127.0.0.1:" + std::to_string(server.Port()));
    EXPECT_FALSE(server.Tls());
    EXPECT_EQ(server.CaFile(), "");

    const auto kept = GetJson(server, "/id?d_rtbd=json&d_ver=2&d_mid=01234567890123456789012345678901234567");
    EXPECT_EQ(kept, nlohmann::json::parse(R"({"d_mid":"01234567890123456789012345678901234567",
        "d_blob":"hmk_Lq6T","dcs_region":6,"id_sync_ttl":42})"));

    const auto made = GetJson(server, "/id?d_rtbd=json&d_ver=2&d_orgid=ORG");
    ASSERT_TRUE(made.contains("d_mid"));
    const std::string mid = made["d_mid"].get<std::string>();
    EXPECT_EQ(mid.size(), 38u);
    EXPECT_EQ(mid.find_first_not_of("0123456789"), std::string::npos) << mid;
    EXPECT_FALSE(made.contains("error_msg"));
    EXPECT_FALSE(made.contains("d_optout"));
}

TEST(TestIdentityServerTest, RecordsEveryRequestAsReceived) {
    TestIdentityServer server;
    auto client = ClientFor(server);
    client->set_default_headers({{"User-Agent", "velmora-test/1"}});
    EXPECT_FALSE(server.WaitForRequests(1, 10ms));

    auto sync = client->Get("/id?d_orgid=ORG&d_cid_ic=DSID_20915%01AAAA%011&d_cid_ic=crm%01abc%011");
    ASSERT_TRUE(sync);
    auto optout = client->Get("/veloptout.jpg?d_mid=123&d_orgid=ORG");
    ASSERT_TRUE(optout);
    EXPECT_EQ(optout->status, 200);
    auto unknown = client->Get("/nothing");
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->status, 404);

    ASSERT_TRUE(server.WaitForRequests(3, kWait));
    const auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 3u);
    const RecordedRequest& first = requests[0];
    EXPECT_EQ(first.method, "GET");
    EXPECT_EQ(first.path, "/id");
    EXPECT_EQ(first.query, "d_orgid=ORG&d_cid_ic=DSID_20915%01AAAA%011&d_cid_ic=crm%01abc%011");
    EXPECT_EQ(first.params.at("d_orgid"), "ORG");
    EXPECT_EQ(first.params.at("d_cid_ic"),
              "DSID_20915\x01"
              "AAAA\x01"
              "1");
    EXPECT_EQ(first.all_params.count("d_cid_ic"), 2u);
    EXPECT_EQ(first.headers.at("user-agent"), "velmora-test/1");
    EXPECT_EQ(first.headers.at("User-Agent"), "velmora-test/1");
    EXPECT_EQ(requests[1].path, "/veloptout.jpg");
    EXPECT_EQ(requests[1].params.at("d_mid"), "123");
    EXPECT_EQ(requests[2].path, "/nothing");

    server.ClearRequests();
    EXPECT_TRUE(server.Requests().empty());
    ASSERT_TRUE(client->Get("/id"));
    ASSERT_TRUE(server.WaitForRequests(1, kWait));
    EXPECT_EQ(server.Requests().at(0).query, "");
}

TEST(TestIdentityServerTest, ScriptedFaultsApplyInOrderThenTheDefaultResumes) {
    TestIdentityServer server;
    auto client = ClientFor(server);

    Fault optout_only;
    optout_only.path = "/veloptout.jpg";
    optout_only.status = 500;
    server.PushFault(optout_only);
    Fault unavailable;
    unavailable.status = 503;
    server.PushFault(unavailable);
    Fault opted_out;
    opted_out.error_msg = "server says no";
    opted_out.optout = {"global"};
    server.PushFault(opted_out);
    Fault odd_values;
    odd_values.non_string_mid = true;
    odd_values.ttl = -5;
    server.PushFault(odd_values);
    Fault garbage;
    garbage.not_json = true;
    garbage.garbage_bytes = 2 * 1024 * 1024;
    server.PushFault(garbage);
    EXPECT_EQ(server.PendingFaults(), 5u);

    // The opt-out fault waits at the head of the queue for its own path; /id requests pass it by.
    auto first = client->Get("/id?d_mid=7");
    ASSERT_TRUE(first);
    EXPECT_EQ(first->status, 503);
    EXPECT_EQ(nlohmann::json::parse(first->body)["d_mid"], "7");

    auto second = client->Get("/id?d_mid=7");
    ASSERT_TRUE(second);
    const auto second_json = nlohmann::json::parse(second->body);
    EXPECT_EQ(second->status, 200);
    EXPECT_EQ(second_json["error_msg"], "server says no");
    EXPECT_EQ(second_json["d_optout"], nlohmann::json::array({"global"}));

    auto third = client->Get("/id?d_mid=7");
    ASSERT_TRUE(third);
    const auto third_json = nlohmann::json::parse(third->body);
    EXPECT_TRUE(third_json["d_mid"].is_number()) << third->body;
    EXPECT_EQ(third_json["id_sync_ttl"], -5);

    auto fourth = client->Get("/id?d_mid=7");
    ASSERT_TRUE(fourth);
    EXPECT_EQ(fourth->status, 200);
    EXPECT_EQ(fourth->body.size(), 2u * 1024 * 1024);
    EXPECT_FALSE(nlohmann::json::accept(fourth->body));

    auto optout = client->Get("/veloptout.jpg");
    ASSERT_TRUE(optout);
    EXPECT_EQ(optout->status, 500);
    EXPECT_EQ(server.PendingFaults(), 0u);

    // No scripted fault left: the default answers, and keeps answering.
    Fault always_busy;
    always_busy.status = 429;
    server.SetDefaultFault(always_busy);
    for (int i = 0; i < 2; ++i) {
        auto busy = client->Get("/id");
        ASSERT_TRUE(busy);
        EXPECT_EQ(busy->status, 429);
    }
    server.SetDefaultFault(Fault{});
    auto normal = client->Get("/id?d_mid=7");
    ASSERT_TRUE(normal);
    EXPECT_EQ(normal->status, 200);
    EXPECT_EQ(nlohmann::json::parse(normal->body)["id_sync_ttl"], ServerOptions{}.ttl);
}

TEST(TestIdentityServerTest, TlsIsTrustedThroughTheCaFileOnly) {
    ServerOptions options;
    options.tls = true;
    TestIdentityServer server(options);
    ASSERT_TRUE(server.Tls());
    EXPECT_EQ(server.BaseUrl(), "https://" + server.Host());
    ASSERT_FALSE(server.CaFile().empty());

    EXPECT_EQ(GetJson(server, "/id?d_mid=5")["d_mid"], "5");

    httplib::Client by_name("https://localhost:" + std::to_string(server.Port()));
    by_name.set_ca_cert_path(server.CaFile().c_str());
    by_name.enable_server_certificate_verification(true);
    auto named = by_name.Get("/veloptout.jpg");
    ASSERT_TRUE(named) << httplib::to_string(named.error());
    EXPECT_EQ(named->status, 200);

    // A client with only the system's trust store must refuse the certificate.
    httplib::Client untrusting(server.BaseUrl());
    untrusting.enable_server_certificate_verification(true);
    auto refused = untrusting.Get("/id");
    EXPECT_FALSE(refused);
    EXPECT_EQ(refused.error(), httplib::Error::SSLServerVerification);
}

TEST(TestIdentityServerTest, DroppedConnectionGivesNoAnswerAndTheServerCarriesOn) {
    for (bool tls : {false, true}) {
        ServerOptions options;
        options.tls = tls;
        TestIdentityServer server(options);
        Fault drop;
        drop.drop_connection = true;
        server.PushFault(drop);

        auto client = ClientFor(server);
        auto dropped = client->Get("/id");
        EXPECT_FALSE(dropped) << "tls " << tls << ": got status " << dropped->status;

        auto next = ClientFor(server)->Get("/id");
        ASSERT_TRUE(next) << "tls " << tls;
        EXPECT_EQ(next->status, 200);
        EXPECT_EQ(server.Requests().size(), 2u);
    }
}

TEST(TestIdentityServerTest, StopCutsDelayedAndHangingRequestsShort) {
    TestIdentityServer server;
    Fault slow;
    slow.delay_ms = 10 * 60 * 1000;
    server.PushFault(slow);
    Fault hang;
    hang.hang = true;
    server.PushFault(hang);

    auto slow_call = std::async(std::launch::async, [&] { return static_cast<bool>(ClientFor(server)->Get("/id")); });
    ASSERT_TRUE(server.WaitForRequests(1, kWait));
    auto hang_call = std::async(std::launch::async, [&] { return static_cast<bool>(ClientFor(server)->Get("/id")); });
    ASSERT_TRUE(server.WaitForRequests(2, kWait));
    // An idle keep-alive connection must not hold the stop up either.
    auto idle = ClientFor(server);
    idle->set_keep_alive(true);
    ASSERT_TRUE(idle->Get("/veloptout.jpg"));

    auto stopped = std::async(std::launch::async, [&] { server.Stop(); });
    ASSERT_EQ(stopped.wait_for(kWait), std::future_status::ready) << "Stop hangs";
    ASSERT_EQ(slow_call.wait_for(kWait), std::future_status::ready);
    ASSERT_EQ(hang_call.wait_for(kWait), std::future_status::ready);
    EXPECT_FALSE(slow_call.get());
    EXPECT_FALSE(hang_call.get());
    EXPECT_FALSE(ClientFor(server)->Get("/id"));
    server.Stop();  // a second stop, and the destructor's, are harmless
}

}  // namespace
}  // namespace VelmoraTestServer
