#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "runtime/hitqueue/DatabaseHitBase.h"
#include "runtime/hitqueue/DatabaseHitSchemaBase.h"
#include "runtime/hitqueue/HitDatabaseBase.h"
#include "runtime/hitqueue/HitProcessorBase.h"
#include "runtime/hitqueue/Query.h"
#include "runtime/services/PlatformServicesInterface.h"
#include "runtime/services/SystemInfoServiceInterface.h"
#include "runtime/values/Variant.h"

namespace VelmoraMobile {

/// A persistent queue of hits: one table in a database file and a worker thread of its own that
/// works it off, oldest row first, one hit at a time. A row is deleted only when the processor says
/// DONE, so delivery is at least once; on RETRY the row stays and the same row is tried again after
/// the retry wait, holding back every row behind it. A row the schema cannot read is logged once and
/// passed over for the life of this object; it stays in the file until DeleteAllHits.
///
/// States: not started -> on line (BringOnline) <-> suspended (Suspend) -> disposed (Dispose, from any).
/// Queue, DeleteAllHits and UpdateAllHits touch only the file and work in every state.
///
/// Ownership: hold the queue in a std::shared_ptr. The worker keeps it alive only while it handles a
/// hit, so dropping the last reference anywhere (even inside the processor) is safe; the destructor
/// ends the worker, waiting for a hit in processing when it runs on another thread. The usual end is
/// Dispose until true, then drop. The schema and processor are shared with the caller.
///
/// Threads: every public operation may be called from any thread, also from the worker. The processor
/// runs on the worker without any lock held; the schema's GenerateHitBase runs with the database lock
/// held (on whichever thread reads a row).
class HitQueueBase : public HitDatabaseBase {
public:
    static constexpr const char* LOG_TAG = "HitQueue";

    /// Opens or creates the file named by `schema->GetDatabaseName()` in the folder of the platform's
    /// database service, and the table of the schema (see HitDatabaseBase for a damaged file or a
    /// table of another shape). Existing rows are kept. A file that cannot be opened, created or
    /// written leaves this run on a database in memory, with one error line. Throws SdkError
    /// "platform_services.missing_service" when the platform services or their database service are
    /// missing (logged at Error), and "hit_queue.invalid_argument" without processor or with a schema
    /// that does not describe a table.
    HitQueueBase(const std::shared_ptr<PlatformServicesInterface>& platform_services,
                 const std::shared_ptr<DatabaseHitSchemaBase>& schema,
                 const std::shared_ptr<HitProcessorBase>& processor);
    ~HitQueueBase() override;

    /// Makes sure the table has the schema's columns, types and constraints: creates it when missing,
    /// and replaces one of another shape (rows that can be read are carried over).
    bool InitializeDatabase() override;

    /// Ends the queue. Waits at most `timeout` for the worker to end (0: only starts the shutdown).
    /// True when the worker has ended (at once when it never started); after true the processor is
    /// not called any more. A hit in processing finishes; its row goes only if it was DONE. Rows stay.
    /// From the worker thread itself it never waits and gives false.
    virtual bool Dispose(std::chrono::milliseconds timeout);
    /// Goes on line and starts the worker if needed (one worker per queue); resumes with the oldest row.
    /// Also wakes a worker that ran out of rows. Ignored once disposed.
    virtual void BringOnline();
    /// Stops taking rows; rows stay. A hit already handed to the processor finishes. A retry wait
    /// under way keeps its full length: a BringOnline right after does not cut it short.
    virtual void Suspend();
    /// Sets the given columns to the given values in every row; true when the update ran.
    virtual bool UpdateAllHits(const std::map<std::string, std::shared_ptr<Variant>>& values);
    /// Every row in the table now is handed to the processor (and SelectOldestHit) as if the given
    /// columns held the given values; rows queued later are not. The file is not written, so this
    /// costs the same with any backlog (an update of all rows reads every one). QueryHit and
    /// QueryHits show the rows as stored. A later call replaces the values; Reset forgets them.
    /// False (logged) when no column is known or the newest row cannot be found.
    bool UpdateEarlierHits(const std::map<std::string, std::shared_ptr<Variant>>& values);

    // The removals also tell the worker that the row it is processing may be gone, so that after
    // DONE it deletes the row it read and never a newer one that took over its key or rowid.
    bool DeleteAllHits() override;
    bool DeleteTable() override;
    bool DeleteHitWithIdentifier(const std::string& identifier) override;
    void Reset() override;

    /// The first row `query` selects as a hit, or an empty pointer (no row, unreadable row, or error).
    std::shared_ptr<DatabaseHitBase> QueryHit(const std::shared_ptr<Query>& query);
    /// Every row `query` selects, as hits, for listing: reads only, and works in every state.
    /// Unreadable rows are logged by the schema and left out; empty on error.
    std::vector<std::shared_ptr<DatabaseHitBase>> QueryHits(const std::shared_ptr<Query>& query);
    /// Inserts one row from the schema's data map of `hit`. Never sends and never waits for the
    /// worker; works while suspended. False (logged with SQLite's message) when nothing could be
    /// stored; a failure makes the queue check its table, and repeated failures of the file move this
    /// run to memory, so that one bad table or file does not cost every later hit.
    bool Queue(const std::shared_ptr<DatabaseHitBase>& hit);
    /// The oldest readable row as a hit, or an empty pointer. Unreadable rows met on the way are
    /// logged and passed over from then on.
    std::shared_ptr<DatabaseHitBase> SelectOldestHit();
    /// Writes the data map of `hit` to the row whose key is `hit->identifier`; true when it ran.
    bool UpdateHit(const std::shared_ptr<DatabaseHitBase>& hit);

