// What the queue keeps in its file: the table, inserts, updates, queries, bad rows and bad files.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>

#include "HitQueueTestSupport.h"
#include "LogCapture.h"
#include "SdkError.h"
#include "SqliteQueryResult.h"
#include "WaitFor.h"

using namespace VelmoraMobile;
using namespace VelmoraTest;
using Rows = std::vector<std::vector<std::string>>;

namespace {

class HitQueueStorageTest : public ::testing::Test {
protected:
    void SetUp() override { HitQueueBase::SetRetryWait(std::chrono::milliseconds(20)); }
    void TearDown() override { HitQueueBase::SetRetryWait(std::chrono::seconds(30)); }

    std::string DatabaseFile() const { return dir_.File(TestHitSchema::DATABASE); }
    Rows Sql(const std::string& sql) const { return SqlRows(DatabaseFile(), sql); }

    TempDir dir_;
};

}  // namespace

TEST_F(HitQueueStorageTest, TableFollowsTheSchemaAndInsertsLeaveTheKeyToTheDatabase) {
    QueueParts parts(dir_);
    auto queue = parts.Build();
    EXPECT_EQ(Sql("PRAGMA journal_mode"), (Rows{{"wal"}}));
    EXPECT_EQ(Sql("SELECT name, type, pk FROM pragma_table_info('TEST_HITS') ORDER BY cid"),
              (Rows{{"ID", "INTEGER", "1"},
                    {"PAYLOAD", "TEXT", "0"},
                    {"TIMESTAMP", "INTEGER", "0"},
                    {"COUNT", "INTEGER", "0"}}));

    ASSERT_TRUE(queue->Queue(MakeHit("a", 3)));
    ASSERT_TRUE(queue->Queue(MakeHit("b", -1)));
    queue->DeleteHitWithIdentifier("2");
    ASSERT_TRUE(queue->Queue(MakeHit("c")));
    // AUTOINCREMENT: a deleted key is never given again.
    EXPECT_EQ(Sql("SELECT ID, PAYLOAD, TIMESTAMP, COUNT FROM TEST_HITS ORDER BY ID"),
              (Rows{{"1", "a", "1700000000", "3"}, {"3", "c", "1700000000", "0"}}));
    EXPECT_EQ(queue->GetSize(), 2);
}

TEST_F(HitQueueStorageTest, AnExistingFileAndItsRowsAreKept) {
    {
        QueueParts first(dir_);
        first.Build()->Queue(MakeHit("old"));
        first.Stop();
    }
    QueueParts second(dir_);
    auto queue = second.Build();
    queue->Queue(MakeHit("new"));
    EXPECT_EQ(Sql("SELECT ID, PAYLOAD FROM TEST_HITS ORDER BY ID"), (Rows{{"1", "old"}, {"2", "new"}}));
}

TEST_F(HitQueueStorageTest, UpdateAllHitsChangesEveryRowAndNothingOnAnEmptyTable) {
    QueueParts parts(dir_);
    auto queue = parts.Build();
    EXPECT_TRUE(queue->UpdateAllHits({{"PAYLOAD", Variant::FromString("")}, {"COUNT", Variant::FromInteger(-1)}}));
    EXPECT_EQ(queue->GetSize(), 0);

    queue->Queue(MakeHit("a", 1));
    queue->Queue(MakeHit("b", 2));
    EXPECT_TRUE(queue->UpdateAllHits({{"PAYLOAD", Variant::FromString("")}, {"COUNT", Variant::FromInteger(-1)}}));
    EXPECT_EQ(Sql("SELECT ID, PAYLOAD, TIMESTAMP, COUNT FROM TEST_HITS ORDER BY ID"),
              (Rows{{"1", "", "1700000000", "-1"}, {"2", "", "1700000000", "-1"}}));
    EXPECT_TRUE(queue->UpdateAllHits({}));
}

TEST_F(HitQueueStorageTest, UnknownColumnsAndUnstorableValuesAreRefusedWithALogLine) {
    LogCapture log;
    QueueParts parts(dir_);
    auto queue = parts.Build();
    queue->Queue(MakeHit("a"));
    EXPECT_FALSE(queue->UpdateAllHits({{"NO_SUCH", Variant::FromInteger(1)}}));
    EXPECT_TRUE(log.Contains("Table TEST_HITS has no column NO_SUCH; the value is left out"));
    EXPECT_FALSE(queue->UpdateAllHits({{"PAYLOAD", Variant::FromVariantVector({})}}));
    EXPECT_TRUE(log.Contains("Column PAYLOAD of table TEST_HITS cannot store the value given; nothing was updated"));
    EXPECT_EQ(Sql("SELECT PAYLOAD FROM TEST_HITS"), (Rows{{"a"}}));
}

