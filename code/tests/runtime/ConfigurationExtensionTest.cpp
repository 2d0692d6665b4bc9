#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>

#include "ConfigurationExtension.h"
#include "EventBuilder.h"
#include "EventDataKeys.h"
#include "EventHub.h"
#include "HubTestModules.h"
#include "LogCapture.h"
#include "PlatformServices.h"
#include "SharedStatePending.h"
#include "TempDir.h"
#include "WaitFor.h"

using namespace VelmoraMobile;
using VelmoraTest::LogCapture;
using VelmoraTest::RecordingModule;
using VelmoraTest::TempDir;
using VelmoraTest::WaitFor;

namespace {

const std::string kConfig = "com.velmora.module.configuration";

void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream out(path);
    out << text;
}

// One hub on a data folder, with the configuration extension and a module that listens to the
// configuration's responses and to shared state changes.
struct ConfiguredHub {
    // `prepared` lets a test call the extension before it is registered.
    explicit ConfiguredHub(const std::string& data_dir, std::shared_ptr<ConfigurationExtension> prepared = nullptr)
        : hub(std::make_shared<EventHub>(std::make_shared<PlatformServices>(data_dir))),
          listener(std::make_shared<RecordingModule>("test.configuration.listener")) {
        // The listener goes first so that it hears even the first publication.
        listener->Listen(EventType::CONFIGURATION, EventSource::RESPONSE_CONTENT);
        listener->Listen(EventType::HUB, EventSource::SHARED_STATE);
        hub->RegisterModule(listener);
        if (prepared) {
            configuration = hub->RegisterModule(prepared) ? prepared : nullptr;
        } else {
            configuration = hub->RegisterModule<ConfigurationExtension>();
        }
        hub->FinishModulesRegistration();
    }
    ~ConfiguredHub() { hub->Shutdown(); }

    std::vector<std::shared_ptr<Event>> Responses() const {
        return listener->EventsOf(EventType::CONFIGURATION, EventSource::RESPONSE_CONTENT);
    }
    bool WaitForResponses(size_t count) const {
        return listener->WaitForCount(EventType::CONFIGURATION, EventSource::RESPONSE_CONTENT, count);
    }
    std::vector<std::shared_ptr<Event>> ConfigurationStateEvents() const {
        std::vector<std::shared_ptr<Event>> events;
        for (const auto& event : listener->EventsOf(EventType::HUB, EventSource::SHARED_STATE)) {
            if (event->GetData()->OptString(EventDataKeys::STATE_OWNER, "") == kConfig) events.push_back(event);
        }
        return events;
    }
    std::shared_ptr<EventData> StateFor(const std::shared_ptr<Event>& event) {
        return listener->GetSharedEventState(kConfig, event);
    }

    std::shared_ptr<EventHub> hub;
    std::shared_ptr<ConfigurationExtension> configuration;
    std::shared_ptr<RecordingModule> listener;
};

TEST(ConfigurationExtensionTest, FileAndUpdateArriveAsResponsesAndAsStatesAtTheirVersions) {
    TempDir dir;
    WriteFile(dir.File("config.json"),
              R"({"ondaraCloud.org": "ORG@Velmora", "global.privacy": "optedin", "global.ssl": false,
                  "identity.adidEnabled": true, "retries": 3, "big": 6000000000})");
    ConfiguredHub setup(dir.Path());
    ASSERT_NE(setup.configuration, nullptr);
    ASSERT_TRUE(WaitFor([&] { return setup.hub->HasSharedEventState(kConfig); }));

    auto early = EventBuilder("early", EventType::IDENTITY, EventSource::REQUEST_IDENTITY).Build();
    setup.hub->Dispatch(early);
    ASSERT_TRUE(setup.listener->Sync(*setup.hub));
    EXPECT_EQ(setup.StateFor(early), SHARED_STATE_PENDING);

    setup.configuration->ConfigureWithFile(dir.File("config.json"));
    ASSERT_TRUE(setup.WaitForResponses(1));
    auto first = setup.Responses()[0];
    const auto& data = *first->GetData();
    EXPECT_EQ(data.OptString("ondaraCloud.org", ""), "ORG@Velmora");
    EXPECT_EQ(data.OptString("global.privacy", ""), "optedin");
    EXPECT_FALSE(data.OptBoolean("global.ssl", true));
    EXPECT_TRUE(data.OptBoolean("identity.adidEnabled", false));
    EXPECT_EQ(data.OptInteger("retries", 0), 3);
    EXPECT_EQ(data.OptLong("big", 0), 6000000000LL);
    // The first configuration resolves the pending state, so the early event sees it too.
    EXPECT_EQ(setup.StateFor(early)->OptString("ondaraCloud.org", ""), "ORG@Velmora");
    EXPECT_EQ(setup.StateFor(first)->OptString("ondaraCloud.org", ""), "ORG@Velmora");

    setup.configuration->UpdateConfiguration({{"ondaraCloud.org", Variant::FromString("NEW@Velmora")}});
    ASSERT_TRUE(setup.WaitForResponses(2));
    auto second = setup.Responses()[1];
    EXPECT_EQ(second->GetData()->OptString("ondaraCloud.org", ""), "NEW@Velmora");
    EXPECT_EQ(second->GetData()->OptString("global.privacy", ""), "optedin") << "the update keeps the rest";
    EXPECT_EQ(setup.StateFor(second)->OptString("ondaraCloud.org", ""), "NEW@Velmora");
    // Earlier events keep the configuration of their time.
    EXPECT_EQ(setup.StateFor(first)->OptString("ondaraCloud.org", ""), "ORG@Velmora");
    EXPECT_EQ(setup.StateFor(early)->OptString("ondaraCloud.org", ""), "ORG@Velmora");

    ASSERT_TRUE(setup.listener->Sync(*setup.hub));
    auto announcements = setup.ConfigurationStateEvents();
    ASSERT_EQ(announcements.size(), 2u);
    EXPECT_LT(announcements[0]->GetEventNumber(), first->GetEventNumber());
    EXPECT_LT(announcements[1]->GetEventNumber(), second->GetEventNumber());
    EXPECT_EQ(setup.StateFor(announcements[1])->OptString("ondaraCloud.org", ""), "NEW@Velmora");
}

