// The data store: values of their own types in stores of their own, writes made together, and
// files that are damaged, of another shape, or take no more writes. From those the values that
// can still be read are kept, above all a stored opt-out, and nothing is deleted.

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "runtime/services/PlatformServices.h"
#include "runtime/services/storage/SqliteLocalStorageService.h"
#include "tests/runtime/services/storage/FullDisk.h"
#include "tests/runtime/services/storage/SqlFiles.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"

using namespace VelmoraMobile;
using namespace VelmoraTest;

namespace {

const char* const CONFIG = "com.velmora.module.configuration";
const char* const OPT_OUT = R"({"global.privacy":"optedout"})";

class DataStoreTest : public ::testing::Test {
protected:
    std::string File() const { return dir_.File(SqliteLocalStorageService::FILE_NAME); }
    std::shared_ptr<DataStoreInterface> Store(const std::string& name) {
        return services_->GetLocalStorageService()->GetDataStore(name);
    }
    /// The store as a new start on the same folder reads it.
    std::shared_ptr<DataStoreInterface> Reopened(const std::string& name) const {
        return PlatformServices(dir_.Path()).GetLocalStorageService()->GetDataStore(name);
    }

    TempDir dir_;
    std::shared_ptr<PlatformServices> services_ = std::make_shared<PlatformServices>(dir_.Path());
};

}  // namespace

// Values keep their type: the same number under another type is another value, and a read of
// another type gives the default. Writes together are one commit: no other reader sees any of them
// before the call returns, and a nested unit joins the outer one.
TEST_F(DataStoreTest, TypedValuesAndWritesTogetherSurviveReopeningInTheirOwnStore) {
    const std::string with_nul("a\0b\xFF", 4);
    const std::string count_sql = "SELECT COUNT(*) FROM data_stores WHERE key IN ('a', 'b')";
    auto store = Store("visitorIDServiceDataStore");
    store->SetString("empty", "");
    store->SetString("binary", with_nul);
    store->SetLong("big", INT64_MIN);
    store->SetBoolean("no", false);
    store->SetBoolean("flag", true);
    store->SetLong("flag", 1);
    store->WriteTogether([&] {
        store->SetString("a", "1");
        store->WriteTogether([&] { store->SetLong("b", 2); });
        EXPECT_EQ(store->GetString("a", ""), "1");  // the unit reads its own writes
        EXPECT_EQ(SqlRows(File(), count_sql), SqlTextRows({{"0"}}));
    });
    EXPECT_EQ(SqlRows(File(), count_sql), SqlTextRows({{"2"}}));
    Store("other")->SetString("text", "other");
    Store("other")->RemoveAll();
    store.reset();
    services_.reset();
    store = Reopened("visitorIDServiceDataStore");
    EXPECT_TRUE(store->Contains("empty"));
    EXPECT_EQ(store->GetString("binary", "d"), with_nul);
    EXPECT_EQ(store->GetLong("big", 0), INT64_MIN);
    EXPECT_FALSE(store->GetBoolean("no", true));
    EXPECT_EQ(store->GetString("big", "fallback"), "fallback");
    EXPECT_EQ(store->GetLong("flag", 0), 1);
    EXPECT_FALSE(store->GetBoolean("flag", false));
    EXPECT_EQ(store->GetString("a", ""), "1");
    EXPECT_EQ(store->GetLong("b", 0), 2);
    EXPECT_FALSE(Reopened("other")->Contains("text"));
}

TEST_F(DataStoreTest, GarbageFileIsMovedAsideAndUnusableFolderKeepsValuesInMemory) {
    services_.reset();
    std::ofstream(File(), std::ios::binary) << "this is not a database, just some text long enough to be read as a "
                                               "header..........................................................";
    LogCapture capture;
    Reopened("s")->SetString("key", "value");
    EXPECT_TRUE(capture.ContainsFragment("is damaged"));
    EXPECT_EQ(Reopened("s")->GetString("key", ""), "value");

    PlatformServices services(File());  // a file, not a folder
    auto in_memory = services.GetLocalStorageService()->GetDataStore("s");
    in_memory->SetString("key", "for this run");
    EXPECT_EQ(in_memory->GetString("key", ""), "for this run");
    EXPECT_TRUE(capture.ContainsFragment("; this run keeps its values in memory and leaves the file as it is"));
    EXPECT_EQ(Reopened("s")->GetString("key", ""), "value");
}

