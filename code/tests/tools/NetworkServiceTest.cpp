#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <future>
#include <memory>
#include <string>

#include "runtime/services/HttpConnectionConstants.h"
#include "runtime/services/helpers/NetworkConnectionUtil.h"
#include "runtime/services/network/CurlNetworkService.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScopedEnvironment.h"
#include "tools/server/TestIdentityServer.h"

using namespace VelmoraMobile;
using VelmoraTest::LogCapture;
using VelmoraTest::ScopedEnvironment;
using VelmoraTestServer::Fault;
using VelmoraTestServer::ServerOptions;
using VelmoraTestServer::TestIdentityServer;

namespace {

using std::chrono::seconds;

std::shared_ptr<HttpConnectionInterface> Get(NetworkServiceInterface& network, const std::string& url,
                                             const std::map<std::string, std::string>& headers = {},
                                             seconds timeout = seconds(5)) {
    return network.ConnectUrl(url, HttpCommand::GET, "", headers, timeout, timeout);
}

using Answer = std::shared_ptr<HttpConnectionInterface>;

bool Ready(std::future<Answer>& answer, std::chrono::seconds wait = seconds(0)) {
    return answer.wait_for(wait) == std::future_status::ready;
}

}  // namespace

TEST(NetworkServiceTest, AnswersOfEveryStatusArriveWithBodyAndTheRequestAsSent) {
    TestIdentityServer server;
    CurlNetworkService network("");
    LogCapture capture;
    auto headers = NetworkConnectionUtil::GetHeaders("en-US", "");
    headers["X-Bad"] = "v\r\nX-Injected: 1";
    auto connection = Get(network, server.BaseUrl() + "/id?d_orgid=ORG&d_mid=0123456789&d_cid=20920%01", headers);
    ASSERT_TRUE(connection);
    EXPECT_EQ(connection->GetResponseCode(), HttpConnectionConstants::HTTP_OK);
    EXPECT_NE(connection->GetResponse().find("\"d_mid\":\"0123456789\""), std::string::npos);
    EXPECT_EQ(connection->GetResponseMessage(), "OK");
    EXPECT_EQ(connection->GetResponsePropertyValue("content-TYPE"), "application/json");
    auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].path, "/id");
    EXPECT_EQ(requests[0].query, "d_orgid=ORG&d_mid=0123456789&d_cid=20920%01");  // escapes reach it unchanged
    EXPECT_EQ(requests[0].headers.at("Accept-Language"), "en-US");
    EXPECT_EQ(requests[0].headers.at("User-Agent"), NetworkConnectionUtil::GetUserAgent());
    EXPECT_EQ(requests[0].headers.count("X-Injected") + requests[0].headers.count("X-Bad"), 0u);
    EXPECT_TRUE(capture.Contains("Skipping a request header that would break the request (X-Bad)"));

    Fault unavailable;
    unavailable.status = 503;
    unavailable.body = "try later";
    server.PushFault(unavailable);
    auto refused = Get(network, server.BaseUrl() + "/id?d_orgid=ORG");
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->GetResponseCode(), 503);
    EXPECT_EQ(refused->GetResponse(), "try later");
    auto missing = Get(network, server.BaseUrl() + "/nothing-here");
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->GetResponseCode(), 404);
    ASSERT_TRUE(
        network.ConnectUrl(server.BaseUrl() + "/id", HttpCommand::POST, "{\"a\":1}", {}, seconds(5), seconds(5)));
    EXPECT_EQ(server.Requests().back().method, "POST");
    EXPECT_EQ(server.Requests().back().headers.at("Content-Length"), "7");
}

TEST(NetworkServiceTest, NoAnswerClosedPortDroppedConnectionAndBadUrlsGiveEmptyPointer) {
    std::string closed_url;
    {
        TestIdentityServer closed;
        closed_url = closed.BaseUrl() + "/id?d_orgid=ORG";
    }
    CurlNetworkService network("");
    LogCapture capture;
    EXPECT_FALSE(Get(network, closed_url, {}, seconds(2)));
    EXPECT_TRUE(capture.ContainsFragment("failed"));
    for (const std::string& url : {std::string(""), std::string("not a url"), std::string("ftp://127.0.0.1:1/x"),
                                   std::string("http://127.0.0.1:1/\0x", 21)}) {
        EXPECT_FALSE(Get(network, url, {}, seconds(1)));
    }

    TestIdentityServer server;
    Fault drop;
    drop.drop_connection = true;
    server.PushFault(drop);
    Fault hang;
    hang.hang = true;
    server.PushFault(hang);
    EXPECT_FALSE(Get(network, server.BaseUrl() + "/id?d_orgid=ORG"));
    auto start = std::chrono::steady_clock::now();
    auto hung = Get(network, server.BaseUrl() + "/id?d_orgid=ORG", {}, seconds(1));
    double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("no answer: ConnectUrl returned after %.3f s (connect 1 s + read 1 s)\n", elapsed);
    EXPECT_FALSE(hung);
    EXPECT_LT(elapsed, 2.0 + 3.0);
    // The same thread's handle works again afterwards.
    auto connection = Get(network, server.BaseUrl() + "/id?d_orgid=ORG");
    ASSERT_TRUE(connection);
    EXPECT_EQ(connection->GetResponseCode(), 200);
}

