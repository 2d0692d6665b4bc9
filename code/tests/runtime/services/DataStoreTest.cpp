#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "runtime/services/PlatformServices.h"
#include "runtime/services/storage/SqliteLocalStorageService.h"
#include "tests/runtime/services/storage/SqlFiles.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"

using namespace VelmoraMobile;
using namespace VelmoraTest;

namespace {

std::shared_ptr<DataStoreInterface> OpenStore(const std::string& folder, const std::string& name) {
    auto storage = std::make_shared<PlatformServices>(folder)->GetLocalStorageService();
    return storage ? storage->GetDataStore(name) : nullptr;
}

}  // namespace

// Values keep their type: the same number under another type is another value, and a read of
// another type gives the default. Writes together are one commit: no other reader sees any of them
// before the call returns, and a nested unit joins the outer one.
TEST(DataStoreTest, TypedValuesAndWritesTogetherSurviveReopeningInTheirOwnStore) {
    TempDir dir;
    const std::string with_nul("a\0b\xFF", 4), path = dir.File(SqliteLocalStorageService::FILE_NAME);
    const std::string count_sql = "SELECT COUNT(*) FROM data_stores WHERE key IN ('a', 'b')";
    {
        auto store = OpenStore(dir.Path(), "visitorIDServiceDataStore");
        store->SetString("empty", "");
        store->SetString("binary", with_nul);
        store->SetLong("big", INT64_MIN);
        store->SetBoolean("no", false);
        store->SetString("text", "hello");
        store->SetString("text", "replaced");
        store->SetString("gone", "x");
        store->SetBoolean("flag", true);
        store->SetLong("flag", 1);
        store->SetLong("count", 7);
        store->SetString("count", "7");
        store->WriteTogether([&] {
            store->SetString("a", "1");
            store->WriteTogether([&] { store->SetLong("b", 2); });
            store->Remove("gone");
            EXPECT_EQ(store->GetString("a", ""), "1");  // the unit reads its own writes
            EXPECT_EQ(SqlRows(path, count_sql), SqlTextRows({{"0"}}));
        });
        EXPECT_EQ(SqlRows(path, count_sql), SqlTextRows({{"2"}}));
        auto other = OpenStore(dir.Path(), "other");
        other->SetString("text", "other");
        other->RemoveAll();
    }
    auto store = OpenStore(dir.Path(), "visitorIDServiceDataStore");
    EXPECT_EQ(store->GetString("text", "d"), "replaced");
    EXPECT_TRUE(store->Contains("empty"));
    EXPECT_EQ(store->GetString("binary", "d"), with_nul);
    EXPECT_EQ(store->GetLong("big", 0), INT64_MIN);
    EXPECT_FALSE(store->GetBoolean("no", true));
    EXPECT_FALSE(store->Contains("gone"));
    EXPECT_EQ(store->GetString("big", "fallback"), "fallback");
    EXPECT_EQ(store->GetLong("flag", 0), 1);
    EXPECT_FALSE(store->GetBoolean("flag", false));
    EXPECT_EQ(store->GetString("count", ""), "7");
    EXPECT_EQ(store->GetLong("count", 0), 0);
    EXPECT_EQ(store->GetString("a", ""), "1");
    EXPECT_EQ(store->GetLong("b", 0), 2);
    EXPECT_FALSE(OpenStore(dir.Path(), "other")->Contains("text"));
}

TEST(DataStoreTest, GarbageFileIsMovedAsideAndUnusableFolderKeepsValuesInMemory) {
    TempDir dir;
    const std::string path = dir.File(SqliteLocalStorageService::FILE_NAME);
    std::ofstream(path, std::ios::binary) << "this is not a database, just some text long enough to be read as a "
                                             "header..........................................................";
    LogCapture capture;
    OpenStore(dir.Path(), "s")->SetString("key", "value");
    EXPECT_TRUE(capture.ContainsFragment("is damaged"));
    EXPECT_EQ(OpenStore(dir.Path(), "s")->GetString("key", ""), "value");

    PlatformServices services(path);  // a file, not a folder
    auto in_memory = services.GetLocalStorageService()->GetDataStore("s");
    in_memory->SetString("key", "for this run");
    EXPECT_EQ(in_memory->GetString("key", ""), "for this run");
    EXPECT_TRUE(capture.ContainsFragment("; this run keeps its values in memory and leaves the file as it is"));
    EXPECT_EQ(OpenStore(dir.Path(), "s")->GetString("key", ""), "value");
}
