#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>

#include "runtime/values/Object.h"
#include "runtime/values/Variant.h"

struct sqlite3;
struct sqlite3_stmt;

namespace VelmoraMobile {

/// Owner of one SQLite database file (WAL journal, a write is durable when the call returns) and of
/// one table in it. A file that is not a usable database is moved aside to
/// "<file>.corrupt-<unix seconds>" and replaced by a fresh one, so stored garbage never stops the
/// program.
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

    /// Opens the file, creating it when missing; true when a usable connection is open.
    virtual bool OpenOrCreateDatabase();
    /// Creates what the database needs (the table); true on success.
    virtual bool InitializeDatabase() = 0;
    /// Called after Reset has made a fresh database. Does nothing by default.
    virtual void PostReset();
    /// Deletes every row of the table at once.
    virtual bool DeleteAllHits();
    /// Drops the table. Later inserts fail until InitializeDatabase runs again.
    virtual bool DeleteTable();
    /// Deletes the row whose key is `identifier`; true when the statement ran (also if no row matched).
    virtual bool DeleteHitWithIdentifier(const std::string& identifier);
    /// Number of rows of the table; 0 when it cannot be counted.
    virtual int32_t GetSize();
    /// Throws the file away and starts with a fresh database and an empty table, then PostReset.
    virtual void Reset();

    const std::string& GetFilePath() const { return file_path_; }

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
    /// Steps a statement without result rows to its end and resets it; logs failures under `what`.
    bool StepToDoneLocked(sqlite3_stmt* statement, const char* what);
    /// Deletes the row with that rowid; true when the statement ran (also if no row matched).
    bool DeleteRowLocked(int64_t rowid);
    /// Logs the connection's last error for `what`.
    void LogErrorLocked(const char* what) const;

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
    void CloseLocked();
    void MoveAsideLocked();

    const std::string file_path_;
    const std::string table_name_;
    const std::string key_expression_;
    mutable std::recursive_mutex database_mutex_;
    sqlite3* database_{nullptr};
    std::unordered_map<std::string, sqlite3_stmt*> statements_;
};

}  // namespace VelmoraMobile
