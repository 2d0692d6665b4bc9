#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>

#include "runtime/services/storage/SqliteTableSchema.h"
#include "runtime/values/Object.h"
#include "runtime/values/Variant.h"

struct sqlite3;
struct sqlite3_stmt;

namespace VelmoraMobile {

/// Owner of one SQLite database file (WAL journal, a write is durable when the call returns) and of
/// one table in it. Nothing stored is ever deleted by a repair, and no damaged file stops the program:
/// - a file that is not a usable database is moved aside to "<file>.corrupt-<unix seconds>";
/// - a table of another shape than the schema's (EnsureTableLocked) is moved aside with its file to
///   "<file>.mismatch-<unix seconds>";
/// in both cases a fresh file gets the table and the rows that can still be read are carried into it,
/// with one error line. Every page is checked at open only when the last run did not close the file
/// (its write-ahead log is still there); otherwise damage is repaired where a read or write meets it.
/// A file that cannot be opened, created or written at all (read-only or full
/// folder, a directory in its place) is left as it is and this run works on a database in memory.
///
/// Threads: every public operation may be called from any thread. The connection is guarded by one
/// recursive mutex, so operations may call each other on the same thread.
class HitDatabaseBase : public Object {
public:
    static constexpr const char* LOG_TAG = "HitDatabase";

    /// `file_path`: the database file (its folder is created when missing). `table_name`: the table
    /// the delete and count operations work on. `key_column`: the column that holds a row's
    /// identifier; empty means the rowid. Does not touch the file: see OpenOrCreateDatabase.
    HitDatabaseBase(const std::string& file_path, const std::string& table_name, const std::string& key_column);
    ~HitDatabaseBase() override;
    HitDatabaseBase(const HitDatabaseBase&) = delete;
    HitDatabaseBase& operator=(const HitDatabaseBase&) = delete;

    /// Opens the file, creating it when missing; true when a usable connection is open. Logs nothing
    /// on failure: the reason is kept for the caller's one line (see FallBackToMemory).
    virtual bool OpenOrCreateDatabase();
    /// Makes sure the table is there with the right shape; true on success.
    virtual bool InitializeDatabase() = 0;
    /// Called after Reset has made a fresh database. Does nothing by default.
    virtual void PostReset();
    /// Deletes every row of the table at once.
    virtual bool DeleteAllHits();
    /// Drops the table. The next write that fails on it makes it again.
    virtual bool DeleteTable();
    /// Deletes the row whose key is `identifier`; true when the statement ran (also if no row matched).
    virtual bool DeleteHitWithIdentifier(const std::string& identifier);
    /// Number of rows of the table; 0 when it cannot be counted.
    virtual int32_t GetSize();
    /// Throws the file away and starts with a fresh database and an empty table, then PostReset.
    /// On a database in memory only the memory is emptied.
    virtual void Reset();

    const std::string& GetFilePath() const { return file_path_; }
    /// True when this run works on a database in memory, because the file could not be used.
    bool IsInMemory() const;

protected:
    // Members named *Locked expect the caller to hold DatabaseMutex().
    std::recursive_mutex& DatabaseMutex() const { return database_mutex_; }
    /// The open connection, or null.
    sqlite3* HandleLocked() const { return database_; }
    /// Runs statements without results; logs and gives false on failure.
    bool ExecuteLocked(const std::string& sql);
    /// A prepared statement for `sql`, kept for the life of the connection, reset and unbound.
    /// Null (logged) when it cannot be prepared. The caller resets it after use.
    sqlite3_stmt* CachedStatementLocked(const std::string& sql);
    /// A fresh statement the caller finalizes. Null (logged) when it cannot be prepared.
    sqlite3_stmt* PrepareLocked(const std::string& sql);
    /// Steps a statement without result rows to its end and resets it; logs failures under `what`
    /// with SQLite's message, and gives the result code through `result_code` when it is given.
    bool StepToDoneLocked(sqlite3_stmt* statement, const char* what, int* result_code = nullptr);
    /// Deletes the row with that rowid; true when the statement ran (also if no row matched).
    bool DeleteRowLocked(int64_t rowid);
    /// Logs the connection's last error for `what`.
    void LogErrorLocked(const char* what) const;

