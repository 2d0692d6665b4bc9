#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include "DatabaseService.h"
#include "LogCapture.h"
#include "OpenSslCryptoService.h"
#include "PlatformServices.h"
#include "ScopedEnvironment.h"
#include "TempDir.h"

using namespace VelmoraMobile;
using VelmoraTest::ScopedEnvironment;
using VelmoraTest::TempDir;

TEST(PlatformServicesTest, DataFolderComesFromArgumentThenEnvironmentThenXdgThenHome) {
    TempDir dir;
    ScopedEnvironment data_dir("VELMORA_DATA_DIR", dir.File("from-env"));
    ScopedEnvironment xdg("XDG_DATA_HOME", dir.File("xdg"));
    ScopedEnvironment home("HOME", dir.File("home"));

    PlatformServices explicit_folder(dir.File("explicit/nested"));
    EXPECT_EQ(explicit_folder.GetDataDirectory(), dir.File("explicit/nested"));
    EXPECT_TRUE(std::filesystem::is_directory(dir.File("explicit/nested")));

    EXPECT_EQ(PlatformServices().GetDataDirectory(), dir.File("from-env"));
    {
        ScopedEnvironment no_data_dir("VELMORA_DATA_DIR", std::nullopt);
        EXPECT_EQ(PlatformServices().GetDataDirectory(), dir.File("xdg") + "/velmora");
        ScopedEnvironment no_xdg("XDG_DATA_HOME", "");
        PlatformServices from_home;
        EXPECT_EQ(from_home.GetDataDirectory(), dir.File("home") + "/.local/share/velmora");
        EXPECT_TRUE(std::filesystem::is_directory(from_home.GetDataDirectory()));
    }
}

TEST(PlatformServicesTest, EveryServiceIsThereAndDatabaseFilesLiveInTheDataFolder) {
    TempDir dir;
    PlatformServices services(dir.Path());
    EXPECT_TRUE(services.GetNetworkService());
    EXPECT_TRUE(services.GetLocalStorageService());
    EXPECT_TRUE(services.GetSystemInfoService());
    EXPECT_TRUE(services.GetJsonUtilityService());
    EXPECT_TRUE(services.GetCryptoService());
    ASSERT_TRUE(services.GetDatabaseService());
    EXPECT_EQ(services.GetDatabaseService()->GetDatabasePath("VLBMobileIdentity.sqlite"),
              dir.Path() + "/VLBMobileIdentity.sqlite");
    VelmoraTest::LogCapture capture;
    EXPECT_EQ(services.GetDatabaseService()->GetDatabasePath("../escape"), "");
    EXPECT_EQ(services.GetDatabaseService()->GetDatabasePath(""), "");
    EXPECT_TRUE(capture.Contains("Refusing database name (../escape)"));
    EXPECT_EQ(services.GetSystemInfoService()->GetApplicationCacheDir(), dir.Path());
}

TEST(PlatformServicesTest, SingleServicesCanBeReplacedOrRemoved) {
    TempDir dir;
    PlatformServices services(dir.Path());
    services.SetNetworkService(nullptr);
    services.SetLocalStorageService(nullptr);
    services.SetSystemInfoService(nullptr);
    services.SetJsonUtilityService(nullptr);
    services.SetDatabaseService(nullptr);
    services.SetCryptoService(nullptr);
    EXPECT_FALSE(services.GetNetworkService());
    EXPECT_FALSE(services.GetLocalStorageService());
    EXPECT_FALSE(services.GetSystemInfoService());
    EXPECT_FALSE(services.GetJsonUtilityService());
    EXPECT_FALSE(services.GetDatabaseService());
    EXPECT_FALSE(services.GetCryptoService());

    auto crypto = std::make_shared<OpenSslCryptoService>();
    services.SetCryptoService(crypto);
    EXPECT_EQ(services.GetCryptoService(), crypto);
    auto database = std::make_shared<DatabaseService>("/elsewhere");
    services.SetDatabaseService(database);
    EXPECT_EQ(services.GetDatabaseService()->GetDatabasePath("x"), "/elsewhere/x");
}

TEST(PlatformServicesTest, ServicesCanBeSwappedWhileOtherThreadsUseThem) {
    TempDir dir;
    PlatformServices services(dir.Path());
    auto crypto = std::make_shared<OpenSslCryptoService>();
    std::atomic<bool> stop{false};
    std::vector<std::thread> readers;
    for (int i = 0; i < 2; ++i) {
        readers.emplace_back([&]() {
            while (!stop) {
                auto service = services.GetCryptoService();
                if (service) {
                    EXPECT_EQ(service->GetDigest("").size(), 64u);
                }
            }
        });
    }
    for (int i = 0; i < 200; ++i) {
        services.SetCryptoService(i % 2 == 0 ? nullptr : crypto);
    }
    stop = true;
    for (auto& reader : readers) reader.join();
}