TEST(NetworkServiceTest, TlsWorksWithTheServersCertificateThroughTheCaVariableOnly) {
    ServerOptions options;
    options.tls = true;
    TestIdentityServer server(options);
    ASSERT_FALSE(server.CaFile().empty());
    {
        ScopedEnvironment ca("VELMORA_CA_FILE", server.CaFile());
        CurlNetworkService trusting;
        for (const char* target : {"/id?d_orgid=ORG", "/veloptout.jpg?d_mid=1&d_orgid=ORG"}) {
            auto connection = Get(trusting, server.BaseUrl() + target);  // the second reuses the connection
            ASSERT_TRUE(connection) << target;
            EXPECT_EQ(connection->GetResponseCode(), 200);
        }
    }
    ScopedEnvironment ca("VELMORA_CA_FILE", std::nullopt);
    CurlNetworkService system_bundle_only;
    LogCapture capture;
    EXPECT_FALSE(Get(system_bundle_only, server.BaseUrl() + "/id?d_orgid=ORG"));
    EXPECT_TRUE(capture.ContainsFragment("failed"));
}

TEST(NetworkServiceTest, AsyncReturnsBeforeTheAnswerAndCallsBackWithIt) {
    TestIdentityServer server;
    Fault hang;
    hang.hang = true;
    hang.path = "/veloptout.jpg";
    server.PushFault(hang);
    std::promise<Answer> hanging_promise, answered_promise;
    auto hanging = hanging_promise.get_future();
    auto answered = answered_promise.get_future();
    CurlNetworkService network("");  // declared last: its worker ends before the promises go
    network.ConnectUrlAsync(server.BaseUrl() + "/veloptout.jpg?d_mid=1", HttpCommand::GET, "", {}, seconds(30),
                            seconds(30), [&](const Answer& answer) { hanging_promise.set_value(answer); });
    // The server holds that request until it stops, so the call cannot have waited for it.
    EXPECT_FALSE(Ready(hanging));
    network.ConnectUrlAsync(server.BaseUrl() + "/id?d_orgid=ORG", HttpCommand::GET, "", {}, seconds(5), seconds(5),
                            [&](const Answer& answer) { answered_promise.set_value(answer); });
    ASSERT_TRUE(Ready(answered, seconds(20)));
    auto connection = answered.get();
    ASSERT_TRUE(connection);
    EXPECT_EQ(connection->GetResponseCode(), 200);
    EXPECT_FALSE(Ready(hanging));
    ASSERT_TRUE(server.WaitForRequests(2, seconds(20)));
    server.Stop();  // drops the held connection
    ASSERT_TRUE(Ready(hanging, seconds(20)));
    EXPECT_FALSE(hanging.get());
}

TEST(NetworkServiceTest, OneMegabyteUrlIsRefusedWithALogLine) {
    TestIdentityServer server;
    CurlNetworkService network("");
    std::string url = server.BaseUrl() + "/id?d_orgid=ORG&d_blob=" + std::string(1024 * 1024, 'a');
    LogCapture capture;
    EXPECT_FALSE(Get(network, url));
    EXPECT_TRUE(capture.Contains("Refusing to send a URL of " + std::to_string(url.size()) + " bytes (limit " +
                                 std::to_string(CurlNetworkService::MAX_URL_BYTES) + ")"));
    EXPECT_TRUE(server.Requests().empty());
    // Just under the limit it goes out; the server may refuse it, the client must not fail.
    std::string long_url = server.BaseUrl() + "/id?d_orgid=ORG&d_blob=";
    long_url += std::string(CurlNetworkService::MAX_URL_BYTES - long_url.size(), 'b');
    Get(network, long_url);
    auto after = Get(network, server.BaseUrl() + "/id?d_orgid=ORG");
    ASSERT_TRUE(after);
    EXPECT_EQ(after->GetResponseCode(), 200);
}
