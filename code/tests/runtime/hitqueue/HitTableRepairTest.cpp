// A hit table of the wrong shape, or a file that takes no writes, never costs later hits: every
// shape is made by SQL in a temporary folder before or while the queue has the file open.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/runtime/hitqueue/HitQueueTestSupport.h"
#include "tests/runtime/services/storage/FullDisk.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"

using namespace VelmoraTest;

namespace {

struct HitTableRepairTest : HitQueueFixture {
    Strings Aside(const std::string& label) const { return FilesAside(dir_.Path(), TestHitSchema::DATABASE, label); }
};

}  // namespace

// Rows are carried one by one: those the schema cannot take stay behind, in the file moved aside.
TEST_F(HitTableRepairTest, ATableOfAnotherShapeIsMovedAsideWithItsFileAndItsReadableRowsCarriedOver) {
    Sql("CREATE TABLE TEST_HITS (ID TEXT, PAYLOAD BLOB, TIMESTAMP TEXT, COUNT TEXT);"
        "INSERT INTO TEST_HITS VALUES ('a', 'old-1', '1700000001', '1');"
        "INSERT INTO TEST_HITS VALUES ('b', X'00', '1700000002', '2');"
        "INSERT INTO TEST_HITS VALUES ('c', 'old-3', 'soon', '3');"
        "INSERT INTO TEST_HITS VALUES ('d', 'old-4', 1700000004, NULL)");
    Rows before = Sql("SELECT * FROM TEST_HITS");
    LogCapture log;
    QueueParts parts(dir_);
    auto queue = parts.Build();
    Strings aside = Aside("mismatch");
    ASSERT_EQ(aside.size(), 1u) << testing::PrintToString(ErrorLines(log));
    EXPECT_EQ(ErrorLines(log),
              (Strings{"Table TEST_HITS of " + File() +
                       " does not match its schema (ID is TEXT, not INTEGER; ID lacks PRIMARY KEY; ID lacks "
                       "AUTOINCREMENT; PAYLOAD is BLOB, not TEXT; TIMESTAMP is TEXT, not INTEGER; COUNT is TEXT, not "
                       "INTEGER); moved the file to " +
                       aside[0] + " and made a new table, carrying over 1 of 4 rows"}));
    EXPECT_EQ(SqlRows(aside[0], "SELECT * FROM TEST_HITS"), before);
    EXPECT_EQ(Sql("SELECT ID, PAYLOAD, COUNT FROM TEST_HITS"), (Rows{{"1", "old-1", "1"}}));
    ASSERT_TRUE(queue->Queue(MakeHit("new")));
    queue->BringOnline();
    ASSERT_TRUE(WaitFor([&] { return parts.processor->finished == 2; }));
    EXPECT_EQ(parts.processor->Payloads(), (Strings{"old-1", "new"}));
}

// A file that cannot be opened at all costs this run's hits their file, never the hits themselves.
TEST_F(HitTableRepairTest, AFileThatIsNoDatabaseIsMovedAsideUntouchedAndOneThatCannotBeOpenedLeavesTheRunInMemory) {
    const std::string garbage(8192, '\x5a');
    std::ofstream(File(), std::ios::binary) << garbage;
    LogCapture log;
    QueueParts parts(dir_);
    auto queue = parts.Build();
    EXPECT_TRUE(queue->Queue(MakeHit("fresh")));
    Strings aside = Aside("corrupt");
    ASSERT_EQ(aside.size(), 1u);
    std::ifstream moved(aside[0], std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(moved), {}), garbage);
    EXPECT_EQ(ErrorLines(log),
              (Strings{"Database " + File() + " is not a usable database (file is not a database); moved it to " +
                       aside[0] + " and started a fresh one, carrying over 0 rows"}));

    TempDir other;
    std::filesystem::create_directories(other.File(TestHitSchema::DATABASE));
    QueueParts in_memory(other);
    queue = in_memory.Build();
    EXPECT_TRUE(queue->IsInMemory());
    ASSERT_TRUE(queue->Queue(MakeHit("kept in memory")));
    queue->BringOnline();
    ASSERT_TRUE(WaitFor([&] { return in_memory.processor->finished == 1; }));
}

