#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

#include "CurlNetworkService.h"
#include "HttpConnectionConstants.h"
#include "LogCapture.h"
#include "NetworkConnectionUtil.h"
#include "ScopedEnvironment.h"
#include "TestIdentityServer.h"
#include "WaitFor.h"

using namespace VelmoraMobile;
using VelmoraTest::LogCapture;
using VelmoraTest::ScopedEnvironment;
using VelmoraTest::WaitFor;
using VelmoraTestServer::Fault;
using VelmoraTestServer::ServerOptions;
using VelmoraTestServer::TestIdentityServer;

namespace {

using std::chrono::seconds;

std::shared_ptr<HttpConnectionInterface> Get(NetworkServiceInterface& network, const std::string& url,
                                             const std::map<std::string, std::string>& headers = {},
                                             seconds connect_timeout = seconds(5), seconds read_timeout = seconds(5)) {
    return network.ConnectUrl(url, HttpCommand::GET, "", headers, connect_timeout, read_timeout);
}

double SecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Collects the result of an asynchronous request.
struct AsyncResult {
    std::mutex mutex;
    bool called = false;
    std::shared_ptr<HttpConnectionInterface> connection;

    std::function<void(const std::shared_ptr<HttpConnectionInterface>&)> Callback() {
        return [this](const std::shared_ptr<HttpConnectionInterface>& result) {
            std::lock_guard<std::mutex> lock(mutex);
            connection = result;
            called = true;
        };
    }
    bool Called() {
        std::lock_guard<std::mutex> lock(mutex);
        return called;
    }
};

}  // namespace

TEST(NetworkServiceTest, OkAnswerWithBodyHeadersAndRequestHeaders) {
    TestIdentityServer server;
    CurlNetworkService network("");
    auto connection = Get(network, server.BaseUrl() + "/id?d_orgid=ORG&d_mid=0123456789",
                          NetworkConnectionUtil::GetHeaders("en-US", ""));
    ASSERT_TRUE(connection);
    EXPECT_EQ(connection->GetResponseCode(), HttpConnectionConstants::HTTP_OK);
    EXPECT_EQ(connection->GetResponseCode(), HttpConnectionConstants::HTTP_OK);
    EXPECT_NE(connection->GetResponse().find("\"d_mid\":\"0123456789\""), std::string::npos)
        << connection->GetResponse();
    EXPECT_EQ(connection->GetResponseMessage(), "OK");
    EXPECT_EQ(connection->GetResponsePropertyValue("content-TYPE"), "application/json");
    EXPECT_EQ(connection->GetResponsePropertyValue("X-Absent"), "");

    auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].method, "GET");
    EXPECT_EQ(requests[0].path, "/id");
    EXPECT_EQ(requests[0].query, "d_orgid=ORG&d_mid=0123456789");
    EXPECT_EQ(requests[0].headers.at("Accept-Language"), "en-US");
    EXPECT_EQ(requests[0].headers.at("User-Agent"), NetworkConnectionUtil::GetUserAgent());
}

TEST(NetworkServiceTest, EscapesInTheUrlReachTheServerUnchanged) {
    TestIdentityServer server;
    CurlNetworkService network("");
    ASSERT_TRUE(Get(network, server.BaseUrl() + "/id?d_orgid=O&d_cid_ic=crm%01abc%011&d_cid=20920%01"));
    auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].query, "d_orgid=O&d_cid_ic=crm%01abc%011&d_cid=20920%01");
}

TEST(NetworkServiceTest, StatusOtherThanOkIsReportedWithItsBody) {
    TestIdentityServer server;
    Fault unavailable;
    unavailable.status = 503;
    unavailable.body = "try later";
    server.PushFault(unavailable);
    CurlNetworkService network("");
    auto connection = Get(network, server.BaseUrl() + "/id?d_orgid=ORG");
    ASSERT_TRUE(connection);
    EXPECT_EQ(connection->GetResponseCode(), 503);
    EXPECT_EQ(connection->GetResponse(), "try later");

    auto missing = Get(network, server.BaseUrl() + "/nothing-here");
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->GetResponseCode(), 404);
}

TEST(NetworkServiceTest, PostSendsItsBody) {
    TestIdentityServer server;
    CurlNetworkService network("");
    auto connection = network.ConnectUrl(server.BaseUrl() + "/id", HttpCommand::POST, "{\"a\":1}",
                                         {{"Content-Type", "application/json"}}, seconds(5), seconds(5));
    ASSERT_TRUE(connection);  // the test server answers GET only
    auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].method, "POST");
    EXPECT_EQ(requests[0].headers.at("Content-Length"), "7");
}

