#include "runtime/services/storage/SqliteStoreFile.h"

#include <sqlite3.h>

#include <cstdio>
#include <ctime>

#include "runtime/values/Log.h"

namespace VelmoraMobile {

namespace {

const char* const kLogTag = "SqliteStoreFile";
const int kBusyTimeoutMs = 5000;

const char* const kSchema =
    "CREATE TABLE IF NOT EXISTS data_stores ("
    " store TEXT NOT NULL,"
    " key TEXT NOT NULL,"
    " type INTEGER NOT NULL,"
    " value,"
    " PRIMARY KEY (store, key)) WITHOUT ROWID";

bool IsCorruption(int code) {
    int primary = code & 0xFF;
    return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

// Binds (store, key) to ?1 and ?2; SQLITE_TRANSIENT since the strings are the caller's.
int BindStoreKey(sqlite3_stmt* statement, const std::string& store, const std::string* key) {
    int code = sqlite3_bind_text(statement, 1, store.data(), static_cast<int>(store.size()), SQLITE_TRANSIENT);
    if (code == SQLITE_OK && key != nullptr) {
        code = sqlite3_bind_text(statement, 2, key->data(), static_cast<int>(key->size()), SQLITE_TRANSIENT);
    }
    return code;
}

// Leaves the statement ready for its next use.
void Finish(sqlite3_stmt* statement) {
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
}

// Strings longer than SQLite's int length cannot be bound.
bool Fits(const std::string& text) {
    return text.size() < static_cast<size_t>(1) << 30;
}

}  // namespace

SqliteStoreFile::SqliteStoreFile(const std::string& path) : path_(path) {}

SqliteStoreFile::~SqliteStoreFile() {
    CloseConnection();
}

std::shared_ptr<SqliteStoreFile> SqliteStoreFile::Open(const std::string& path) {
    std::shared_ptr<SqliteStoreFile> file(new SqliteStoreFile(path));
    if (!file->OpenConnection()) {
        return nullptr;
    }
    return file;
}

int SqliteStoreFile::TryOpenConnection() {
    int code =
        sqlite3_open_v2(path_.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (code != SQLITE_OK) {
        return code;
    }
    sqlite3_busy_timeout(db_, kBusyTimeoutMs);
    // A file that is no database shows only at the first statement that reads it.
    const char* setup[] = {"PRAGMA journal_mode=WAL", "PRAGMA synchronous=FULL", kSchema};
    for (const char* sql : setup) {
        code = sqlite3_exec(db_, sql, nullptr, nullptr, nullptr);
        if (code != SQLITE_OK) {
            return code;
        }
    }
    // The table is small: a quick check at start finds damage before any value is trusted.
    sqlite3_stmt* check = nullptr;
    code = sqlite3_prepare_v2(db_, "PRAGMA quick_check", -1, &check, nullptr);
    if (code == SQLITE_OK) {
        code = sqlite3_step(check);
        if (code == SQLITE_ROW) {
            const unsigned char* result = sqlite3_column_text(check, 0);
            code = (result != nullptr && std::string(reinterpret_cast<const char*>(result)) == "ok") ? SQLITE_OK
                                                                                                     : SQLITE_CORRUPT;
        }
        sqlite3_finalize(check);
    }
    if (code != SQLITE_OK) {
        return code;
    }
    struct {
        sqlite3_stmt** statement;
        const char* sql;
    } statements[] = {
        {&write_, "INSERT OR REPLACE INTO data_stores (store, key, type, value) VALUES (?1, ?2, ?3, ?4)"},
        {&read_, "SELECT type, value FROM data_stores WHERE store = ?1 AND key = ?2"},
        {&remove_, "DELETE FROM data_stores WHERE store = ?1 AND key = ?2"},
        {&remove_all_, "DELETE FROM data_stores WHERE store = ?1"},
    };
    for (auto& entry : statements) {
        code = sqlite3_prepare_v3(db_, entry.sql, -1, SQLITE_PREPARE_PERSISTENT, entry.statement, nullptr);
        if (code != SQLITE_OK) {
            return code;
        }
    }
    return SQLITE_OK;
}

bool SqliteStoreFile::OpenConnection() {
    int code = TryOpenConnection();
    if (code == SQLITE_OK) {
        return true;
    }
    std::string message = db_ != nullptr ? sqlite3_errmsg(db_) : sqlite3_errstr(code);
    CloseConnection();
    if (!IsCorruption(code)) {
        Log::Error(kLogTag, "Cannot open the data store file (%s): %s", path_, message);
        return false;
    }
    Log::Error(kLogTag, "The data store file (%s) is damaged (%s); moving it aside and starting fresh", path_, message);
    MoveAside();
    code = TryOpenConnection();
    if (code == SQLITE_OK) {
        return true;
    }
    message = db_ != nullptr ? sqlite3_errmsg(db_) : sqlite3_errstr(code);
    CloseConnection();
    Log::Error(kLogTag, "Cannot create a fresh data store file (%s): %s", path_, message);
    return false;
}

void SqliteStoreFile::CloseConnection() {
    for (sqlite3_stmt** statement : {&write_, &read_, &remove_, &remove_all_}) {
        sqlite3_finalize(*statement);
        *statement = nullptr;
    }
    if (db_ != nullptr) {
        sqlite3_close_v2(db_);
        db_ = nullptr;
    }
}

void SqliteStoreFile::MoveAside() {
    std::string aside = path_ + ".corrupt-" + std::to_string(static_cast<long long>(std::time(nullptr)));
    if (std::rename(path_.c_str(), aside.c_str()) != 0) {
        Log::Error(kLogTag, "Cannot move the damaged data store file aside (%s); removing it", path_);
        std::remove(path_.c_str());
    } else {
        Log::Warning(kLogTag, "The damaged data store file was kept as (%s)", aside);
    }
    // A journal left beside a damaged file belongs to it, not to the fresh one.
    for (const char* suffix : {"-wal", "-shm", "-journal"}) {
        std::string companion = path_ + suffix;
        std::string companion_aside = aside + suffix;
        if (std::rename(companion.c_str(), companion_aside.c_str()) != 0) {
            std::remove(companion.c_str());
        }
    }
}

bool SqliteStoreFile::RecoverFrom(int code, const char* what) {
    std::string message = db_ != nullptr ? sqlite3_errmsg(db_) : sqlite3_errstr(code);
    if (!IsCorruption(code)) {
        Log::Error(kLogTag, "Data store %s failed (%s): %s", what, path_, message);
        return false;
    }
    Log::Error(kLogTag, "Data store %s found the file (%s) damaged (%s); moving it aside and starting fresh", what,
               path_, message);
    CloseConnection();
    MoveAside();
    return OpenConnection();
}

bool SqliteStoreFile::Write(const std::string& store, const std::string& key, const Value& value) {
    if (!Fits(store) || !Fits(key) || !Fits(value.text)) {
        Log::Error(kLogTag, "Data store write refused: value or key too long (%s)", path_);
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (db_ == nullptr && !OpenConnection()) {
            return false;
        }
        int code = BindStoreKey(write_, store, &key);
        if (code == SQLITE_OK) {
            code = sqlite3_bind_int(write_, 3, static_cast<int>(value.type));
        }
        if (code == SQLITE_OK) {
            code = value.type == ValueType::STRING
                       ? sqlite3_bind_text(write_, 4, value.text.data(), static_cast<int>(value.text.size()),
                                           SQLITE_TRANSIENT)
                       : sqlite3_bind_int64(write_, 4, value.number);
        }
        if (code == SQLITE_OK) {
            code = sqlite3_step(write_);
        }
        Finish(write_);
        if (code == SQLITE_DONE) {
            return true;
        }
        if (!RecoverFrom(code, "write")) {
            return false;
        }
    }
    return false;
}

std::optional<SqliteStoreFile::Value> SqliteStoreFile::Read(const std::string& store, const std::string& key) {
    if (!Fits(store) || !Fits(key)) {
        return std::nullopt;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (db_ == nullptr && !OpenConnection()) {
            return std::nullopt;
        }
        int code = BindStoreKey(read_, store, &key);
        if (code == SQLITE_OK) {
            code = sqlite3_step(read_);
        }
        if (code == SQLITE_ROW) {
            Value value;
            value.type = static_cast<ValueType>(sqlite3_column_int(read_, 0));
            if (value.type == ValueType::STRING) {
                const auto* text = static_cast<const char*>(sqlite3_column_blob(read_, 1));
                int size = sqlite3_column_bytes(read_, 1);
                value.text.assign(text != nullptr ? text : "", static_cast<size_t>(size));
            } else {
                value.number = sqlite3_column_int64(read_, 1);
            }
            Finish(read_);
            return value;
        }
        Finish(read_);
        if (code == SQLITE_DONE) {
            return std::nullopt;
        }
        if (!RecoverFrom(code, "read")) {
            return std::nullopt;
        }
    }
    return std::nullopt;
}

bool SqliteStoreFile::Contains(const std::string& store, const std::string& key) {
    return Read(store, key).has_value();
}

bool SqliteStoreFile::Remove(const std::string& store, const std::string& key) {
    if (!Fits(store) || !Fits(key)) {
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (db_ == nullptr && !OpenConnection()) {
            return false;
        }
        int code = BindStoreKey(remove_, store, &key);
        if (code == SQLITE_OK) {
            code = sqlite3_step(remove_);
        }
        Finish(remove_);
        if (code == SQLITE_DONE) {
            return true;
        }
        if (!RecoverFrom(code, "remove")) {
            return false;
        }
    }
    return false;
}

bool SqliteStoreFile::RemoveAll(const std::string& store) {
    if (!Fits(store)) {
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (db_ == nullptr && !OpenConnection()) {
            return false;
        }
        int code = BindStoreKey(remove_all_, store, nullptr);
        if (code == SQLITE_OK) {
            code = sqlite3_step(remove_all_);
        }
        Finish(remove_all_);
        if (code == SQLITE_DONE) {
            return true;
        }
        if (!RecoverFrom(code, "remove all")) {
            return false;
        }
    }
    return false;
}

}  // namespace VelmoraMobile
