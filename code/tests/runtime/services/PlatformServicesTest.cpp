#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "runtime/services/PlatformServices.h"
#include "runtime/services/crypto/OpenSslCryptoService.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TempDir.h"

using namespace VelmoraMobile;
using namespace VelmoraTest;

TEST(PlatformServicesTest, DataFolderComesFromArgumentThenEnvironmentThenXdgThenHome) {
    TempDir dir;
    ScopedEnvironment data_dir("VELMORA_DATA_DIR", dir.File("from-env"));
    ScopedEnvironment xdg("XDG_DATA_HOME", dir.File("xdg"));
    ScopedEnvironment home("HOME", dir.File("home"));
    EXPECT_EQ(PlatformServices(dir.File("explicit/nested")).GetDataDirectory(), dir.File("explicit/nested"));
    EXPECT_TRUE(std::filesystem::is_directory(dir.File("explicit/nested")));
    EXPECT_EQ(PlatformServices().GetDataDirectory(), dir.File("from-env"));
    ScopedEnvironment no_data_dir("VELMORA_DATA_DIR", std::nullopt);
    EXPECT_EQ(PlatformServices().GetDataDirectory(), dir.File("xdg") + "/velmora");
    ScopedEnvironment no_xdg("XDG_DATA_HOME", "");
    EXPECT_EQ(PlatformServices().GetDataDirectory(), dir.File("home") + "/.local/share/velmora");
}

TEST(PlatformServicesTest, DatabaseNamesCannotLeaveTheDataFolderAndServicesSwapSafelyUnderReaders) {
    TempDir dir;
    PlatformServices services(dir.Path());
    LogCapture capture;
    EXPECT_EQ(services.GetDatabaseService()->GetDatabasePath("../escape"), "");
    EXPECT_TRUE(capture.Contains("Refusing database name (../escape)"));

    auto crypto = std::make_shared<OpenSslCryptoService>();
    std::atomic<bool> stop{false};
    std::thread reader([&] {
        for (std::shared_ptr<CryptoServiceInterface> s; !stop;) {
            EXPECT_TRUE(!(s = services.GetCryptoService()) || s->GetDigest("").size() == 64u);
        }
    });
    for (int i = 0; i < 200; ++i) services.SetCryptoService(i % 2 == 0 ? nullptr : crypto);
    stop = true;
    reader.join();
    EXPECT_EQ(services.GetCryptoService(), crypto);
}