TEST_F(HitQueueStorageTest, UpdateHitAndQueryHitWorkOnOneRow) {
    QueueParts parts(dir_);
    auto queue = parts.Build();
    queue->Queue(MakeHit("a", 1));
    queue->Queue(MakeHit("b", 2));
    queue->Queue(MakeHit("c", 3));

    auto query = std::make_shared<Query>();
    query->where = "COUNT >= ?";
    query->where_args = {Variant::FromInteger(2)};
    query->order_by = "COUNT DESC";
    auto hit = queue->QueryHit(query);
    ASSERT_TRUE(hit);
    EXPECT_EQ(hit->payload, "c");
    EXPECT_EQ(hit->identifier, "3");

    hit->payload = "c2";
    EXPECT_TRUE(queue->UpdateHit(hit));
    EXPECT_EQ(Sql("SELECT PAYLOAD FROM TEST_HITS ORDER BY ID"), (Rows{{"a"}, {"b"}, {"c2"}}));

    query->where_args = {Variant::FromInteger(99)};
    EXPECT_FALSE(queue->QueryHit(query));
    EXPECT_FALSE(queue->QueryHit(nullptr));
    EXPECT_FALSE(queue->UpdateHit(MakeHit("never read")));  // no identifier
}

TEST_F(HitQueueStorageTest, TypedOperationsTurnHitsOfAnotherTypeIntoEmptyPointers) {
    QueueParts parts(dir_);
    auto queue = parts.Build();
    HitQueueBase& untyped = *queue;
    // The schema's data map of a foreign hit is empty, so nothing is stored.
    EXPECT_FALSE(untyped.Queue(std::make_shared<OtherHit>()));
    EXPECT_FALSE(untyped.Queue(nullptr));
    EXPECT_FALSE(queue->Queue(nullptr));
    EXPECT_EQ(queue->GetSize(), 0);
    EXPECT_FALSE(queue->SelectOldestHit());

    // A queue typed to another hit than its schema makes: the untyped hit is there, the typed one empty.
    queue->Queue(MakeHit("x"));
    using MismatchedQueue = HitQueue<OtherHit, TestHitSchema, TestHitProcessor>;
    auto mismatched = std::make_shared<MismatchedQueue>(parts.services, parts.schema, parts.processor);
    EXPECT_TRUE(queue->SelectOldestHit());
    EXPECT_TRUE(static_cast<HitQueueBase&>(*mismatched).SelectOldestHit());
    EXPECT_FALSE(mismatched->SelectOldestHit());
    EXPECT_FALSE(mismatched->QueryHit(std::make_shared<Query>()));

    EXPECT_EQ(parts.schema->GenerateDataMapBase(std::make_shared<OtherHit>()).size(), 0u);
    EXPECT_EQ(parts.schema->GenerateDataMapBase(MakeHit("x")).size(), 3u);
    EXPECT_EQ(parts.processor->ProcessBase(std::make_shared<OtherHit>()), HitProcessResult::DONE);
    EXPECT_EQ(parts.processor->Payloads(), (std::vector<std::string>{"<null>"}));
}

TEST_F(HitQueueStorageTest, UnreadableRowIsLoggedOncePassedOverAndKept) {
    LogCapture log;
    QueueParts parts(dir_);
    auto queue = parts.Build();
    queue->Queue(MakeHit("a"));
    queue->Queue(MakeHit("b"));
    queue->Queue(MakeHit("c"));
    // As if an older program had left a row this one cannot read.
    Sql("UPDATE TEST_HITS SET COUNT = 'lots' WHERE PAYLOAD = 'b'");

    queue->BringOnline();
    ASSERT_TRUE(WaitFor([&] { return queue->GetSize() == 1; }));
    queue->Queue(MakeHit("d"));
    ASSERT_TRUE(WaitFor([&] { return parts.processor->Finished() == 3 && queue->GetSize() == 1; }));
    EXPECT_EQ(parts.processor->Payloads(), (std::vector<std::string>{"a", "c", "d"}));
    EXPECT_EQ(Sql("SELECT ID, PAYLOAD FROM TEST_HITS"), (Rows{{"2", "b"}}));
    EXPECT_EQ(log.Count("Row 2 of table TEST_HITS cannot be read; it is passed over and stays in the file"), 1u);
    EXPECT_EQ(log.Count("Unreadable test row: Column 3 is not an integer."), 1u);

    EXPECT_TRUE(queue->DeleteAllHits());
    EXPECT_EQ(queue->GetSize(), 0);
}

