#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "runtime/services/PlatformServices.h"
#include "runtime/services/storage/SqliteLocalStorageService.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"

using namespace VelmoraMobile;
using VelmoraTest::LogCapture;
using VelmoraTest::TempDir;

namespace {

std::shared_ptr<DataStoreInterface> OpenStore(const std::string& folder, const std::string& name) {
    auto storage = std::make_shared<PlatformServices>(folder)->GetLocalStorageService();
    return storage ? storage->GetDataStore(name) : nullptr;
}

}  // namespace

TEST(DataStoreTest, TypedValuesAndRemovalsSurviveReopening) {
    TempDir dir;
    const std::string with_nul("a\0b\xFF", 4);
    {
        auto store = OpenStore(dir.Path(), "visitorIDServiceDataStore");
        ASSERT_TRUE(store);
        store->SetString("text", "hello");
        store->SetString("empty", "");
        store->SetString("binary", with_nul);
        store->SetLong("big", INT64_MIN);
        store->SetBoolean("yes", true);
        store->SetBoolean("no", false);
        store->SetString("text", "replaced");
        store->SetString("gone", "x");
        store->Remove("gone");
        store->Remove("never-there");
    }
    auto store = OpenStore(dir.Path(), "visitorIDServiceDataStore");
    ASSERT_TRUE(store);
    EXPECT_EQ(store->GetString("text", "d"), "replaced");
    EXPECT_EQ(store->GetString("empty", "d"), "");
    EXPECT_TRUE(store->Contains("empty"));
    EXPECT_EQ(store->GetString("binary", "d"), with_nul);
    EXPECT_EQ(store->GetLong("big", 0), INT64_MIN);
    EXPECT_TRUE(store->GetBoolean("yes", false));
    EXPECT_FALSE(store->GetBoolean("no", true));
    EXPECT_FALSE(store->Contains("gone"));
    // A missing key or one of another type gives the default.
    EXPECT_EQ(store->GetString("gone", "fallback"), "fallback");
    EXPECT_EQ(store->GetString("big", "fallback"), "fallback");
    EXPECT_EQ(store->GetLong("text", 7), 7);
    EXPECT_EQ(store->GetLong("yes", 7), 7);
}

// A write of the value already stored is skipped; the same number under another type is not the
// same value.
TEST(DataStoreTest, AWriteOfTheSameNumberUnderAnotherTypeChangesTheType) {
    TempDir dir;
    {
        auto store = OpenStore(dir.Path(), "s");
        ASSERT_TRUE(store);
        store->SetBoolean("flag", true);
        store->SetLong("flag", 1);
        store->SetLong("count", 7);
        store->SetLong("count", 7);
        store->SetString("count", "7");
    }
    auto store = OpenStore(dir.Path(), "s");
    EXPECT_EQ(store->GetLong("flag", 0), 1);
    EXPECT_FALSE(store->GetBoolean("flag", false));
    EXPECT_EQ(store->GetString("count", ""), "7");
    EXPECT_EQ(store->GetLong("count", 0), 0);
}

TEST(DataStoreTest, StoresOfDifferentNamesDoNotMixAlsoUnderSeveralThreads) {
    TempDir dir;
    auto services = std::make_shared<PlatformServices>(dir.Path());
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&services, t] {
            auto store = services->GetLocalStorageService()->GetDataStore("store" + std::to_string(t % 2));
            for (int k = 0; k < 50; ++k) {
                store->SetLong("t" + std::to_string(t) + "k" + std::to_string(k), k);
                store->SetString("key", "store" + std::to_string(t % 2));
            }
        });
    }
    for (auto& thread : threads) thread.join();
    auto first = OpenStore(dir.Path(), "store0");
    auto second = OpenStore(dir.Path(), "store1");
    EXPECT_EQ(first->GetString("key", ""), "store0");
    EXPECT_EQ(second->GetString("key", ""), "store1");
    EXPECT_EQ(first->GetLong("t2k49", -1), 49);
    EXPECT_FALSE(first->Contains("t1k0"));
    EXPECT_EQ(second->GetLong("t3k0", -1), 0);
    first->RemoveAll();
    EXPECT_FALSE(first->Contains("key"));
    EXPECT_FALSE(first->Contains("t0k0"));
    EXPECT_EQ(second->GetString("key", ""), "store1");
}

TEST(DataStoreTest, GarbageFileIsMovedAsideAndUnusableFolderKeepsValuesInMemory) {
    TempDir dir;
    const std::string path = dir.File(SqliteLocalStorageService::FILE_NAME);
    {
        std::ofstream garbage(path, std::ios::binary);
        garbage << "this is not a database, just some text that is long enough to be read as a header....";
        for (int i = 0; i < 1000; ++i) garbage << static_cast<char>(i * 7);
    }
    LogCapture capture;
    auto store = OpenStore(dir.Path(), "s");
    ASSERT_TRUE(store);
    EXPECT_EQ(store->GetString("key", "none"), "none");
    store->SetString("key", "value");
    EXPECT_TRUE(capture.ContainsFragment("is damaged"));
    size_t kept_aside = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir.Path())) {
        std::string name = entry.path().filename().string();
        kept_aside += name.rfind(std::string(SqliteLocalStorageService::FILE_NAME) + ".corrupt-", 0) == 0;
    }
    EXPECT_EQ(kept_aside, 1u);
    EXPECT_EQ(OpenStore(dir.Path(), "s")->GetString("key", ""), "value");

    PlatformServices services(path);  // a file, not a folder
    auto in_memory = services.GetLocalStorageService()->GetDataStore("s");
    ASSERT_TRUE(in_memory);
    in_memory->SetString("key", "for this run");
    EXPECT_EQ(in_memory->GetString("key", ""), "for this run");
    EXPECT_TRUE(capture.ContainsFragment("; this run keeps its values in memory and leaves the file as it is"));
    EXPECT_EQ(OpenStore(dir.Path(), "s")->GetString("key", ""), "value");
}