    /// Checks the table against `schema`: creates it when missing, keeps it when it matches, and
    /// otherwise moves the file aside and makes a new one with the rows that can be read (one error
    /// line naming what differed). Carries the rows of a file moved aside by OpenOrCreateDatabase.
    /// False (reason kept) when the file cannot be used.
    bool EnsureTableLocked(const SqliteTableSchema& schema);
    /// After an insert or update on the table failed with `result_code` (logged by the caller):
    /// counts it and checks the table as EnsureTableLocked does; a file that cannot be written moves
    /// this run to memory. True when something was repaired, so the write may be tried once more;
    /// otherwise logs how many writes in a row have failed.
    bool RecoverFromWriteFailureLocked(const SqliteTableSchema& schema, int result_code);
    /// After a statement failed with `result_code` because the file is damaged: moves the
    /// file aside and makes a fresh one with the rows that can still be read, with the same error
    /// line as a damaged file found at open; a file that cannot be replaced moves this run to
    /// memory. True when a usable table is open again; false (nothing done) for any other error.
    bool RepairDamageLocked(const SqliteTableSchema& schema, int result_code);
    /// A write on the table succeeded: the failure count starts again.
    void NoteWriteSucceededLocked() { write_failures_ = 0; }
    /// Logs one error line with the reason the file could not be used, leaves the file as it is and
    /// opens a database in memory for the rest of this run, then InitializeDatabase. True on success.
    bool FallBackToMemory();

    /// Binds `value` to the 1-based parameter `index`. An empty pointer or a null Variant binds NULL;
    /// vectors and maps cannot be stored and give false.
    static bool BindVariant(sqlite3_stmt* statement, int index, const std::shared_ptr<Variant>& value);
    /// `name` as an SQL identifier in double quotes.
    static std::string QuoteIdentifier(const std::string& name);

    const std::string& TableName() const { return table_name_; }
    /// The key column as SQL: the quoted column, or rowid.
    const std::string& KeyExpression() const { return key_expression_; }

    /// Rowids of rows that could not be read in this run; they are passed over, not deleted.
    /// Guarded by DatabaseMutex().
    std::set<int64_t> unreadable_rows_;

private:
    enum class OpenResult { OK, NOT_A_DATABASE, FAILED };
    OpenResult OpenFileLocked();
    bool OpenMemoryLocked();
    void CloseLocked();
    void MoveAsideLocked();
    /// Moves the damaged file aside and opens a fresh one with the table and the rows that can be
    /// read (EnsureTableLocked logs the one line); false when any step fails.
    bool ReplaceDamagedFileLocked(const SqliteTableSchema& schema, const std::string& reason);
    bool CreateTableLocked(const SqliteTableSchema& schema);
    /// Moves the file with its table of the wrong shape aside and makes a new one.
    bool RebuildLocked(const SqliteTableSchema& schema, const std::string& difference);
    /// Opens memory and makes the table there; logs `line` (with the file and reason) as the one error.
    bool UseMemoryLocked(const SqliteTableSchema& schema, const std::string& line);

    const std::string file_path_;
    const std::string table_name_;
    const std::string key_expression_;
    mutable std::recursive_mutex database_mutex_;
    sqlite3* database_{nullptr};
    std::unordered_map<std::string, sqlite3_stmt*> statements_;
    bool in_memory_{false};
    /// Why the file could not be used, for the line of the fall-back to memory.
    std::string failure_;
    /// A damaged file OpenOrCreateDatabase moved aside, whose rows EnsureTableLocked carries over.
    std::string corrupt_aside_;
    std::string corrupt_reason_;
    int write_failures_{0};
};

}  // namespace VelmoraMobile