TEST(NetworkServiceTest, HeadersThatWouldBreakTheRequestAreSkipped) {
    TestIdentityServer server;
    CurlNetworkService network("");
    LogCapture capture;
    auto connection = Get(network, server.BaseUrl() + "/id?d_orgid=ORG",
                          {{"X-Good", "fine"}, {"X-Bad", "v\r\nX-Injected: 1"}, {"X-Bad\nName", "v"}, {"", "v"}});
    ASSERT_TRUE(connection);
    auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].headers.at("X-Good"), "fine");
    EXPECT_EQ(requests[0].headers.count("X-Injected"), 0u);
    EXPECT_EQ(requests[0].headers.count("X-Bad"), 0u);
    EXPECT_TRUE(capture.Contains("Skipping a request header that would break the request (X-Bad)"));
}

TEST(NetworkServiceTest, ServerThatNeverAnswersEndsWithinBothTimeouts) {
    TestIdentityServer server;
    Fault hang;
    hang.hang = true;
    server.SetDefaultFault(hang);
    CurlNetworkService network("");
    auto start = std::chrono::steady_clock::now();
    auto connection = Get(network, server.BaseUrl() + "/id?d_orgid=ORG", {}, seconds(1), seconds(1));
    double elapsed = SecondsSince(start);
    std::printf("no answer: ConnectUrl returned after %.3f s (connect 1 s + read 1 s)\n", elapsed);
    EXPECT_FALSE(connection);
    EXPECT_LT(elapsed, 2.0 + 3.0);
}

TEST(NetworkServiceTest, AnswerWithinTheReadTimeoutArrives) {
    TestIdentityServer server;
    Fault slow;
    slow.delay_ms = 300;
    server.PushFault(slow);
    CurlNetworkService network("");
    auto connection = Get(network, server.BaseUrl() + "/id?d_orgid=ORG", {}, seconds(2), seconds(3));
    ASSERT_TRUE(connection);
    EXPECT_EQ(connection->GetResponseCode(), 200);
}

TEST(NetworkServiceTest, NoConnectionGivesEmptyPointer) {
    std::string closed_url;
    {
        TestIdentityServer server;
        closed_url = server.BaseUrl() + "/id?d_orgid=ORG";
    }
    CurlNetworkService network("");
    LogCapture capture;
    EXPECT_FALSE(Get(network, closed_url, {}, seconds(2), seconds(2)));
    EXPECT_TRUE(capture.ContainsFragment("failed"));

    TestIdentityServer server;
    Fault drop;
    drop.drop_connection = true;
    server.PushFault(drop);
    EXPECT_FALSE(Get(network, server.BaseUrl() + "/id?d_orgid=ORG"));
    // The next request on the same thread's handle works again.
    auto connection = Get(network, server.BaseUrl() + "/id?d_orgid=ORG");
    ASSERT_TRUE(connection);
    EXPECT_EQ(connection->GetResponseCode(), 200);
}

TEST(NetworkServiceTest, BadUrlsGiveEmptyPointer) {
    CurlNetworkService network("");
    LogCapture capture;
    EXPECT_FALSE(Get(network, "", {}, seconds(1), seconds(1)));
    EXPECT_FALSE(Get(network, "not a url", {}, seconds(1), seconds(1)));
    EXPECT_FALSE(Get(network, "ftp://127.0.0.1:1/x", {}, seconds(1), seconds(1)));
    std::string with_nul = "http://127.0.0.1:1/";
    with_nul.push_back('\0');
    with_nul += "x";
    EXPECT_FALSE(Get(network, with_nul, {}, seconds(1), seconds(1)));
}

TEST(NetworkServiceTest, TlsWithTheServersCertificateThroughTheCaVariable) {
    ServerOptions options;
    options.tls = true;
    TestIdentityServer server(options);
    ASSERT_FALSE(server.CaFile().empty());
    {
        ScopedEnvironment ca("VELMORA_CA_FILE", server.CaFile());
        CurlNetworkService trusting;
        auto connection = Get(trusting, server.BaseUrl() + "/id?d_orgid=ORG");
        ASSERT_TRUE(connection);
        EXPECT_EQ(connection->GetResponseCode(), 200);
        EXPECT_NE(connection->GetResponse().find("d_blob"), std::string::npos);
        // Same thread, same server: the connection is reused and still answers.
        auto again = Get(trusting, server.BaseUrl() + "/veloptout.jpg?d_mid=1&d_orgid=ORG");
        ASSERT_TRUE(again);
        EXPECT_EQ(again->GetResponseCode(), 200);
    }
    {
        ScopedEnvironment ca("VELMORA_CA_FILE", std::nullopt);
        CurlNetworkService system_bundle_only;
        LogCapture capture;
        EXPECT_FALSE(Get(system_bundle_only, server.BaseUrl() + "/id?d_orgid=ORG"));
        EXPECT_TRUE(capture.ContainsFragment("failed"));
    }
}

