#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>

#include "runtime/bus/EventBuilder.h"
#include "runtime/bus/EventHub.h"
#include "runtime/configuration/ConfigurationExtension.h"
#include "runtime/services/PlatformServices.h"
#include "tests/runtime/bus/HubTestModules.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"
#include "tests/support/WaitFor.h"

using namespace VelmoraMobile;
using namespace VelmoraTest;

namespace {

const std::string kConfig = "com.velmora.module.configuration";

// One hub on a data folder, with the configuration extension and a module that listens to the
// configuration's responses.
struct ConfiguredHub {
    explicit ConfiguredHub(const std::string& data_dir)
        : hub(std::make_shared<EventHub>(std::make_shared<PlatformServices>(data_dir))) {
        // The listener goes first so that it hears even the first publication.
        listener->Listen(EventType::CONFIGURATION, EventSource::RESPONSE_CONTENT);
        hub->RegisterModule(listener);
        configuration = hub->RegisterModule<ConfigurationExtension>();
        hub->FinishModulesRegistration();
    }
    ~ConfiguredHub() { hub->Shutdown(); }

    std::vector<std::shared_ptr<Event>> Responses() const {
        return listener->EventsOf(EventType::CONFIGURATION, EventSource::RESPONSE_CONTENT);
    }
    bool WaitForResponses(size_t count) const {
        return listener->WaitForCount(EventType::CONFIGURATION, EventSource::RESPONSE_CONTENT, count);
    }
    std::string Response(size_t index, const std::string& key) const {
        return Responses().at(index)->GetData()->OptString(key, "");
    }
    std::string State(const std::shared_ptr<Event>& event, const std::string& key) {
        auto state = listener->GetSharedEventState(kConfig, event);
        return state ? state->OptString(key, "") : "<none>";
    }

    std::shared_ptr<EventHub> hub;
    std::shared_ptr<RecordingModule> listener = std::make_shared<RecordingModule>("test.configuration.listener");
    std::shared_ptr<ConfigurationExtension> configuration;
};

TEST(ConfigurationExtensionTest, FileUpdateAndRequestArriveAsResponsesAndStatesAndBadInputChangesNothing) {
    TempDir dir;
    std::ofstream(dir.File("config.json")) << R"({"ondaraCloud.org": "ORG@Velmora", "global.privacy": "optedin",
                                                 "global.ssl": false, "big": 6000000000})";
    std::ofstream(dir.File("array.json")) << R"(["ondaraCloud.org", "ORG@Velmora"])";
    std::ofstream(dir.File("broken.json")) << R"({"ondaraCloud.org": )";
    ConfiguredHub setup(dir.Path());

    setup.configuration->ConfigureWithFile(dir.File("config.json"));
    ASSERT_TRUE(setup.WaitForResponses(1));
    EXPECT_EQ(setup.Responses()[0]->GetData()->OptLong("big", 0), 6000000000LL);

    setup.configuration->UpdateConfiguration({{"ondaraCloud.org", Variant::FromString("NEW@Velmora")}});
    ASSERT_TRUE(setup.WaitForResponses(2));
    EXPECT_EQ(setup.Response(1, "global.privacy"), "optedin") << "the update keeps the rest";
    // The response already sees its own state.
    EXPECT_EQ(setup.State(setup.Responses()[1], "ondaraCloud.org"), "NEW@Velmora");

    // "config.update" from another module, answered under the request's pair id.
    auto data = std::make_shared<EventData>();
    data->PutVariantMap("config.update", {{"global.privacy", Variant::FromString("optedout")}});
    auto request = EventBuilder("update", EventType::CONFIGURATION, EventSource::REQUEST_CONTENT).SetData(data).Build();
    setup.hub->Dispatch(request);
    ASSERT_TRUE(setup.WaitForResponses(3));
    EXPECT_EQ(setup.Responses()[2]->GetResponsePairID(), request->GetResponsePairID());
    EXPECT_EQ(setup.Response(2, "global.privacy"), "optedout");

    LogCapture log;
    for (const char* name : {"missing.json", "array.json", "broken.json"}) {
        setup.configuration->ConfigureWithFile(dir.File(name));
    }
    auto bad = std::make_shared<EventData>();
    bad->PutString("config.update", "not a map");
    setup.hub->Dispatch(
        EventBuilder("bad", EventType::CONFIGURATION, EventSource::REQUEST_CONTENT).SetData(bad).Build());
    const std::string unchanged = "; the configuration is unchanged";
    ASSERT_TRUE(WaitFor([&] { return log.Contains("Configuration request ignored: config.update is not a map"); }));
    EXPECT_EQ(log.Count("Configuration file " + dir.File("missing.json") + " could not be read" + unchanged), 1u);
    for (const char* name : {"array.json", "broken.json"}) {
        EXPECT_EQ(log.Count("Configuration file " + dir.File(name) + " holds no JSON object" + unchanged), 1u);
    }
    ASSERT_TRUE(setup.listener->Sync(*setup.hub));
    EXPECT_EQ(setup.Responses().size(), 3u);
}

// Over two starts on one data folder: the stored changes are published before any file, a stored
// opt-out wins over the file, and values nested too deep are refused in the store and in the file.
TEST(ConfigurationExtensionTest, StoredChangesOutliveTheHubWinOverTheFileAndDeepValuesAreRefused) {
    TempDir dir;
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    std::ofstream(dir.File("config.json"))
        << R"({"ondaraCloud.org":"ORG@Velmora","global.privacy":"optedin","rules":)" << deep << "}";
    PlatformServices(dir.Path())
        .GetLocalStorageService()
        ->GetDataStore(ConfigurationExtension::DATA_STORE_NAME)
        ->SetString(ConfigurationExtension::STORED_CHANGES_KEY, R"({"global.ssl":true,"rules":)" + deep + "}");
    for (int start = 0; start < 2; ++start) {
        SCOPED_TRACE(start);
        LogCapture log;
        ConfiguredHub setup(dir.Path());
        ASSERT_TRUE(setup.WaitForResponses(1));
        EXPECT_EQ(setup.Response(0, "global.privacy"), start == 0 ? "" : "optedout");
        EXPECT_FALSE(setup.Responses()[0]->GetData()->ContainsKey("ondaraCloud.org"));
        setup.configuration->ConfigureWithFile(dir.File("config.json"));
        if (start == 0) setup.configuration->SetPrivacyStatus(MobilePrivacyStatus::OPT_OUT);
        ASSERT_TRUE(setup.WaitForResponses(start == 0 ? 3 : 2));
        EXPECT_EQ(setup.Response(1, "ondaraCloud.org"), "ORG@Velmora");
        EXPECT_EQ(setup.Response(1, "global.privacy"), start == 0 ? "optedin" : "optedout");
        for (const auto& response : setup.Responses()) EXPECT_FALSE(response->GetData()->ContainsKey("rules"));
        // The second start reads the changes as the first one stored them again.
        EXPECT_EQ(log.Count("JSON value \"rules\" is nested deeper than 100 levels and was refused"),
                  start == 0 ? 2u : 1u);
    }
}

}  // namespace