TEST_F(DataStoreTest, ATableOfAnotherShapeIsSetAsideAndItsReadableValuesAreStillRead) {
    services_.reset();
    SqlRows(File(),
            "CREATE TABLE data_stores (store TEXT NOT NULL, key TEXT NOT NULL, type INTEGER NOT NULL, value, "
            "PRIMARY KEY (store, key))");
    SqlRows(File(), std::string("INSERT INTO data_stores VALUES ('") + CONFIG + "', 'config.changes', 1, '" + OPT_OUT +
                        "'), ('ids', 'ttl', 2, 600), ('ids', 'broken', 2, 'not a number')");
    const Rows before = SqlRows(File(), "SELECT * FROM data_stores");
    LogCapture log;
    services_ = std::make_shared<PlatformServices>(dir_.Path());
    auto config = Store(CONFIG);
    Strings aside = FilesAside(dir_.Path(), SqliteLocalStorageService::FILE_NAME, "mismatch");
    ASSERT_EQ(aside.size(), 1u);
    EXPECT_EQ(ErrorLines(log),
              (Strings{"The data store file (" + File() +
                       ") holds a table of another shape (the table has a rowid); moved it to (" + aside[0] +
                       ") and started a fresh one with the 2 of 3 values that could be read"}));
    EXPECT_EQ(config->GetString("config.changes", "none"), OPT_OUT);
    EXPECT_EQ(Store("ids")->GetLong("ttl", 0), 600);
    EXPECT_FALSE(Store("ids")->Contains("broken"));
    EXPECT_EQ(SqlRows(aside[0], "SELECT * FROM data_stores"), before);
    config->SetString("after", "stored");
    EXPECT_EQ(Reopened(CONFIG)->GetString("after", ""), "stored");
}

TEST_F(DataStoreTest, ADamagedPageFoundAtAReadCostsOnlyItsOwnValues) {
    const int keys = 300;
    const std::string filler(100, 'v');
    Store(CONFIG)->SetString("config.changes", OPT_OUT);
    auto ids = Store("visitorIDServiceDataStore");
    for (int k = 0; k < keys; ++k) ids->SetString("k" + std::to_string(1000 + k), filler);
    // Damage a leaf page in the middle of the file while the store has it open, then let another
    // connection write, so that the store reads its pages anew from the file.
    SqlRows(File(), "PRAGMA wal_checkpoint(TRUNCATE)");
    ASSERT_TRUE(DamageMiddleLeaf(File(), "data_stores"));
    SqlRows(File(), "INSERT INTO data_stores VALUES ('zzz', 'touch', 2, 1)");

    LogCapture log;
    int readable = 0;
    for (int k = 0; k < keys; ++k) readable += ids->GetString("k" + std::to_string(1000 + k), "") == filler;
    Strings aside = FilesAside(dir_.Path(), SqliteLocalStorageService::FILE_NAME, "corrupt");
    ASSERT_EQ(aside.size(), 1u);
    Strings errors = ErrorLines(log);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].rfind("The data store file (" + File() + ") was found damaged at a read (", 0), 0u)
        << errors[0];
    EXPECT_NE(errors[0].find("; moved it to (" + aside[0] + ") and started a fresh one with the "), std::string::npos);
    // One page's worth is gone from view (it stays in the file moved aside), everything else is read.
    EXPECT_GT(readable, keys * 3 / 4);
    EXPECT_LT(readable, keys);
    EXPECT_EQ(Store(CONFIG)->GetString("config.changes", "none"), OPT_OUT);
    EXPECT_EQ(Store("zzz")->GetLong("touch", 0), 1);
}

TEST_F(DataStoreTest, AFileThatTakesNoMoreWritesKeepsTheRunGoingInMemoryFromWhatItHolds) {
    Store(CONFIG)->SetString("config.changes", OPT_OUT);
    Store("ids")->SetLong("ttl", 600);
    SqlRows(File(), "PRAGMA wal_checkpoint(TRUNCATE)");
    LogCapture log;
    {
        FullDisk full;
        Store("ids")->SetLong("ttl", 1800);
    }
    Strings errors = ErrorLines(log);
    ASSERT_EQ(errors.size(), 2u);
    EXPECT_EQ(errors[0].rfind("Data store write failed (" + File() + "): ", 0), 0u) << errors[0];
    EXPECT_EQ(errors[1].rfind("Writes to the data store file (" + File() + ") fail (", 0), 0u) << errors[1];
    EXPECT_NE(errors[1].find("); this run keeps its values in memory and leaves the file as it is (2 of 2 values "
                             "read from it)"),
              std::string::npos)
        << errors[1];
    EXPECT_EQ(Store(CONFIG)->GetString("config.changes", "none"), OPT_OUT);
    EXPECT_EQ(Store("ids")->GetLong("ttl", 0), 1800);
    EXPECT_EQ(SqlRows(File(), "SELECT value FROM data_stores WHERE key = 'ttl'"), (Rows{{"600"}}));
}
