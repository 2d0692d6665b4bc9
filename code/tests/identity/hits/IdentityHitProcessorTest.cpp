#include <gtest/gtest.h>

#include "identity/hits/IdentityHitProcessor.h"
#include "identity/module/Identity.h"
#include "runtime/services/PlatformServices.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TempDir.h"
using namespace VelmoraMobile;
using namespace VelmoraTest;

namespace {

/// Records the one request it is given as "url language connect-timeout read-timeout"; answers none.
class RecordingNetwork : public Object, public virtual NetworkServiceInterface {
public:
    std::shared_ptr<HttpConnectionInterface> ConnectUrl(const std::string& url, const HttpCommand&, const std::string&,
                                                        const std::map<std::string, std::string>& headers,
                                                        std::chrono::seconds connect_timeout,
                                                        std::chrono::seconds read_timeout) override {
        auto language = headers.find("Accept-Language");
        request = url + " " + (language == headers.end() ? "-" : language->second) + " " +
                  std::to_string(connect_timeout.count()) + " " + std::to_string(read_timeout.count());
        return nullptr;
    }
    void ConnectUrlAsync(const std::string&, const HttpCommand&, const std::string&,
                         const std::map<std::string, std::string>&, std::chrono::seconds, std::chrono::seconds,
                         const std::function<void(const std::shared_ptr<HttpConnectionInterface>&)>&) override {}

    std::string request;
};

}  // namespace

TEST(IdentityHitProcessorTest, RequestNamesTheLanguageWithADashWaitsTwoSecondsEachAndReadsAnswerFields) {
    ScopedEnvironment all("LC_ALL", std::nullopt);
    ScopedEnvironment messages("LC_MESSAGES", std::nullopt);
    ScopedEnvironment lang("LANG", "en_GB.UTF-8");
    LogCapture log;
    TempDir dir;
    auto services = std::make_shared<PlatformServices>(dir.Path());
    auto network = std::make_shared<RecordingNetwork>();
    IdentityHitProcessor processor{network, services->GetSystemInfoService(), services->GetJsonUtilityService(),
                                   std::make_shared<Identity>()};
    auto hit = std::make_shared<IdentityDatabaseHit>();
    hit->url = "http://identity.example/id?d_mid=1";
    EXPECT_EQ(processor.Process(hit), HitProcessResult::DONE);
    EXPECT_EQ(network->request, hit->url + " en-GB 2 2");
    EXPECT_EQ(log.Count("something went wrong in ids sync network call. Cannot save data."), 1u);

    // mid|blob|hint|ttl|error|opt-out list
    const std::vector<std::pair<std::string, std::string>> cases = {
        {R"({"d_mid":"m","d_blob":"b","dcs_region":9,"id_sync_ttl":1800})", "m|b|9|1800||"},
        {R"({"d_mid":"m"})", "m|||600||"},
        // Odd values pass through as they came; the module decides what to keep.
        {R"({"d_mid":5,"d_blob":"b","id_sync_ttl":-30})", "|b||-30||"},
        {R"({"dcs_region":-1,"error_msg":"bad","d_optout":["global","x"]})", "|||600|bad|global,x,"},
    };
    for (const auto& [json, fields] : cases) {
        auto object =
            processor.CreateIdentityObjectFromResponseJsonObject(services->GetJsonUtilityService()->ParseJson(json));
        ASSERT_NE(object, nullptr) << json;
        std::string out = object->GetMid() + "|" + object->GetBlob() + "|" + object->GetHint() + "|" +
                          std::to_string(object->GetTtl().count()) + "|" + object->GetError() + "|";
        for (const auto& entry : object->GetOptOut()) out += entry + ",";
        EXPECT_EQ(out, fields) << json;
    }
    EXPECT_EQ(processor.CreateIdentityObjectFromResponseJsonObject(services->GetJsonUtilityService()->ParseJson("{}")),
              nullptr);
    EXPECT_EQ(log.Count("json object created is null or empty. cannot parse identity network response."), 1u);
}
