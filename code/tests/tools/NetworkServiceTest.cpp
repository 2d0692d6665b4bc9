#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>

#include "runtime/services/helpers/NetworkConnectionUtil.h"
#include "runtime/services/network/CurlNetworkService.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScopedEnvironment.h"
#include "tools/server/TestIdentityServer.h"

using namespace VelmoraMobile;
using VelmoraTest::LogCapture;
using VelmoraTestServer::Fault;
using VelmoraTestServer::TestIdentityServer;

namespace {

using std::chrono::seconds;
using Answer = std::shared_ptr<HttpConnectionInterface>;

Answer Get(NetworkServiceInterface& network, const std::string& url,
           const std::map<std::string, std::string>& headers = {}, seconds timeout = seconds(5)) {
    return network.ConnectUrl(url, HttpCommand::GET, "", headers, timeout, timeout);
}

}  // namespace

// Failures give an empty pointer and the handle works afterwards; every status arrives with its
// body, and the request as sent; asynchronous calls call back with the answer.
TEST(NetworkServiceTest, AnswersFailuresTheRequestAsSentAndAsynchronousCalls) {
    TestIdentityServer server;
    CurlNetworkService network("");
    LogCapture capture;
    // A URL that C would cut at its NUL is refused, not shortened.
    for (const std::string& url : {std::string("http://127.0.0.1:1/id"), server.BaseUrl() + std::string("/id\0x", 5)}) {
        EXPECT_FALSE(Get(network, url, {}, seconds(1))) << url;
    }
    EXPECT_TRUE(capture.ContainsFragment("failed"));
    auto headers = NetworkConnectionUtil::GetHeaders("en-US", "");
    headers["X-Bad"] = "v\r\nX-Injected: 1";
    auto connection = Get(network, server.BaseUrl() + "/id?d_orgid=ORG&d_mid=0123456789&d_cid=20920%01", headers);
    ASSERT_TRUE(connection);
    EXPECT_EQ(connection->GetResponseMessage() + " " + connection->GetResponsePropertyValue("content-TYPE"),
              "OK application/json");  // header names in any case
    auto sent = server.Requests().at(0);
    EXPECT_EQ(sent.path + "?" + sent.query, "/id?d_orgid=ORG&d_mid=0123456789&d_cid=20920%01");  // escapes unchanged
    EXPECT_EQ(sent.headers.at("Accept-Language"), "en-US");
    EXPECT_EQ(sent.headers.count("X-Injected") + sent.headers.count("X-Bad"), 0u);
    EXPECT_TRUE(capture.Contains("Skipping a request header that would break the request (X-Bad)"));

    Fault fault;
    fault.status = 503;
    fault.body = "try later";
    server.PushFault(fault);
    auto refused = Get(network, server.BaseUrl() + "/id?d_orgid=ORG");
    ASSERT_TRUE(refused);
    EXPECT_EQ(std::to_string(refused->GetResponseCode()) + " " + refused->GetResponse(), "503 try later");
    ASSERT_TRUE(
        network.ConnectUrl(server.BaseUrl() + "/id", HttpCommand::POST, "{\"a\":1}", {}, seconds(5), seconds(5)));
    sent = server.Requests().back();
    EXPECT_EQ(sent.method + " " + sent.headers.at("Content-Length"), "POST 7");

    // A connection held past the read timeout (without it this call never returns); then the handle works.
    Fault hang;
    hang.hang = true;
    server.PushFault(hang);
    EXPECT_FALSE(Get(network, server.BaseUrl() + "/id?d_orgid=ORG", {}, seconds(1)));
    connection = Get(network, server.BaseUrl() + "/id?d_orgid=ORG");
    EXPECT_TRUE(connection && connection->GetResponseCode() == 200);

    std::string url = server.BaseUrl() + "/id?d_orgid=ORG&d_blob=" + std::string(1024 * 1024, 'a');
    EXPECT_FALSE(Get(network, url));
    EXPECT_TRUE(capture.Contains("Refusing to send a URL of " + std::to_string(url.size()) + " bytes (limit " +
                                 std::to_string(CurlNetworkService::MAX_URL_BYTES) + ")"));

    // Asynchronous calls return at once: the server holds the first until it stops.
    hang.path = "/veloptout.jpg";
    server.PushFault(hang);
    std::promise<Answer> hanging_promise, answered_promise;
    auto hanging = hanging_promise.get_future(), answered = answered_promise.get_future();
    CurlNetworkService async("");  // declared after the promises: its worker ends before they go
    async.ConnectUrlAsync(server.BaseUrl() + "/veloptout.jpg?d_mid=1", HttpCommand::GET, "", {}, seconds(30),
                          seconds(30), [&](const Answer& answer) { hanging_promise.set_value(answer); });
    async.ConnectUrlAsync(server.BaseUrl() + "/id?d_orgid=ORG", HttpCommand::GET, "", {}, seconds(5), seconds(5),
                          [&](const Answer& answer) { answered_promise.set_value(answer); });
    ASSERT_EQ(answered.wait_for(seconds(20)), std::future_status::ready);
    ASSERT_TRUE(answered.get());
    EXPECT_EQ(hanging.wait_for(seconds(0)), std::future_status::timeout);
    server.Stop();  // drops the held connection
    ASSERT_EQ(hanging.wait_for(seconds(20)), std::future_status::ready);
    EXPECT_FALSE(hanging.get());
}

TEST(NetworkServiceTest, TlsWorksWithTheServersCertificateThroughTheCaVariableOnly) {
    VelmoraTestServer::ServerOptions options;
    options.tls = true;
    TestIdentityServer server(options);
    VelmoraTest::ScopedEnvironment ca("VELMORA_CA_FILE", server.CaFile());
    CurlNetworkService trusting;  // the variable is read here
    VelmoraTest::ScopedEnvironment no_ca("VELMORA_CA_FILE", std::nullopt);
    CurlNetworkService system_bundle_only;
    EXPECT_TRUE(Get(trusting, server.BaseUrl() + "/id?d_orgid=ORG"));
    EXPECT_FALSE(Get(system_bundle_only, server.BaseUrl() + "/id?d_orgid=ORG"));
}
