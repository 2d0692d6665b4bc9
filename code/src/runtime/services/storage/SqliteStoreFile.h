#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

struct sqlite3;
struct sqlite3_stmt;

namespace VelmoraMobile {

/// The one SQLite file behind all data stores: a table of typed values keyed by (store, key),
/// in WAL mode with full sync, so every write is durable when the call returns. A file that
/// turns out not to be a database, or to be corrupt, is logged, moved aside and replaced by a
/// fresh one. Every member is serialised by an internal lock: callable from any thread.
class SqliteStoreFile {
public:
    enum class ValueType : int32_t { STRING = 1, LONG = 2, BOOLEAN = 3 };

    struct Value {
        ValueType type = ValueType::STRING;
        std::string text;    // STRING
        int64_t number = 0;  // LONG, BOOLEAN (0 or 1)
    };

    /// Opens (and if needed creates or replaces) the file; null when it cannot be opened (logged).
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

    const std::string& Path() const { return path_; }

private:
    explicit SqliteStoreFile(const std::string& path);

    /// Opens the connection and prepares the statements; on a corrupt file moves it aside
    /// and tries once more. Called with the lock held (or before the object is shared).
    bool OpenConnection();
    /// Result code of the attempt; SQLITE_OK when everything is ready.
    int TryOpenConnection();
    void CloseConnection();
    void MoveAside();
    /// After an operation failed with `code`: a corrupt file is replaced, and true means that
    /// the operation may be tried again.
    bool RecoverFrom(int code, const char* what);

    std::string path_;
    std::mutex mutex_;
    sqlite3* db_ = nullptr;
    sqlite3_stmt* write_ = nullptr;
    sqlite3_stmt* read_ = nullptr;
    sqlite3_stmt* remove_ = nullptr;
    sqlite3_stmt* remove_all_ = nullptr;
};

}  // namespace VelmoraMobile
