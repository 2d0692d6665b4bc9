#include "identity/hits/IdentityHitDatabase.h"
#include "identity/module/Identity.h"
#include "runtime/services/PlatformServices.h"
#include "tests/identity/support/HitRows.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"
using namespace VelmoraMobile;
using namespace VelmoraTest;
using Strings = std::vector<std::string>;

namespace {

/// Counts the rows it still sees when it is suspended.
class SuspendProbeQueue : public IdentityHitQueue {
public:
    using IdentityHitQueue::IdentityHitQueue;
    void Suspend() override {
        rows_at_suspend = ReadHitRows(file).size();
        IdentityHitQueue::Suspend();
    }
    std::string file;
    size_t rows_at_suspend{99};
};

}  // namespace

// Also: the opt-out suspends the queue before it deletes the rows, so no hit goes out in between.
TEST(IdentityHitTableTest, ColumnsKeepTheirTypesNonZeroSslReadsAsTrueAndPrivacySuspendsOrClears) {
    TempDir dir;
    LogCapture log;
    auto services = std::make_shared<PlatformServices>(dir.Path());
    auto module = std::make_shared<Identity>();
    auto queue =
        std::make_shared<SuspendProbeQueue>(services, std::make_shared<IdentityDatabaseHitSchema>(),
                                            std::make_shared<IdentityHitProcessor>(nullptr, nullptr, nullptr, module));
    queue->file = dir.File("VLBMobileIdentity.sqlite");
    auto database = IdentityHitDatabase::CreateIdentityDatabase(module, services, queue);
    ASSERT_NE(database, nullptr);
    auto hit = std::make_shared<IdentityDatabaseHit>();
    hit->url = "https://identity.example/id";
    hit->timestamp = std::chrono::seconds(1700000000);
    hit->pair_id = "pair";
    hit->event_number = 4;
    hit->config_ssl = true;
    ASSERT_TRUE(queue->Queue(hit));
    Strings columns;
    for (const auto& column : Sql(queue->file, "PRAGMA table_info(IDENTITY_REQUESTS)")) {
        columns.push_back(column[1] + " " + column[2]);
    }
    EXPECT_EQ(columns, (Strings{"ID INTEGER", "URL TEXT", "TIMESTAMP INTEGER", "PAIR_ID TEXT", "EVENT_NUMBER INTEGER",
                                "SSL INTEGER"}));
    EXPECT_EQ(ReadHitRows(queue->file), (std::vector<HitRow>{{hit->url, "pair", "4", "1", "1700000000"}}));
    for (const auto& [stored, read] : std::vector<std::pair<int, bool>>{{7, true}, {0, false}, {-1, true}}) {
        Sql(queue->file, "UPDATE IDENTITY_REQUESTS SET SSL = " + std::to_string(stored));
        auto oldest = queue->SelectOldestHit();
        ASSERT_NE(oldest, nullptr);
        EXPECT_EQ(oldest->config_ssl, read) << stored;
    }

    // A new run on the same file: the event the row was queued for is gone.
    ASSERT_NE(IdentityHitDatabase::CreateIdentityDatabase(module, services, queue), nullptr);
    auto earlier = queue->SelectOldestHit();
    ASSERT_NE(earlier, nullptr);
    EXPECT_EQ((Strings{earlier->pair_id, std::to_string(earlier->event_number)}), (Strings{"", "-1"}));

    database->UpdatePrivacyStatus(MobilePrivacyStatus::UNKNOWN);
    EXPECT_EQ(log.Count("Privacy opt-unknown: Suspend Identity database"), 1u);
    database->UpdatePrivacyStatus(MobilePrivacyStatus::OPT_OUT);
    EXPECT_EQ(queue->rows_at_suspend, 1u);
    EXPECT_TRUE(ReadHitRows(queue->file).empty());
    EXPECT_EQ(log.Count("Privacy opted-out: Clearing Identity queued hits from database"), 1u);
    EXPECT_TRUE(database->Dispose(std::chrono::seconds(5)));
}