TEST(ConfigurationExtensionTest, ConfigUpdateRequestIsAppliedAndAnsweredUnderItsPairId) {
    TempDir dir;
    ConfiguredHub setup(dir.Path());
    auto data = std::make_shared<EventData>();
    data->PutVariantMap("config.update", {{"global.privacy", Variant::FromString("optedout")}});
    auto request = EventBuilder("Configuration Update From Identity Module", EventType::CONFIGURATION,
                                EventSource::REQUEST_CONTENT)
                       .SetData(data)
                       .Build();
    std::shared_ptr<Event> answer;
    std::mutex mutex;
    setup.hub->RegisterOneTimeListener<RecordingModule>(EventType::CONFIGURATION, EventSource::RESPONSE_CONTENT,
                                                        request->GetResponsePairID(),
                                                        [&](const std::shared_ptr<Event>& event) {
                                                            std::lock_guard<std::mutex> lock(mutex);
                                                            answer = event;
                                                        });
    setup.hub->Dispatch(request);
    ASSERT_TRUE(WaitFor([&] {
        std::lock_guard<std::mutex> lock(mutex);
        return answer != nullptr;
    }));
    EXPECT_EQ(answer->GetData()->OptString("global.privacy", ""), "optedout");
    EXPECT_EQ(setup.StateFor(nullptr)->OptString("global.privacy", ""), "optedout");

    // A "config.update" that is no map is logged and changes nothing.
    LogCapture log;
    auto bad = std::make_shared<EventData>();
    bad->PutString("config.update", "not a map");
    setup.hub->Dispatch(
        EventBuilder("bad", EventType::CONFIGURATION, EventSource::REQUEST_CONTENT).SetData(bad).Build());
    // A plain request is answered with the configuration as it stands, and publishes no state.
    auto plain = EventBuilder("plain", EventType::CONFIGURATION, EventSource::REQUEST_CONTENT).Build();
    setup.hub->Dispatch(plain);
    ASSERT_TRUE(setup.WaitForResponses(2));
    ASSERT_TRUE(setup.listener->Sync(*setup.hub));
    auto responses = setup.Responses();
    ASSERT_EQ(responses.size(), 2u);
    EXPECT_EQ(responses[1]->GetResponsePairID(), plain->GetResponsePairID());
    EXPECT_EQ(responses[1]->GetData()->OptString("global.privacy", ""), "optedout");
    EXPECT_EQ(setup.ConfigurationStateEvents().size(), 1u);
    EXPECT_EQ(log.Count("Configuration request ignored: config.update is not a map"), 1u);
}

