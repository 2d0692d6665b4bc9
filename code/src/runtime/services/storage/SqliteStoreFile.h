#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

struct sqlite3;
struct sqlite3_stmt;

namespace VelmoraMobile {

/// The one SQLite file behind all data stores: a table of typed values keyed by (store, key),
/// in WAL mode with full sync, so every write is durable when the call returns.
///
/// No repair loses a value that can still be read, and none deletes the file:
/// - a damaged file, or one whose table has another shape, is moved aside and replaced by a fresh
///   one that gets every value that can still be read, of every store, with one error line; this
///   holds at open and when an operation later finds damage;
/// - a file that cannot be opened, created or written (read-only or full folder, a directory in its
///   place) is left as it is: this run keeps the values in memory, starting from those the file
///   still gives, so that a stored opt-out is still seen.
/// Every member is serialised by an internal lock: callable from any thread.
class SqliteStoreFile {
public:
    enum class ValueType : int32_t { STRING = 1, LONG = 2, BOOLEAN = 3 };

    struct Value {
        ValueType type = ValueType::STRING;
        std::string text;    // STRING
        int64_t number = 0;  // LONG, BOOLEAN (0 or 1)
    };

    /// Opens (and if needed creates, repairs or replaces by memory) the file; null only when not even
    /// a database in memory can be had.
    static std::shared_ptr<SqliteStoreFile> Open(const std::string& path);

    ~SqliteStoreFile();
    SqliteStoreFile(const SqliteStoreFile&) = delete;
    SqliteStoreFile& operator=(const SqliteStoreFile&) = delete;

    /// false when the write failed (logged).
    bool Write(const std::string& store, const std::string& key, const Value& value);
    /// The stored value, or nothing when the key is missing or the read failed (logged).
    std::optional<Value> Read(const std::string& store, const std::string& key);
    bool Contains(const std::string& store, const std::string& key);
    bool Remove(const std::string& store, const std::string& key);
    bool RemoveAll(const std::string& store);
    /// Runs `writes` (Write, Remove and RemoveAll calls on this thread) in one transaction,
    /// committed with a sync before it returns, while other threads wait. When one of them or the
    /// commit fails, the transaction is rolled back and `writes` runs again, each write on its own
    /// with the usual repairs. Inside another WriteTogether it joins that one.
    void WriteTogether(const std::function<void()>& writes);

    const std::string& Path() const { return path_; }
    /// True when this run keeps the values in memory because the file could not be used.
    bool IsInMemory();

private:
    explicit SqliteStoreFile(const std::string& path);

    enum class Opened { OK, DAMAGED, MISMATCH, FAILED };
    /// Opens the file, checks it and its table, prepares the statements; `reason` tells a failure.
    Opened TryOpenFile(std::string& reason);
    bool PrepareStatements();
    /// Opens the file, replacing a damaged one or one with a table of another shape. False
    /// (failure_ set) when the file cannot be used.
    bool OpenConnection();
    /// A usable connection: the file's, or else memory's (one error line). False only without memory.
    bool EnsureOpen();
    void CloseConnection();
    /// Moves the file aside under `label` and makes a fresh one with the values that can be read;
    /// `what` says why, for the one error line. False (failure_ set) when that cannot be done.
    bool Rebuild(const char* label, const std::string& what);
    /// Opens memory with the values `source` still gives; logs `line` and how many came along.
    bool UseMemory(const std::string& line, const std::string& source);
    /// After an operation failed with `code`: repairs what can be repaired; true means that the
    /// operation may be tried again.
    bool RecoverFrom(int code, const char* what);

    std::string path_;
    // Recursive: the writes of WriteTogether take it again.
    std::recursive_mutex mutex_;
    sqlite3* db_ = nullptr;
    sqlite3_stmt* write_ = nullptr;
    sqlite3_stmt* read_ = nullptr;
    sqlite3_stmt* remove_ = nullptr;
    sqlite3_stmt* remove_all_ = nullptr;
    bool in_memory_ = false;
    // Inside WriteTogether's transaction: a failure is only noted, the repairs come after it.
    bool batching_ = false;
    bool batch_failed_ = false;
    std::string failure_;
};

}  // namespace VelmoraMobile
