#include "runtime/services/storage/SqliteStoreFile.h"

#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "runtime/services/storage/SqliteTableRepair.h"
#include "runtime/services/storage/SqliteTableShape.h"
#include "runtime/values/Log.h"

namespace VelmoraMobile {

namespace {

const char* const kLogTag = "SqliteStoreFile";
const int kBusyTimeoutMs = 5000;

// As SQLite keeps it in sqlite_master, so that the table of a good file matches it word for word.
const char* const kSchema =
    "CREATE TABLE data_stores ("
    " store TEXT NOT NULL,"
    " key TEXT NOT NULL,"
    " type INTEGER NOT NULL,"
    " value,"
    " PRIMARY KEY (store, key)) WITHOUT ROWID";

const char* const kKeptInMemory = "this run keeps its values in memory and leaves the file as it is";

const SqliteTableSchema& StoreSchema() {
    static const SqliteTableSchema schema = [] {
        SqliteTableSchema made;
        made.name = "data_stores";
        made.create_sql = kSchema;
        // Only values that read back as what their type says: text or bytes for a string, an
        // integer for a number or a flag.
        made.select_sql =
            "SELECT store, key, type, value FROM data_stores WHERE typeof(store) = 'text' AND typeof(key) = 'text' AND "
            "((type = 1 AND typeof(value) IN ('text', 'blob')) OR "
            "(type IN (2, 3) AND typeof(value) = 'integer'))";
        made.order_by = {"store", "key"};
        made.insert_sql = "INSERT OR IGNORE INTO main.data_stores (store, key, type, value) VALUES (?1, ?2, ?3, ?4)";
        return made;
    }();
    return schema;
}

std::string CarriedText(const SqliteTableRepair::Carried& carried) {
    return std::to_string(carried.rows) + (carried.of >= 0 ? " of " + std::to_string(carried.of) : std::string());
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
    if (!file->EnsureOpen()) {
        return nullptr;
    }
    return file;
}

bool SqliteStoreFile::IsInMemory() {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    return in_memory_;
}

SqliteStoreFile::Opened SqliteStoreFile::TryOpenFile(std::string& reason) {
    auto fail = [&](int code) {
        reason = db_ != nullptr ? sqlite3_errmsg(db_) : sqlite3_errstr(code);
        CloseConnection();
        return SqliteTableRepair::IsCorruption(code) ? Opened::DAMAGED : Opened::FAILED;
    };
    int code =
        sqlite3_open_v2(path_.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (code != SQLITE_OK) {
        return fail(code);
    }
    sqlite3_busy_timeout(db_, kBusyTimeoutMs);
    // A file that is no database shows only at the first statement that reads it.
    for (const char* sql : {"PRAGMA journal_mode=WAL", "PRAGMA synchronous=FULL"}) {
        code = sqlite3_exec(db_, sql, nullptr, nullptr, nullptr);
        if (code != SQLITE_OK) {
            return fail(code);
        }
    }
    // The table is small: a quick check at start finds damage before any value is trusted.
    sqlite3_stmt* check = nullptr;
    code = sqlite3_prepare_v2(db_, "PRAGMA quick_check", -1, &check, nullptr);
    std::string verdict;
    if (code == SQLITE_OK && (code = sqlite3_step(check)) == SQLITE_ROW) {
        const unsigned char* text = sqlite3_column_text(check, 0);
        verdict = text != nullptr ? reinterpret_cast<const char*>(text) : "";
        code = SQLITE_OK;
    }
    sqlite3_finalize(check);
    if (code != SQLITE_OK) {
        return fail(code);
    }
    if (verdict != "ok") {
        std::replace(verdict.begin(), verdict.end(), '\n', ' ');  // one log line
        reason = verdict;
        CloseConnection();
        return Opened::DAMAGED;
    }
    SqliteTableShape::Finding table = SqliteTableShape::Check(db_, "main", StoreSchema().name, kSchema);
    switch (table.verdict) {
        case SqliteTableShape::Verdict::MATCHES: break;
        case SqliteTableShape::Verdict::MISSING:
            code = sqlite3_exec(db_, kSchema, nullptr, nullptr, nullptr);
            if (code != SQLITE_OK) {
                return fail(code);
            }
            break;
        case SqliteTableShape::Verdict::DIFFERS:
            reason = table.detail;
            CloseConnection();
            return Opened::MISMATCH;
        case SqliteTableShape::Verdict::UNREADABLE: return fail(sqlite3_extended_errcode(db_));
    }
    if (!PrepareStatements()) {
        return fail(sqlite3_extended_errcode(db_));
    }
    return Opened::OK;
}

bool SqliteStoreFile::PrepareStatements() {
    struct {
        sqlite3_stmt** statement;
        const char* sql;
    } statements[] = {
        // A value already stored changes no page, so its commit costs no write and no sync.
        {&write_,
         "INSERT INTO data_stores (store, key, type, value) VALUES (?1, ?2, ?3, ?4) ON CONFLICT (store, key) DO "
         "UPDATE SET type = excluded.type, value = excluded.value WHERE type IS NOT excluded.type OR value IS NOT "
         "excluded.value"},
        {&read_, "SELECT type, value FROM data_stores WHERE store = ?1 AND key = ?2"},
        {&remove_, "DELETE FROM data_stores WHERE store = ?1 AND key = ?2"},
        {&remove_all_, "DELETE FROM data_stores WHERE store = ?1"},
    };
    for (auto& entry : statements) {
        if (sqlite3_prepare_v3(db_, entry.sql, -1, SQLITE_PREPARE_PERSISTENT, entry.statement, nullptr) != SQLITE_OK) {
            return false;
        }
    }
    return true;
}

bool SqliteStoreFile::OpenConnection() {
    std::string reason;
    switch (TryOpenFile(reason)) {
        case Opened::OK: return true;
        case Opened::DAMAGED: return Rebuild("corrupt", "is damaged (" + reason + ")");
        case Opened::MISMATCH: return Rebuild("mismatch", "holds a table of another shape (" + reason + ")");
        case Opened::FAILED: break;
    }
    failure_ = reason;
    return false;
}

bool SqliteStoreFile::EnsureOpen() {
    if (db_ != nullptr) {
        return true;
    }
    if (!in_memory_ && OpenConnection()) {
        return true;
    }
    return UseMemory(
        StringUtils::FormatString("Cannot use the data store file (%s): %s; %s", path_, failure_, kKeptInMemory),
        path_);
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

bool SqliteStoreFile::Rebuild(const char* label, const std::string& what) {
    CloseConnection();
    std::string error;
    std::string aside = SqliteTableRepair::MoveAside(path_, label, error);
    if (aside.empty()) {
        return UseMemory(StringUtils::FormatString("The data store file (%s) %s and cannot be moved aside (%s); %s",
                                                   path_, what, error, kKeptInMemory),
                         path_);
    }
    std::string reason;
    if (TryOpenFile(reason) != Opened::OK) {
        return UseMemory(StringUtils::FormatString(
                             "The data store file (%s) %s; moved it to (%s) but cannot make a fresh one (%s); %s",
                             path_, what, aside, reason, kKeptInMemory),
                         aside);
    }
    SqliteTableRepair::Carried carried = SqliteTableRepair::CarryRows(db_, aside, StoreSchema());
    Log::Error(
        kLogTag,
        "The data store file (%s) %s; moved it to (%s) and started a fresh one with the %s values that could be read",
        path_, what, aside, CarriedText(carried));
    return true;
}

bool SqliteStoreFile::UseMemory(const std::string& line, const std::string& source) {
    sqlite3* memory = nullptr;
    if (sqlite3_open_v2(":memory:", &memory, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) != SQLITE_OK ||
        sqlite3_exec(memory, kSchema, nullptr, nullptr, nullptr) != SQLITE_OK) {
        sqlite3_close_v2(memory);
        CloseConnection();
        Log::Error(kLogTag, "%s; not even memory can be had", line);
        return false;
    }
    // Read while the file's own connection is still open: a file that takes no writes may not let a
    // new reader set up its shared memory.
    std::error_code ignored;
    SqliteTableRepair::Carried carried;
    if (std::filesystem::is_regular_file(source, ignored)) {
        carried = SqliteTableRepair::CarryRows(memory, source, StoreSchema());
    }
    CloseConnection();
    db_ = memory;
    in_memory_ = true;
    if (!PrepareStatements()) {
        CloseConnection();
        Log::Error(kLogTag, "%s; not even memory can be had", line);
        return false;
    }
    Log::Error(kLogTag, "%s (%s values read from it)", line, CarriedText(carried));
    return true;
}

bool SqliteStoreFile::RecoverFrom(int code, const char* what) {
    std::string message = db_ != nullptr ? sqlite3_errmsg(db_) : sqlite3_errstr(code);
    if (SqliteTableRepair::IsCorruption(code) && !in_memory_) {
        // Other stores' values, the configuration's stored opt-out among them, come along.
        return Rebuild("corrupt", std::string("was found damaged at a ") + what + " (" + message + ")");
    }
    Log::Error(kLogTag, "Data store %s failed (%s): %s", what, path_, message);
    if (db_ == nullptr) {
        return false;
    }
    SqliteTableShape::Finding table = SqliteTableShape::Check(db_, "main", StoreSchema().name, kSchema);
    if (table.verdict == SqliteTableShape::Verdict::MISSING) {
        return sqlite3_exec(db_, kSchema, nullptr, nullptr, nullptr) == SQLITE_OK;
    }
    if (table.verdict == SqliteTableShape::Verdict::DIFFERS && !in_memory_) {
        return Rebuild("mismatch", "holds a table of another shape (" + table.detail + ")");
    }
    // A file that takes no more writes: the values go on in memory, starting from what the file
    // still gives. A failed read alone changes nothing: memory could not hold more than the file.
    bool writing = std::string(what) != "read";
    bool storage_failing =
        SqliteTableRepair::IsStorageFailure(code) || table.verdict == SqliteTableShape::Verdict::UNREADABLE;
    if (in_memory_ || !writing || !storage_failing) {
        return false;
    }
    return UseMemory(
        StringUtils::FormatString("Writes to the data store file (%s) fail (%s); %s", path_, message, kKeptInMemory),
        path_);
}

bool SqliteStoreFile::Write(const std::string& store, const std::string& key, const Value& value) {
    if (!Fits(store) || !Fits(key) || !Fits(value.text)) {
        Log::Error(kLogTag, "Data store write refused: value or key too long (%s)", path_);
        return false;
    }
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (!EnsureOpen()) {
            return false;
        }
        int code = BindStoreKey(write_, store, &key);
        if (code == SQLITE_OK) {
            code = sqlite3_bind_int(write_, 3, static_cast<int>(value.type));
        }
        if (code == SQLITE_OK) {
            code = value.type == ValueType::STRING
                       // Static: Finish unbinds before `value` can go, and a long value is not copied.
                       ? sqlite3_bind_text(write_, 4, value.text.data(), static_cast<int>(value.text.size()),
                                           SQLITE_STATIC)
                       : sqlite3_bind_int64(write_, 4, value.number);
        }
        if (code == SQLITE_OK) {
            code = sqlite3_step(write_);
        }
        Finish(write_);
        if (code == SQLITE_DONE) {
            return true;
        }
        if (batching_) {
            batch_failed_ = true;
            break;
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
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (!EnsureOpen()) {
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
        if (batching_) {
            batch_failed_ = true;
            break;
        }
        if (!RecoverFrom(code, "read")) {
            return std::nullopt;
        }
    }
    return std::nullopt;
}

void SqliteStoreFile::WriteTogether(const std::function<void()>& writes) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (batching_) {
        writes();
        return;
    }
    if (EnsureOpen() && sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) == SQLITE_OK) {
        batching_ = true;
        batch_failed_ = false;
        auto roll_back = [this] {
            batching_ = false;
            if (db_ != nullptr && sqlite3_get_autocommit(db_) == 0) {
                sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
            }
        };
        try {
            writes();
        } catch (...) {
            roll_back();
            throw;
        }
        batching_ = false;
        if (!batch_failed_ && sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK) {
            return;
        }
        roll_back();
    }
    // One write at a time, each with the repairs its failure calls for.
    writes();
}

bool SqliteStoreFile::Contains(const std::string& store, const std::string& key) {
    return Read(store, key).has_value();
}

bool SqliteStoreFile::Remove(const std::string& store, const std::string& key) {
    if (!Fits(store) || !Fits(key)) {
        return false;
    }
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (!EnsureOpen()) {
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
        if (batching_) {
            batch_failed_ = true;
            break;
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
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (!EnsureOpen()) {
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
        if (batching_) {
            batch_failed_ = true;
            break;
        }
        if (!RecoverFrom(code, "remove all")) {
            return false;
        }
    }
    return false;
}

}  // namespace VelmoraMobile