TEST(ConfigurationExtensionTest, OptOutSurvivesANewHubOnTheSameDataFolderAndWinsOverTheFile) {
    TempDir dir;
    WriteFile(dir.File("config.json"), R"({"ondaraCloud.org": "ORG@Velmora", "global.privacy": "optedin"})");
    {
        ConfiguredHub first_run(dir.Path());
        first_run.configuration->ConfigureWithFile(dir.File("config.json"));
        first_run.configuration->SetPrivacyStatus(MobilePrivacyStatus::OPT_OUT);
        ASSERT_TRUE(first_run.WaitForResponses(2));
        EXPECT_EQ(first_run.Responses()[1]->GetData()->OptString("global.privacy", ""), "optedout");
    }
    {
        // A file given before registration is applied with the stored opt-out already in place:
        // no state ever says "optedin".
        auto prepared = std::make_shared<ConfigurationExtension>();
        prepared->ConfigureWithFile(dir.File("config.json"));
        ConfiguredHub early_file(dir.Path(), prepared);
        ASSERT_TRUE(early_file.WaitForResponses(1));
        ASSERT_TRUE(early_file.listener->Sync(*early_file.hub));
        for (const auto& response : early_file.Responses()) {
            EXPECT_EQ(response->GetData()->OptString("global.privacy", ""), "optedout");
            EXPECT_EQ(response->GetData()->OptString("ondaraCloud.org", ""), "ORG@Velmora");
        }
        EXPECT_EQ(early_file.Responses().size(), 1u);
    }
    ConfiguredHub second_run(dir.Path());
    // Published from the data store alone, before any file is given.
    ASSERT_TRUE(second_run.WaitForResponses(1));
    EXPECT_EQ(second_run.Responses()[0]->GetData()->OptString("global.privacy", ""), "optedout");
    EXPECT_FALSE(second_run.Responses()[0]->GetData()->ContainsKey("ondaraCloud.org"));
    auto probe = EventBuilder("probe", EventType::IDENTITY, EventSource::REQUEST_IDENTITY).SetEventNumber(0).Build();
    EXPECT_EQ(second_run.StateFor(probe)->OptString("global.privacy", ""), "optedout");

    second_run.configuration->ConfigureWithFile(dir.File("config.json"));
    ASSERT_TRUE(second_run.WaitForResponses(2));
    auto with_file = second_run.Responses()[1]->GetData();
    EXPECT_EQ(with_file->OptString("ondaraCloud.org", ""), "ORG@Velmora");
    EXPECT_EQ(with_file->OptString("global.privacy", ""), "optedout");

    // Opting back in is remembered the same way.
    second_run.configuration->SetPrivacyStatus(MobilePrivacyStatus::OPT_IN);
    ASSERT_TRUE(second_run.WaitForResponses(3));
    EXPECT_EQ(second_run.Responses()[2]->GetData()->OptString("global.privacy", ""), "optedin");
}

TEST(ConfigurationExtensionTest, MissingOrNonObjectFileLogsOneLineAndChangesNothing) {
    TempDir dir;
    WriteFile(dir.File("good.json"), R"({"ondaraCloud.org": "ORG@Velmora"})");
    WriteFile(dir.File("array.json"), R"(["ondaraCloud.org", "ORG@Velmora"])");
    WriteFile(dir.File("broken.json"), R"({"ondaraCloud.org": )");
    ConfiguredHub setup(dir.Path());
    setup.configuration->ConfigureWithFile(dir.File("good.json"));
    ASSERT_TRUE(setup.WaitForResponses(1));

    LogCapture log;
    const std::string missing = dir.File("missing.json");
    setup.configuration->ConfigureWithFile(missing);
    setup.configuration->ConfigureWithFile(dir.File("array.json"));
    setup.configuration->ConfigureWithFile(dir.File("broken.json"));
    const std::string missing_line =
        "Configuration file " + missing + " could not be read; the configuration is unchanged";
    const std::string array_line =
        "Configuration file " + dir.File("array.json") + " holds no JSON object; the configuration is unchanged";
    const std::string broken_line =
        "Configuration file " + dir.File("broken.json") + " holds no JSON object; the configuration is unchanged";
    ASSERT_TRUE(WaitFor([&] { return log.Contains(broken_line); }));
    EXPECT_EQ(log.Count(missing_line), 1u);
    EXPECT_EQ(log.Count(array_line), 1u);
    EXPECT_EQ(log.Count(broken_line), 1u);
    size_t warnings = 0;
    for (const auto& line : log.Lines()) {
        if (line.tag == "Configuration" && line.mode <= LoggingMode::WARNING_LOG) ++warnings;
    }
    EXPECT_EQ(warnings, 3u);

    ASSERT_TRUE(setup.listener->Sync(*setup.hub));
    EXPECT_EQ(setup.Responses().size(), 1u);
    EXPECT_EQ(setup.ConfigurationStateEvents().size(), 1u);
    EXPECT_EQ(setup.StateFor(nullptr)->OptString("ondaraCloud.org", ""), "ORG@Velmora");
}

TEST(ConfigurationExtensionTest, WorksInMemoryWithoutPlatformServices) {
    auto hub = std::make_shared<EventHub>(nullptr);
    auto configuration = hub->RegisterModule<ConfigurationExtension>();
    ASSERT_NE(configuration, nullptr);
    configuration->SetPrivacyStatus(MobilePrivacyStatus::UNKNOWN);
    ASSERT_TRUE(WaitFor([&] {
        auto state = hub->GetSharedEventState(kConfig, nullptr);
        return state && state != SHARED_STATE_PENDING;
    }));
    EXPECT_EQ(hub->GetSharedEventState(kConfig, nullptr)->OptString("global.privacy", ""), "optunknown");
    hub->Shutdown();
}

}  // namespace