TEST(NetworkServiceTest, AsyncReturnsBeforeTheAnswerAndCallsBackWithIt) {
    TestIdentityServer server;
    Fault hang;
    hang.hang = true;
    hang.path = "/veloptout.jpg";
    server.PushFault(hang);
    CurlNetworkService network("");

    AsyncResult hanging;
    network.ConnectUrlAsync(server.BaseUrl() + "/veloptout.jpg?d_mid=1&d_orgid=ORG", HttpCommand::GET, "", {},
                            seconds(30), seconds(30), hanging.Callback());
    // The server holds that request until it stops, so the call cannot have waited for it.
    EXPECT_FALSE(hanging.Called());

    AsyncResult answered;
    network.ConnectUrlAsync(server.BaseUrl() + "/id?d_orgid=ORG", HttpCommand::GET, "", {}, seconds(5), seconds(5),
                            answered.Callback());
    ASSERT_TRUE(WaitFor([&]() { return answered.Called(); }));
    ASSERT_TRUE(answered.connection);
    EXPECT_EQ(answered.connection->GetResponseCode(), 200);
    EXPECT_FALSE(hanging.Called());

    ASSERT_TRUE(server.WaitForRequests(2, std::chrono::seconds(20)));
    server.Stop();  // drops the held connection
    ASSERT_TRUE(WaitFor([&]() { return hanging.Called(); }));
    EXPECT_FALSE(hanging.connection);
}

TEST(NetworkServiceTest, QueuedAsyncRequestsStillRunWhenTheServiceGoes) {
    TestIdentityServer server;
    Fault slow;
    slow.delay_ms = 200;
    server.SetDefaultFault(slow);
    std::vector<std::unique_ptr<AsyncResult>> results;
    {
        CurlNetworkService network("");
        for (int i = 0; i < 4; ++i) {
            results.push_back(std::make_unique<AsyncResult>());
            network.ConnectUrlAsync(server.BaseUrl() + "/id?d_orgid=ORG&n=" + std::to_string(i), HttpCommand::GET, "",
                                    {}, seconds(5), seconds(5), results.back()->Callback());
        }
        network.ConnectUrlAsync(server.BaseUrl() + "/id?d_orgid=ORG", HttpCommand::GET, "", {}, seconds(5), seconds(5),
                                nullptr);
    }
    for (auto& result : results) {
        EXPECT_TRUE(result->Called());
        ASSERT_TRUE(result->connection);
        EXPECT_EQ(result->connection->GetResponseCode(), 200);
    }
    EXPECT_EQ(server.Requests().size(), 5u);
}

TEST(NetworkServiceTest, ServiceReleasedByItsOwnCallbackDoesNotHang) {
    TestIdentityServer server;
    Fault slow;
    slow.delay_ms = 300;
    server.PushFault(slow);
    auto network = std::make_shared<CurlNetworkService>("");
    std::atomic<bool> done{false};
    std::weak_ptr<CurlNetworkService> weak = network;
    // The callback holds the last reference, so the service is destroyed on its own worker.
    network->ConnectUrlAsync(server.BaseUrl() + "/id?d_orgid=ORG", HttpCommand::GET, "", {}, seconds(5), seconds(5),
                             [keep = network, &done](const std::shared_ptr<HttpConnectionInterface>&) mutable {
                                 keep.reset();
                                 done = true;
                             });
    network.reset();
    ASSERT_TRUE(WaitFor([&]() { return done.load(); }));
    ASSERT_TRUE(WaitFor([&]() { return weak.expired(); }));
}

TEST(NetworkServiceTest, OneMegabyteUrlIsRefusedWithALogLine) {
    TestIdentityServer server;
    CurlNetworkService network("");
    std::string url = server.BaseUrl() + "/id?d_orgid=ORG&d_blob=" + std::string(1024 * 1024, 'a');
    LogCapture capture;
    EXPECT_FALSE(Get(network, url, {}, seconds(5), seconds(5)));
    EXPECT_TRUE(capture.Contains("Refusing to send a URL of " + std::to_string(url.size()) + " bytes (limit " +
                                 std::to_string(CurlNetworkService::MAX_URL_BYTES) + ")"));
    EXPECT_TRUE(server.Requests().empty());

    // Just under the limit it goes out; the server may refuse it, the client must not fail.
    std::string long_url = server.BaseUrl() + "/id?d_orgid=ORG&d_blob=";
    long_url += std::string(CurlNetworkService::MAX_URL_BYTES - long_url.size(), 'b');
    auto connection = Get(network, long_url, {}, seconds(5), seconds(5));
    std::printf("URL of %zu bytes: %s %d\n", long_url.size(), connection ? "server answered" : "no connection",
                connection ? connection->GetResponseCode() : 0);
    auto after = Get(network, server.BaseUrl() + "/id?d_orgid=ORG");
    ASSERT_TRUE(after);
    EXPECT_EQ(after->GetResponseCode(), 200);
}