// A write-ahead log left beside the file means the last run did not close it: only then are all
// pages checked at open. Damage in a cleanly closed file is met by the worker on its way.
TEST_F(HitTableRepairTest, ADamagedFileIsMovedAsideAndEveryRowOutsideTheDamageIsProcessed) {
    const int rows = 200;
    for (bool crashed : {true, false}) {
        SCOPED_TRACE(crashed ? "left by a crash" : "closed cleanly");
        TempDir dir;
        const std::string file = dir.File(TestHitSchema::DATABASE);
        {
            QueueParts parts(dir);
            auto queue = parts.Build();
            for (int i = 0; i < rows; ++i)
                ASSERT_TRUE(queue->Queue(MakeHit(std::to_string(i) + std::string(100, 'p'))));
        }
        ASSERT_TRUE(DamageMiddleLeaf(file, "TEST_HITS"));
        if (crashed) std::ofstream(file + "-wal");
        LogCapture log;
        QueueParts parts(dir);
        auto queue = parts.Build();
        EXPECT_EQ(FilesAside(dir.Path(), TestHitSchema::DATABASE, "corrupt").size(), crashed ? 1u : 0u);
        queue->BringOnline();
        Strings aside;
        // Counting reads every page, so it waits for the repair.
        ASSERT_TRUE(WaitFor([&] {
            aside = FilesAside(dir.Path(), TestHitSchema::DATABASE, "corrupt");
            return aside.size() == 1 && queue->GetSize() == 0;
        }));
        Strings errors = ErrorLines(log);
        ASSERT_EQ(errors.size(), crashed ? 1u : 2u) << testing::PrintToString(errors);
        // Met at run time, the damage is named by SQLite's error; found at open, by the page check.
        const std::string reason = crashed ? "" : "database disk image is malformed";
        EXPECT_EQ(errors.back().rfind("Database " + file + " is not a usable database (" + reason, 0), 0u)
            << errors.back();
        EXPECT_NE(errors.back().find("); moved it to " + aside[0] + " and started a fresh one, carrying over "),
                  std::string::npos);
        EXPECT_EQ(errors.back().find('\n'), std::string::npos) << errors.back();
        // Each row before and after the damaged page comes once, in order; only the page's rows are missing.
        Strings payloads = parts.processor->Payloads();
        ASSERT_GT(payloads.size(), rows / 2u);
        size_t gaps = 0;
        for (size_t i = 1; i < payloads.size(); ++i) gaps += std::stoi(payloads[i]) != std::stoi(payloads[i - 1]) + 1;
        EXPECT_EQ(std::stoi(payloads.front()), 0);
        EXPECT_EQ(std::stoi(payloads.back()), rows - 1);
        EXPECT_EQ(gaps, 1u);
    }
}

TEST_F(HitTableRepairTest, AWriteThatFailsOnATableChangedAtRunTimeRepairsItAndIsStoredAfterAll) {
    QueueParts parts(dir_);
    auto queue = parts.Build();
    ASSERT_TRUE(queue->Queue(MakeHit("a", 1)));
    // Another program swaps the table under the open queue for one that refuses every insert.
    Sql("CREATE TABLE OLD AS SELECT * FROM TEST_HITS; DROP TABLE TEST_HITS;"
        "CREATE TABLE TEST_HITS (ID INTEGER PRIMARY KEY AUTOINCREMENT, PAYLOAD TEXT, TIMESTAMP INTEGER, COUNT "
        "INTEGER, EXTRA TEXT NOT NULL); INSERT INTO TEST_HITS SELECT *, 'x' FROM OLD; DROP TABLE OLD");
    LogCapture log;
    EXPECT_TRUE(queue->Queue(MakeHit("b", 2)));
    Strings aside = Aside("mismatch");
    ASSERT_EQ(aside.size(), 1u);
    EXPECT_EQ(ErrorLines(log),
              (Strings{"Failed to insert a row in table TEST_HITS of " + File() +
                           ": NOT NULL constraint failed: TEST_HITS.EXTRA",
                       "Table TEST_HITS of " + File() +
                           " does not match its schema (extra column EXTRA TEXT NOT NULL); moved the file to " +
                           aside[0] + " and made a new table, carrying over 1 of 1 row"}));
    EXPECT_EQ(Sql("SELECT ID, PAYLOAD FROM TEST_HITS ORDER BY ID"), (Rows{{"1", "a"}, {"2", "b"}}));
    EXPECT_FALSE(queue->IsInMemory());
}

// A disk that fills up at run time: the rows already stored stay in the file, new ones go on in
// memory from the first write that fails, so none is lost.
TEST_F(HitTableRepairTest, AFileThatTakesNoMoreWritesLeavesTheRunInMemoryAndTheFileAsItIs) {
    QueueParts parts(dir_);
    auto queue = parts.Build();
    ASSERT_TRUE(queue->Queue(MakeHit("stored")));
    Sql("PRAGMA wal_checkpoint(TRUNCATE)");
    LogCapture log;
    {
        FullDisk full;
        EXPECT_TRUE(queue->Queue(MakeHit("while full")));
    }
    Strings errors = ErrorLines(log);
    ASSERT_EQ(errors.size(), 2u);
    EXPECT_EQ(errors[0].rfind("Failed to insert a row in table TEST_HITS of " + File() + ": ", 0), 0u) << errors[0];
    EXPECT_EQ(errors[1].rfind("Writes to the hit database " + File() + " fail (", 0), 0u) << errors[1];
    EXPECT_NE(errors[1].find("); this run keeps its hits in memory and leaves the file as it is"), std::string::npos);
    EXPECT_TRUE(queue->IsInMemory());
    ASSERT_TRUE(queue->Queue(MakeHit("later")));
    queue->BringOnline();
    ASSERT_TRUE(WaitFor([&] { return parts.processor->finished == 2; }));
    EXPECT_EQ(parts.processor->Payloads(), (Strings{"while full", "later"}));
    EXPECT_EQ(Sql("SELECT PAYLOAD FROM TEST_HITS"), (Rows{{"stored"}}));
}