    /// The wait before a hit in retry comes again, for every queue of the process. 30 s unless the
    /// environment variable VELMORA_HIT_RETRY_MS gives milliseconds; tests set it shorter.
    static void SetRetryWait(std::chrono::milliseconds wait);
    static std::chrono::milliseconds GetRetryWait();

private:
    /// The SELECT of `query`, for QueryHit and QueryHits.
    std::string SelectSql(const Query& query) const;
    /// The worker's SELECT; each of `earlier_columns` reads the bound value on rows up to rowid ?1.
    std::string SelectOldestSql(const std::vector<std::string>& earlier_columns) const;
    static std::string DatabasePathFor(const std::shared_ptr<PlatformServicesInterface>& platform_services,
                                       const std::shared_ptr<DatabaseHitSchemaBase>& schema);
    // These three run before the base is built; any order of them is safe.
    static std::string TableNameOf(const std::shared_ptr<DatabaseHitSchemaBase>& schema);
    static std::string KeyColumnOf(const std::shared_ptr<DatabaseHitSchemaBase>& schema);

    /// Which row a hit was read from, and in which generation of the table.
    struct RowMark {
        int64_t rowid{0};
        uint64_t generation{0};
        std::string key;
    };
    std::shared_ptr<DatabaseHitBase> SelectOldest(bool& failed, RowMark& mark);
    /// Deletes the row `mark` names, unless rows were removed since it was read.
    bool DeleteReadRow(const RowMark& mark);
    std::shared_ptr<DatabaseHitBase> GenerateHitGuarded(const std::shared_ptr<QueryResultInterface>& result);
    std::map<std::string, std::shared_ptr<Variant>> DataMapGuarded(const std::shared_ptr<DatabaseHitBase>& hit);
    /// The entries of `values` whose column the schema has; the others are logged and left out.
    std::vector<std::pair<std::string, std::shared_ptr<Variant>>> KnownColumns(
        const std::map<std::string, std::shared_ptr<Variant>>& values) const;
    bool InsertRow(const std::map<std::string, std::shared_ptr<Variant>>& values);
    /// Binds `columns` to parameters 1..n; on a value that cannot be stored logs "...; `consequence`",
    /// resets the statement and gives false.
    bool BindColumnsLocked(sqlite3_stmt* statement,
                           const std::vector<std::pair<std::string, std::shared_ptr<Variant>>>& columns,
                           const char* consequence);
    /// Runs the insert or update `sql` with `columns` bound to 1..n and `identifier` (when given) after
    /// them. A failure the table's check or a switch to memory can mend is tried once more.
    bool WriteLocked(const std::string& sql,
                     const std::vector<std::pair<std::string, std::shared_ptr<Variant>>>& columns,
                     const std::string* identifier, const char* what, const char* consequence);
    /// UPDATE of every row, or of the row with key `identifier` when it is given.
    bool UpdateRows(const std::map<std::string, std::shared_ptr<Variant>>& values, const std::string* identifier);
    void NoteNewWork();

    void WorkerMain(std::weak_ptr<Object> owner, bool shared_owned, std::shared_ptr<bool> destroyed);
    /// Blocks until there is something to do; false when the worker is to end.
    bool WaitForWork(bool idle, uint64_t idle_version, uint64_t& version);
    enum class StepOutcome { PROCESSED, RETRY_LATER, TABLE_EMPTY, NOT_ONLINE };
    StepOutcome Step();
    void WaitBeforeRetry();

    // Guarded by mutex_: online_, disposed_ and the members after condition_.
    std::thread worker_;
    std::mutex mutex_;
    std::shared_ptr<DatabaseHitSchemaBase> schema_;
    std::shared_ptr<HitProcessorBase> processor_;
    bool online_{false};
    std::shared_ptr<PlatformServicesInterface> platform_services_;
    /// Kept for processors and subclasses that want device facts; the queue itself needs none.
    std::shared_ptr<SystemInfoServiceInterface> system_info_service_;
    bool disposed_{false};
    std::condition_variable condition_;

    bool worker_started_{false};
    bool worker_running_{false};
    /// Raised by every insert and BringOnline, so a worker that ran empty knows to look again.
    uint64_t work_version_{0};
    /// Set when the destructor runs on the worker thread, which then must not touch the object again.
    std::shared_ptr<bool> destroyed_on_worker_{std::make_shared<bool>(false)};

    /// Raised by every removal of rows from outside the worker. Guarded by DatabaseMutex().
    uint64_t row_generation_{0};

    // UpdateEarlierHits: rows up to this rowid read with these values, bound in the order of the
    // columns after the rowid (?1). Guarded by DatabaseMutex().
    std::string select_oldest_sql_;
    int64_t earlier_rowid_{0};
    std::vector<std::shared_ptr<Variant>> earlier_values_;

    // Immutable after construction.
    SqliteTableSchema table_schema_;
    std::vector<std::string> column_names_;
};

}  // namespace VelmoraMobile
