// What the queue keeps in its file: the table, inserts, updates, queries and bad rows.

#include <gtest/gtest.h>

#include "tests/runtime/hitqueue/HitQueueTestSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"

using namespace VelmoraTest;

using HitQueueStorageTest = HitQueueFixture;

TEST_F(HitQueueStorageTest, RowsFollowTheSchemaAndAreUpdatedQueriedAndReset) {
    LogCapture log;
    QueueParts parts(dir_);
    auto queue = parts.Build();
    for (int i = 1; i <= 3; ++i) ASSERT_TRUE(queue->Queue(MakeHit(std::string(1, char('a' + i - 1)), i)));
    queue->DeleteHitWithIdentifier("2");
    ASSERT_TRUE(queue->Queue(MakeHit("d", 4)));
    // AUTOINCREMENT: a deleted key is never given again.
    EXPECT_EQ(Sql("SELECT ID FROM TEST_HITS ORDER BY ID"), (Rows{{"1"}, {"3"}, {"4"}}));

    auto query = std::make_shared<Query>();
    query->where = "COUNT >= ?";
    query->where_args = {Variant::FromInteger(2)};
    query->order_by = "COUNT DESC";
    auto hit = queue->QueryHit(query);
    ASSERT_TRUE(hit);
    EXPECT_EQ(hit->identifier, "4");
    hit->payload = "d2";
    EXPECT_TRUE(queue->UpdateHit(hit));
    EXPECT_FALSE(queue->UpdateHit(MakeHit("never read")));  // no identifier

    EXPECT_TRUE(queue->UpdateAllHits({{"PAYLOAD", Variant::FromString("")}, {"COUNT", Variant::FromInteger(-1)}}));
    EXPECT_EQ(Sql("SELECT ID, PAYLOAD, TIMESTAMP, COUNT FROM TEST_HITS ORDER BY ID"),
              (Rows{{"1", "", "1700000000", "-1"}, {"3", "", "1700000000", "-1"}, {"4", "", "1700000000", "-1"}}));
    EXPECT_FALSE(queue->UpdateAllHits({{"NO_SUCH", Variant::FromInteger(1)}}));
    EXPECT_TRUE(log.Contains("Table TEST_HITS has no column NO_SUCH; the value is left out"));
    EXPECT_FALSE(queue->UpdateAllHits({{"PAYLOAD", Variant::FromVariantVector({})}}));
    EXPECT_TRUE(log.Contains("Column PAYLOAD of table TEST_HITS cannot store the value given; nothing was updated"));
    EXPECT_EQ(Sql("SELECT COUNT FROM TEST_HITS WHERE ID = 1"), (Rows{{"-1"}}));
    // Rows that hold one of the values already still take the other.
    EXPECT_TRUE(queue->UpdateAllHits({{"PAYLOAD", Variant::FromString("")}, {"COUNT", Variant::FromInteger(7)}}));
    EXPECT_EQ(Sql("SELECT COUNT FROM TEST_HITS ORDER BY ID"), (Rows{{"7"}, {"7"}, {"7"}}));

    queue->Reset();
    EXPECT_TRUE(queue->Queue(MakeHit("e")));
    EXPECT_EQ(Sql("SELECT ID, PAYLOAD FROM TEST_HITS"), (Rows{{"1", "e"}}));
    // A table gone at run time is made again by the write that misses it.
    EXPECT_TRUE(queue->DeleteTable());
    EXPECT_TRUE(queue->Queue(MakeHit("f")));
    EXPECT_EQ(Sql("SELECT PAYLOAD FROM TEST_HITS"), (Rows{{"f"}}));
    EXPECT_TRUE(log.Contains("Table TEST_HITS of " + File() + " was gone; made it again"));
}

TEST_F(HitQueueStorageTest, RowsQueuedBeforeUpdateEarlierHitsAreHandedOverWithItsValuesAndStoredAsTheyWere) {
    QueueParts parts(dir_);
    std::vector<int32_t> counts;  // the worker writes before Finished() counts the hit
    parts.processor->script = [&](const std::shared_ptr<TestHit>& hit) {
        counts.push_back(hit->count);
        return HitProcessResult::DONE;
    };
    auto queue = parts.Build();
    ASSERT_TRUE(queue->Queue(MakeHit("a", 1)));
    ASSERT_TRUE(queue->Queue(MakeHit("b", 2)));
    EXPECT_TRUE(queue->UpdateEarlierHits({{"COUNT", Variant::FromInteger(-1)}}));
    ASSERT_TRUE(queue->Queue(MakeHit("c", 3)));
    EXPECT_EQ(Sql("SELECT COUNT FROM TEST_HITS ORDER BY ID"), (Rows{{"1"}, {"2"}, {"3"}}));
    queue->BringOnline();
    ASSERT_TRUE(WaitFor([&] { return parts.processor->finished == 3; }));
    // A fresh file numbers its rows anew: the mark goes with the old one.
    queue->Reset();
    ASSERT_TRUE(queue->Queue(MakeHit("d", 4)));
    ASSERT_TRUE(WaitFor([&] { return parts.processor->finished == 4; }));
    EXPECT_EQ(counts, (std::vector<int32_t>{-1, -1, 3, 4}));
}

// The queue may end while the worker reads its next row: that row is neither sent nor removed.
TEST_F(HitQueueStorageTest, ARowReadAsTheQueueEndsIsNotProcessedAndStays) {
    QueueParts parts(dir_);
    std::shared_ptr<TestHitQueue> queue;
    std::atomic<bool> read{false};
    parts.schema->on_read = [&] {
        read = true;
        queue->Dispose(std::chrono::milliseconds(0));
    };
    queue = parts.Build();
    ASSERT_TRUE(queue->Queue(MakeHit("a")));
    queue->BringOnline();
    ASSERT_TRUE(WaitFor([&] { return read.load(); }));
    ASSERT_TRUE(queue->Dispose(std::chrono::seconds(10)));
    EXPECT_EQ(parts.processor->finished.load(), 0u);
    EXPECT_EQ(Sql("SELECT PAYLOAD FROM TEST_HITS"), (Rows{{"a"}}));
}

TEST_F(HitQueueStorageTest, UnreadableRowIsLoggedOncePassedOverAndKept) {
    LogCapture log;
    QueueParts parts(dir_);
    auto queue = parts.Build();
    for (const char* payload : {"a", "b", "c"}) queue->Queue(MakeHit(payload));
    // As if an older program had left a row this one cannot read.
    Sql("UPDATE TEST_HITS SET COUNT = 'lots' WHERE PAYLOAD = 'b'");
    queue->BringOnline();
    ASSERT_TRUE(WaitFor([&] { return queue->GetSize() == 1; }));
    queue->Queue(MakeHit("d"));
    ASSERT_TRUE(WaitFor([&] { return parts.processor->finished == 3 && queue->GetSize() == 1; }));
    EXPECT_EQ(parts.processor->Payloads(), (std::vector<std::string>{"a", "c", "d"}));
    EXPECT_EQ(Sql("SELECT ID, PAYLOAD FROM TEST_HITS"), (Rows{{"2", "b"}}));
    EXPECT_EQ(log.Count("Row 2 of table TEST_HITS cannot be read; it is passed over and stays in the file"), 1u);
    EXPECT_EQ(log.Count("Unreadable test row: Column 3 is not an integer."), 1u);
}
