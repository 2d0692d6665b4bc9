#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>

#include "runtime/bus/EventHub.h"
#include "runtime/configuration/ConfigurationExtension.h"
#include "runtime/services/LocalStorageServiceInterface.h"
#include "runtime/services/PlatformServices.h"
#include "tests/runtime/bus/HubTestModules.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"

using namespace VelmoraMobile;
using VelmoraTest::LogCapture;
using VelmoraTest::RecordingModule;
using VelmoraTest::TempDir;

namespace {

const std::string kDeep = std::string(100000, '[') + std::string(100000, ']');

// A hub on a data folder with the configuration extension and a listener of its responses.
struct Host {
    explicit Host(const std::string& data_dir)
        : hub(std::make_shared<EventHub>(std::make_shared<PlatformServices>(data_dir))) {
        listener->Listen(EventType::CONFIGURATION, EventSource::RESPONSE_CONTENT);
        hub->RegisterModule(listener);
        configuration = hub->RegisterModule<ConfigurationExtension>();
        hub->FinishModulesRegistration();
    }
    ~Host() { hub->Shutdown(); }

    std::shared_ptr<EventData> WaitForResponse(size_t index) const {
        if (!listener->WaitForCount(EventType::CONFIGURATION, EventSource::RESPONSE_CONTENT, index + 1)) {
            return nullptr;
        }
        return listener->EventsOf(EventType::CONFIGURATION, EventSource::RESPONSE_CONTENT).at(index)->GetData();
    }

    std::shared_ptr<EventHub> hub;
    std::shared_ptr<RecordingModule> listener = std::make_shared<RecordingModule>("test.configuration.listener");
    std::shared_ptr<ConfigurationExtension> configuration;
};

}  // namespace

TEST(ConfigurationDepthRegressionTest, DeepValueInTheFileIsRefusedAndTheRestPublished) {
    TempDir dir;
    std::ofstream(dir.File("config.json")) << R"({"ondaraCloud.org":"ORG@Velmora","rules":)" << kDeep << "}";
    Host host(dir.Path());
    LogCapture log;
    host.configuration->ConfigureWithFile(dir.File("config.json"));
    auto published = host.WaitForResponse(0);
    ASSERT_TRUE(published);
    EXPECT_EQ(published->OptString("ondaraCloud.org", ""), "ORG@Velmora");
    EXPECT_FALSE(published->ContainsKey("rules"));
    EXPECT_EQ(log.Count("JSON value \"rules\" is nested deeper than 100 levels and was refused"), 1u);
}

TEST(ConfigurationDepthRegressionTest, DeepValueAlreadyPersistedDoesNotStopTheNextStart) {
    TempDir dir;
    PlatformServices(dir.Path())
        .GetLocalStorageService()
        ->GetDataStore(ConfigurationExtension::DATA_STORE_NAME)
        ->SetString(ConfigurationExtension::STORED_CHANGES_KEY,
                    R"({"global.privacy":"optedout","rules":)" + kDeep + "}");
    for (int start = 0; start < 2; ++start) {
        Host host(dir.Path());
        auto published = host.WaitForResponse(0);
        ASSERT_TRUE(published) << start;
        EXPECT_EQ(published->OptString("global.privacy", ""), "optedout") << start;
        EXPECT_FALSE(published->ContainsKey("rules")) << start;
        // A later change rewrites the stored changes without the refused value.
        host.configuration->UpdateConfiguration({{"global.ssl", Variant::FromBoolean(true)}});
        ASSERT_TRUE(host.WaitForResponse(1)) << start;
    }
}
