#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "PlatformServices.h"
#include "SqliteLocalStorageService.h"
#include "TempDir.h"

using namespace VelmoraMobile;
using VelmoraTest::LogCapture;
using VelmoraTest::TempDir;

namespace {

std::shared_ptr<DataStoreInterface> OpenStore(const std::string& folder, const std::string& name) {
    auto services = std::make_shared<PlatformServices>(folder);
    auto storage = services->GetLocalStorageService();
    return storage ? storage->GetDataStore(name) : nullptr;
}

std::vector<std::string> FilesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

}  // namespace

TEST(DataStoreTest, TypedValuesSurviveReopeningTheServices) {
    TempDir dir;
    const std::string with_nul("a\0b\xFF", 4);
    {
        auto store = OpenStore(dir.Path(), "visitorIDServiceDataStore");
        ASSERT_TRUE(store);
        store->SetString("text", "hello");
        store->SetString("empty", "");
        store->SetString("binary", with_nul);
        store->SetLong("big", INT64_MIN);
        store->SetLong("ttl", 1800);
        store->SetBoolean("yes", true);
        store->SetBoolean("no", false);
        store->SetString("text", "replaced");
    }
    auto store = OpenStore(dir.Path(), "visitorIDServiceDataStore");
    ASSERT_TRUE(store);
    EXPECT_EQ(store->GetString("text", "d"), "replaced");
    EXPECT_EQ(store->GetString("empty", "d"), "");
    EXPECT_EQ(store->GetString("binary", "d"), with_nul);
    EXPECT_EQ(store->GetLong("big", 0), INT64_MIN);
    EXPECT_EQ(store->GetLong("ttl", 0), 1800);
    EXPECT_TRUE(store->GetBoolean("yes", false));
    EXPECT_FALSE(store->GetBoolean("no", true));
    EXPECT_TRUE(store->Contains("empty"));
}

TEST(DataStoreTest, MissingKeyAndKeyOfAnotherTypeGiveTheDefault) {
    TempDir dir;
    auto store = OpenStore(dir.Path(), "s");
    ASSERT_TRUE(store);
    EXPECT_EQ(store->GetString("missing", "fallback"), "fallback");
    EXPECT_EQ(store->GetLong("missing", -1), -1);
    EXPECT_TRUE(store->GetBoolean("missing", true));
    EXPECT_FALSE(store->Contains("missing"));

    store->SetLong("number", 1);
    store->SetString("text", "1");
    store->SetBoolean("flag", true);
    EXPECT_EQ(store->GetString("number", "fallback"), "fallback");
    EXPECT_FALSE(store->GetBoolean("number", false));
    EXPECT_EQ(store->GetLong("text", 7), 7);
    EXPECT_EQ(store->GetLong("flag", 7), 7);
    // Writing another type replaces the value and its type.
    store->SetString("number", "now text");
    EXPECT_EQ(store->GetLong("number", 5), 5);
    EXPECT_EQ(store->GetString("number", ""), "now text");
}

TEST(DataStoreTest, StoresOfDifferentNamesDoNotMix) {
    TempDir dir;
    auto services = std::make_shared<PlatformServices>(dir.Path());
    auto first = services->GetLocalStorageService()->GetDataStore("first");
    auto second = services->GetLocalStorageService()->GetDataStore("second");
    ASSERT_TRUE(first && second);
    first->SetString("key", "one");
    second->SetString("key", "two");
    first->SetLong("only.first", 1);
    EXPECT_EQ(first->GetString("key", ""), "one");
    EXPECT_EQ(second->GetString("key", ""), "two");
    EXPECT_FALSE(second->Contains("only.first"));

    first->RemoveAll();
    EXPECT_FALSE(first->Contains("key"));
    EXPECT_FALSE(first->Contains("only.first"));
    EXPECT_EQ(second->GetString("key", ""), "two");
}

TEST(DataStoreTest, RemoveTakesOneKeyAndIsDurable) {
    TempDir dir;
    {
        auto store = OpenStore(dir.Path(), "s");
        store->SetString("a", "1");
        store->SetString("b", "2");
        store->Remove("a");
        store->Remove("never-there");
        EXPECT_FALSE(store->Contains("a"));
        EXPECT_TRUE(store->Contains("b"));
    }
    auto store = OpenStore(dir.Path(), "s");
    EXPECT_FALSE(store->Contains("a"));
    EXPECT_EQ(store->GetString("b", ""), "2");
}

TEST(DataStoreTest, StoreKeepsWorkingAfterItsServicesAreGone) {
    TempDir dir;
    std::shared_ptr<DataStoreInterface> store = OpenStore(dir.Path(), "s");
    store->SetLong("n", 3);
    EXPECT_EQ(store->GetLong("n", 0), 3);
}

TEST(DataStoreTest, GarbageFileIsMovedAsideAndAFreshOneStarts) {
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
    EXPECT_EQ(store->GetString("key", ""), "value");
    EXPECT_TRUE(capture.ContainsFragment("is damaged"));

    bool kept_aside = false;
    for (const std::string& name : FilesIn(dir.Path())) {
        kept_aside = kept_aside || name.rfind(std::string(SqliteLocalStorageService::FILE_NAME) + ".corrupt-", 0) == 0;
    }
    EXPECT_TRUE(kept_aside);
    EXPECT_EQ(OpenStore(dir.Path(), "s")->GetString("key", ""), "value");
}

TEST(DataStoreTest, UnusableFolderGivesNoStoreAndLogs) {
    TempDir dir;
    const std::string not_a_folder = dir.File("file");
    std::ofstream(not_a_folder) << "x";
    LogCapture capture;
    PlatformServices services(not_a_folder);
    EXPECT_FALSE(services.GetLocalStorageService()->GetDataStore("s"));
    EXPECT_TRUE(capture.ContainsFragment("Cannot open the data store file"));
}

TEST(DataStoreTest, SeveralThreadsWriteAndReadAtOnce) {
    TempDir dir;
    auto services = std::make_shared<PlatformServices>(dir.Path());
    const int kThreads = 4;
    const int kKeys = 50;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&services, t]() {
            auto store = services->GetLocalStorageService()->GetDataStore("store" + std::to_string(t % 2));
            for (int k = 0; k < kKeys; ++k) {
                std::string key = "t" + std::to_string(t) + "k" + std::to_string(k);
                store->SetLong(key, k);
                EXPECT_EQ(store->GetLong(key, -1), k);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    auto reopened = std::make_shared<PlatformServices>(dir.Path());
    for (int t = 0; t < kThreads; ++t) {
        auto store = reopened->GetLocalStorageService()->GetDataStore("store" + std::to_string(t % 2));
        for (int k = 0; k < kKeys; ++k) {
            EXPECT_EQ(store->GetLong("t" + std::to_string(t) + "k" + std::to_string(k), -1), k);
        }
    }
}