TEST_F(HitQueueStorageTest, GarbageFileIsMovedAsideAndReplaced) {
    std::string garbage(8192, '\0');
    for (size_t i = 0; i < garbage.size(); ++i) {
        garbage[i] = static_cast<char>((i * 7919 + 13) % 251);
    }
    std::ofstream(DatabaseFile(), std::ios::binary) << garbage;

    LogCapture log;
    QueueParts parts(dir_);
    auto queue = parts.Build();
    EXPECT_TRUE(queue->Queue(MakeHit("fresh")));
    EXPECT_EQ(queue->GetSize(), 1);

    std::vector<std::string> aside;
    for (const auto& entry : std::filesystem::directory_iterator(dir_.Path())) {
        std::string name = entry.path().filename().string();
        if (name.rfind(std::string(TestHitSchema::DATABASE) + ".corrupt-", 0) == 0) {
            aside.push_back(entry.path().string());
        }
    }
    ASSERT_EQ(aside.size(), 1u);
    std::ifstream moved(aside[0], std::ios::binary);
    std::string content((std::istreambuf_iterator<char>(moved)), std::istreambuf_iterator<char>());
    EXPECT_EQ(content, garbage);
    EXPECT_TRUE(log.Contains("Database " + DatabaseFile() + " is not a usable database; moved it to " + aside[0] +
                             " and started a fresh one"));
}

TEST_F(HitQueueStorageTest, MissingServicesStopTheConstructorWithAnError) {
    LogCapture log;
    auto schema = std::make_shared<TestHitSchema>();
    auto processor = std::make_shared<TestHitProcessor>();
    try {
        TestHitQueue queue(nullptr, schema, processor);
        FAIL() << "no throw";
    } catch (const SdkError& error) {
        EXPECT_EQ(error.GetCode(), "platform_services.missing_service");
        EXPECT_EQ(error.GetMessage(), "Cannot function without platform services.");
    }
    EXPECT_TRUE(log.Contains("Cannot create a hit queue: platform services are missing"));

    auto services = std::make_shared<PlatformServices>(dir_.Path());
    services->SetDatabaseService(nullptr);
    try {
        TestHitQueue queue(services, schema, processor);
        FAIL() << "no throw";
    } catch (const SdkError& error) {
        EXPECT_EQ(error.GetCode(), "platform_services.missing_service");
    }
    EXPECT_TRUE(log.Contains("Cannot create a hit queue: the database service is missing"));
    EXPECT_FALSE(std::filesystem::exists(DatabaseFile()));
}

TEST_F(HitQueueStorageTest, ResetStartsAFreshFile) {
    QueueParts parts(dir_);
    auto queue = parts.Build();
    queue->Queue(MakeHit("a"));
    queue->Queue(MakeHit("b"));
    queue->Reset();
    EXPECT_EQ(queue->GetSize(), 0);
    EXPECT_TRUE(queue->Queue(MakeHit("c")));
    EXPECT_EQ(Sql("SELECT ID, PAYLOAD FROM TEST_HITS"), (Rows{{"1", "c"}}));
    EXPECT_TRUE(queue->DeleteTable());
    EXPECT_TRUE(Sql("SELECT name FROM sqlite_master WHERE name = 'TEST_HITS'").empty());
    EXPECT_FALSE(queue->Queue(MakeHit("d")));
}

TEST(SqliteQueryResultTest, ReadsStrictlyAndThrowsOnEveryBadRead) {
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(":memory:", &database), SQLITE_OK);
    sqlite3_stmt* statement = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(database, "SELECT 1, 'x', NULL, 3.5, '12', 4000000000, 2.0, X'00', ' 7'", -1,
                                 &statement, nullptr),
              SQLITE_OK);
    ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
    auto result = std::make_shared<SqliteQueryResult>(statement, true);

    auto code_of = [&](const std::function<void()>& read) {
        try {
            read();
        } catch (const SdkError& error) {
            return error.GetCode();
        }
        return std::string("no error");
    };
    EXPECT_EQ(result->GetInt(0), 1);
    EXPECT_EQ(result->GetString(0), "1");
    EXPECT_EQ(result->GetString(1), "x");
    EXPECT_EQ(result->GetLong(4), 12);
    EXPECT_EQ(result->GetLong(5), 4000000000LL);
    EXPECT_EQ(result->GetInt(6), 2);
    EXPECT_EQ(code_of([&] { result->GetInt(1); }), "database.query_result.type");
    EXPECT_EQ(code_of([&] { result->GetString(2); }), "database.query_result.null");
    EXPECT_EQ(code_of([&] { result->GetLong(3); }), "database.query_result.type");
    EXPECT_EQ(code_of([&] { result->GetInt(5); }), "database.query_result.range");
    EXPECT_EQ(code_of([&] { result->GetString(7); }), "database.query_result.type");
    EXPECT_EQ(code_of([&] { result->GetLong(8); }), "database.query_result.type");
    EXPECT_EQ(code_of([&] { result->GetInt(9); }), "database.query_result.no_such_column");
    EXPECT_EQ(code_of([&] { result->GetInt(-1); }), "database.query_result.no_such_column");
    result->Finalize();
    result->Finalize();
    EXPECT_EQ(code_of([&] { result->GetInt(0); }), "database.query_result.finalized");
    sqlite3_close(database);
}
