#include "runtime/hitqueue/HitDatabaseBase.h"

#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <system_error>

#include "runtime/services/storage/SqliteTableRepair.h"
#include "runtime/services/storage/SqliteTableShape.h"
#include "runtime/values/Log.h"

namespace VelmoraMobile {

namespace {

constexpr int BUSY_TIMEOUT_MS = 5000;
constexpr const char* KEPT_IN_MEMORY = "this run keeps its hits in memory and leaves the file as it is";

std::string CarriedText(const SqliteTableRepair::Carried& carried) {
    std::string text = std::to_string(carried.rows);
    if (carried.of >= 0) {
        text += " of " + std::to_string(carried.of);
    }
    return text + (carried.of == 1 || (carried.of < 0 && carried.rows == 1) ? " row" : " rows");
}

}  // namespace

HitDatabaseBase::HitDatabaseBase(const std::string& file_path, const std::string& table_name,
                                 const std::string& key_column)
    : file_path_(file_path),
      table_name_(table_name),
      key_expression_(key_column.empty() ? std::string("rowid") : QuoteIdentifier(key_column)) {}

HitDatabaseBase::~HitDatabaseBase() {
    std::lock_guard<std::recursive_mutex> lock(database_mutex_);
    CloseLocked();
}

bool HitDatabaseBase::OpenOrCreateDatabase() {
    std::lock_guard<std::recursive_mutex> lock(database_mutex_);
    if (database_ != nullptr) {
        return true;
    }
    if (in_memory_) {
        return OpenMemoryLocked();
    }
    OpenResult result = OpenFileLocked();
    if (result == OpenResult::NOT_A_DATABASE) {
        MoveAsideLocked();
        if (corrupt_aside_.empty()) {
            return false;
        }
        result = OpenFileLocked();
    }
    return result == OpenResult::OK;
}

bool HitDatabaseBase::IsInMemory() const {
    std::lock_guard<std::recursive_mutex> lock(database_mutex_);
    return in_memory_;
}

void HitDatabaseBase::PostReset() {}

bool HitDatabaseBase::DeleteAllHits() {
    std::lock_guard<std::recursive_mutex> lock(database_mutex_);
    unreadable_rows_.clear();
    sqlite3_stmt* statement = CachedStatementLocked("DELETE FROM " + QuoteIdentifier(table_name_));
    return statement != nullptr && StepToDoneLocked(statement, "delete all rows");
}

bool HitDatabaseBase::DeleteTable() {
    std::lock_guard<std::recursive_mutex> lock(database_mutex_);
    if (database_ == nullptr) {
        Log::Error(LOG_TAG, "Cannot drop table %s: the database %s is not open", table_name_, file_path_);
        return false;
    }
    unreadable_rows_.clear();
    // Cached statements may refer to the table; they are prepared again when next needed.
    for (auto& entry : statements_) {
        sqlite3_finalize(entry.second);
    }
    statements_.clear();
    return ExecuteLocked("DROP TABLE IF EXISTS " + QuoteIdentifier(table_name_));
}

bool HitDatabaseBase::DeleteHitWithIdentifier(const std::string& identifier) {
    std::lock_guard<std::recursive_mutex> lock(database_mutex_);
    sqlite3_stmt* statement = CachedStatementLocked("DELETE FROM " + QuoteIdentifier(table_name_) + " WHERE " +
                                                    key_expression_ + " = ? RETURNING rowid");
    if (statement == nullptr) {
        return false;
    }
    sqlite3_bind_text(statement, 1, identifier.data(), static_cast<int>(identifier.size()), SQLITE_TRANSIENT);
    int rc;
    while ((rc = sqlite3_step(statement)) == SQLITE_ROW) {
        // A rowid can be given to a new row once its old row is gone.
        unreadable_rows_.erase(sqlite3_column_int64(statement, 0));
    }
    if (rc != SQLITE_DONE) {
        LogErrorLocked("delete a row");
    }
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    return rc == SQLITE_DONE;
}

bool HitDatabaseBase::DeleteRowLocked(int64_t rowid) {
    sqlite3_stmt* statement = CachedStatementLocked("DELETE FROM " + QuoteIdentifier(table_name_) + " WHERE rowid = ?");
    if (statement == nullptr) {
        return false;
    }
    sqlite3_bind_int64(statement, 1, rowid);
    unreadable_rows_.erase(rowid);
    return StepToDoneLocked(statement, "delete a row");
}

int32_t HitDatabaseBase::GetSize() {
    std::lock_guard<std::recursive_mutex> lock(database_mutex_);
    sqlite3_stmt* statement = CachedStatementLocked("SELECT COUNT(*) FROM " + QuoteIdentifier(table_name_));
    if (statement == nullptr) {
        return 0;
    }
    int64_t count = 0;
    if (sqlite3_step(statement) == SQLITE_ROW) {
        count = sqlite3_column_int64(statement, 0);
    } else {
        LogErrorLocked("count rows");
    }
    sqlite3_reset(statement);
    return count > std::numeric_limits<int32_t>::max() ? std::numeric_limits<int32_t>::max()
                                                       : static_cast<int32_t>(count);
}

void HitDatabaseBase::Reset() {
    {
        std::lock_guard<std::recursive_mutex> lock(database_mutex_);
        CloseLocked();
        if (!in_memory_) {
            std::error_code ignored;
            for (const char* suffix : {"", "-wal", "-shm"}) {
                std::filesystem::remove(file_path_ + suffix, ignored);
            }
        }
        unreadable_rows_.clear();
        if (!OpenOrCreateDatabase() || !InitializeDatabase()) {
            Log::Error(LOG_TAG, "Reset could not create a fresh database at %s: %s", file_path_, failure_);
        }
    }
    PostReset();
}

bool HitDatabaseBase::FallBackToMemory() {
    std::lock_guard<std::recursive_mutex> lock(database_mutex_);
    CloseLocked();
    corrupt_aside_.clear();
    Log::Error(LOG_TAG, "Cannot use the hit database %s (%s); %s", file_path_, failure_, KEPT_IN_MEMORY);
    return OpenMemoryLocked() && InitializeDatabase();
}

bool HitDatabaseBase::EnsureTableLocked(const SqliteTableSchema& schema) {
    if (database_ == nullptr) {
        return false;
    }
    SqliteTableShape::Finding finding = SqliteTableShape::Check(database_, "main", schema.name, schema.create_sql);
    switch (finding.verdict) {
        case SqliteTableShape::Verdict::MATCHES: return true;
        case SqliteTableShape::Verdict::DIFFERS: return RebuildLocked(schema, finding.detail);
        case SqliteTableShape::Verdict::UNREADABLE:
            // A schema that cannot be parsed is damage like any other.
            if (SqliteTableRepair::IsCorruption(sqlite3_errcode(database_)) && !in_memory_) {
                return ReplaceDamagedFileLocked(schema, finding.detail);
            }
            failure_ = "cannot read its schema: " + finding.detail;
            return false;
        case SqliteTableShape::Verdict::MISSING: break;
    }
    if (!CreateTableLocked(schema)) {
        return false;
    }
    if (!corrupt_aside_.empty()) {
        SqliteTableRepair::Carried carried = SqliteTableRepair::CarryRows(database_, corrupt_aside_, schema);
        Log::Error(
            LOG_TAG,
            "Database %s is not a usable database (%s); moved it to %s and started a fresh one, carrying over %s",
            file_path_, corrupt_reason_, corrupt_aside_, CarriedText(carried));
        corrupt_aside_.clear();
    }
    return true;
}

bool HitDatabaseBase::RepairDamageLocked(const SqliteTableSchema& schema, int result_code) {
    if (database_ == nullptr || in_memory_ || !SqliteTableRepair::IsCorruption(result_code)) {
        return false;
    }
    write_failures_ = 0;
    unreadable_rows_.clear();
    if (ReplaceDamagedFileLocked(schema, sqlite3_errstr(result_code))) {
        return true;
    }
    corrupt_aside_.clear();
    return UseMemoryLocked(schema, StringUtils::FormatString("Cannot use the hit database %s (%s); %s", file_path_,
                                                             failure_, KEPT_IN_MEMORY));
}

bool HitDatabaseBase::RecoverFromWriteFailureLocked(const SqliteTableSchema& schema, int result_code) {
    ++write_failures_;
    if (database_ == nullptr) {
        return false;
    }
    if (RepairDamageLocked(schema, result_code)) {
        return true;
    }
    // The check costs one look into the schema table, so every failure may afford it.
    SqliteTableShape::Finding finding = SqliteTableShape::Check(database_, "main", schema.name, schema.create_sql);
    if (finding.verdict == SqliteTableShape::Verdict::MISSING && CreateTableLocked(schema)) {
        Log::Error(LOG_TAG, "Table %s of %s was gone; made it again", schema.name, file_path_);
        return true;
    }
    if (finding.verdict == SqliteTableShape::Verdict::DIFFERS) {
        return RebuildLocked(schema, finding.detail);
    }
    // A file that cannot be written loses no hit: they go on in memory, and the rows already in the
    // file wait there for a run that can use it.
    bool storage_failing =
        SqliteTableRepair::IsStorageFailure(result_code) || finding.verdict == SqliteTableShape::Verdict::UNREADABLE;
    if (storage_failing && !in_memory_) {
        std::string reason = sqlite3_errmsg(database_);
        return UseMemoryLocked(schema, StringUtils::FormatString("Writes to the hit database %s fail (%s); %s",
                                                                 file_path_, reason, KEPT_IN_MEMORY));
    }
    Log::Error(LOG_TAG, "%d writes in a row have failed on table %s of %s, which has the right shape", write_failures_,
               schema.name, file_path_);
    return false;
}

bool HitDatabaseBase::CreateTableLocked(const SqliteTableSchema& schema) {
    char* message = nullptr;
    int rc = sqlite3_exec(database_, schema.create_sql.c_str(), nullptr, nullptr, &message);
    if (rc != SQLITE_OK) {
        failure_ = "cannot create table " + schema.name + ": " + (message != nullptr ? message : sqlite3_errstr(rc));
    }
    sqlite3_free(message);
    return rc == SQLITE_OK;
}

bool HitDatabaseBase::RebuildLocked(const SqliteTableSchema& schema, const std::string& difference) {
    CloseLocked();
    write_failures_ = 0;
    unreadable_rows_.clear();
    if (in_memory_) {
        // Nothing to keep: memory holds only this run's rows, which the old table already refused.
        return UseMemoryLocked(
            schema, StringUtils::FormatString("Table %s in memory does not match its schema (%s); made it again",
                                              schema.name, difference));
    }
    std::string error;
    std::string aside = SqliteTableRepair::MoveAside(file_path_, "mismatch", error);
    if (aside.empty()) {
        return UseMemoryLocked(
            schema, StringUtils::FormatString(
                        "Table %s of %s does not match its schema (%s) and the file cannot be moved aside (%s); %s",
                        schema.name, file_path_, difference, error, KEPT_IN_MEMORY));
    }
    if (OpenFileLocked() != OpenResult::OK || !CreateTableLocked(schema)) {
        return UseMemoryLocked(
            schema, StringUtils::FormatString("Table %s of %s does not match its schema (%s); moved the file to %s but "
                                              "cannot make a new one (%s); %s",
                                              schema.name, file_path_, difference, aside, failure_, KEPT_IN_MEMORY));
    }
    SqliteTableRepair::Carried carried = SqliteTableRepair::CarryRows(database_, aside, schema);
    Log::Error(
        LOG_TAG,
        "Table %s of %s does not match its schema (%s); moved the file to %s and made a new table, carrying over %s",
        schema.name, file_path_, difference, aside, CarriedText(carried));
    return true;
}

bool HitDatabaseBase::UseMemoryLocked(const SqliteTableSchema& schema, const std::string& line) {
    CloseLocked();
    write_failures_ = 0;
    unreadable_rows_.clear();
    Log::Error(LOG_TAG, "%s", line);
    return OpenMemoryLocked() && CreateTableLocked(schema);
}

bool HitDatabaseBase::ExecuteLocked(const std::string& sql) {
    if (database_ == nullptr) {
        Log::Error(LOG_TAG, "Cannot run \"%s\": the database %s is not open", sql, file_path_);
        return false;
    }
    char* message = nullptr;
    int rc = sqlite3_exec(database_, sql.c_str(), nullptr, nullptr, &message);
    if (rc != SQLITE_OK) {
        std::string text = message != nullptr ? message : sqlite3_errstr(rc);
        Log::Error(LOG_TAG, "Statement \"%s\" failed on %s: %s", sql, file_path_, text);
    }
    sqlite3_free(message);
    return rc == SQLITE_OK;
}

sqlite3_stmt* HitDatabaseBase::CachedStatementLocked(const std::string& sql) {
    auto found = statements_.find(sql);
    if (found != statements_.end()) {
        return found->second;
    }
    if (database_ == nullptr) {
        Log::Error(LOG_TAG, "Cannot run \"%s\": the database %s is not open", sql, file_path_);
        return nullptr;
    }
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v3(database_, sql.c_str(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &statement,
                           nullptr) != SQLITE_OK) {
        Log::Error(LOG_TAG, "Cannot prepare \"%s\" on %s: %s", sql, file_path_, std::string(sqlite3_errmsg(database_)));
        sqlite3_finalize(statement);
        return nullptr;
    }
    statements_.emplace(sql, statement);
    return statement;
}

sqlite3_stmt* HitDatabaseBase::PrepareLocked(const std::string& sql) {
    if (database_ == nullptr) {
        Log::Error(LOG_TAG, "Cannot run \"%s\": the database %s is not open", sql, file_path_);
        return nullptr;
    }
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(database_, sql.c_str(), static_cast<int>(sql.size()), &statement, nullptr) != SQLITE_OK) {
        Log::Error(LOG_TAG, "Cannot prepare \"%s\" on %s: %s", sql, file_path_, std::string(sqlite3_errmsg(database_)));
        sqlite3_finalize(statement);
        return nullptr;
    }
    return statement;
}

bool HitDatabaseBase::StepToDoneLocked(sqlite3_stmt* statement, const char* what, int* result_code) {
    int rc;
    do {
        rc = sqlite3_step(statement);
    } while (rc == SQLITE_ROW);
    if (rc != SQLITE_DONE) {
        LogErrorLocked(what);
        if (result_code != nullptr) {
            *result_code = sqlite3_extended_errcode(database_);
        }
    }
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    return rc == SQLITE_DONE;
}

void HitDatabaseBase::LogErrorLocked(const char* what) const {
    if (!Log::Precheck(LoggingMode::WARNING_LOG)) {
        return;
    }
    std::string message = database_ != nullptr ? sqlite3_errmsg(database_) : "not open";
    Log::Error(LOG_TAG, "Failed to %s in table %s of %s: %s", std::string(what), table_name_, file_path_, message);
}

bool HitDatabaseBase::BindVariant(sqlite3_stmt* statement, int index, const std::shared_ptr<Variant>& value) {
    if (!value) {
        return sqlite3_bind_null(statement, index) == SQLITE_OK;
    }
    int rc = SQLITE_MISUSE;
    switch (value->GetKind()) {
        case VariantKind::NULL_KIND: rc = sqlite3_bind_null(statement, index); break;
        case VariantKind::STRING: {
            std::string text;
            value->GetString(text);
            rc = sqlite3_bind_text(statement, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
            break;
        }
        case VariantKind::INTEGER: {
            int32_t number = 0;
            value->GetInteger(number);
            rc = sqlite3_bind_int64(statement, index, number);
            break;
        }
        case VariantKind::LONG: {
            int64_t number = 0;
            value->GetLong(number);
            rc = sqlite3_bind_int64(statement, index, number);
            break;
        }
        case VariantKind::BOOLEAN: {
            bool flag = false;
            value->GetBoolean(flag);
            rc = sqlite3_bind_int64(statement, index, flag ? 1 : 0);
            break;
        }
        case VariantKind::DOUBLE: {
            double number = 0;
            value->GetDouble(number);
            rc = sqlite3_bind_double(statement, index, number);
            break;
        }
        case VariantKind::VECTOR:
        case VariantKind::MAP: break;
    }
    return rc == SQLITE_OK;
}

std::string HitDatabaseBase::QuoteIdentifier(const std::string& name) {
    std::string quoted = "\"";
    for (char c : name) {
        if (c == '"') {
            quoted += '"';
        }
        quoted += c;
    }
    quoted += '"';
    return quoted;
}

HitDatabaseBase::OpenResult HitDatabaseBase::OpenFileLocked() {
    std::error_code error;
    std::filesystem::path folder = std::filesystem::path(file_path_).parent_path();
    if (!folder.empty()) {
        std::filesystem::create_directories(folder, error);
    }
    // SQLite removes the write-ahead log when the last connection closes cleanly, so one left
    // behind means a crash (or another connection still open). Only then is the whole file read
    // now; damage in a cleanly closed file shows at the first read that meets it, and is repaired
    // there (RepairDamageLocked), so an open does not cost more with a longer backlog.
    const bool check_pages = std::filesystem::exists(file_path_ + "-wal", error);
    sqlite3* database = nullptr;
    int rc = sqlite3_open_v2(file_path_.c_str(), &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    if (rc != SQLITE_OK) {
        failure_ = database != nullptr ? sqlite3_errmsg(database) : sqlite3_errstr(rc);
        sqlite3_close_v2(database);
        return OpenResult::FAILED;
    }
    sqlite3_busy_timeout(database, BUSY_TIMEOUT_MS);
    // The queue's work touches a few pages (the oldest row, the newest insert); a small page cache
    // keeps the full-file reads below (the check, an update of all rows) from growing the heap
    // with the backlog.
    sqlite3_exec(database, "PRAGMA cache_size=-256", nullptr, nullptr, nullptr);

    // The journal switch reads the file header, so a file that is not a database shows here.
    OpenResult result = OpenResult::OK;
    std::string reason;
    for (const char* pragma : {"PRAGMA journal_mode=WAL", check_pages ? "PRAGMA quick_check" : nullptr}) {
        if (pragma == nullptr) {
            break;
        }
        sqlite3_stmt* statement = nullptr;
        rc = sqlite3_prepare_v2(database, pragma, -1, &statement, nullptr);
        if (rc == SQLITE_OK) {
            rc = sqlite3_step(statement);
            if (rc == SQLITE_ROW) {
                const unsigned char* text = sqlite3_column_text(statement, 0);
                std::string answer = text != nullptr ? reinterpret_cast<const char*>(text) : "";
                if (std::string(pragma) == "PRAGMA quick_check" && answer != "ok") {
                    result = OpenResult::NOT_A_DATABASE;
                    // The check's answer spans lines; a log line must not.
                    std::replace(answer.begin(), answer.end(), '\n', ' ');
                    reason = answer;
                }
                rc = SQLITE_OK;
            } else if (rc == SQLITE_DONE) {
                rc = SQLITE_OK;
            }
        }
        if (rc != SQLITE_OK && result == OpenResult::OK) {
            result = SqliteTableRepair::IsCorruption(rc) ? OpenResult::NOT_A_DATABASE : OpenResult::FAILED;
            reason = sqlite3_errmsg(database);
        }
        sqlite3_finalize(statement);
        if (result != OpenResult::OK) {
            break;
        }
    }
    if (result == OpenResult::OK &&
        sqlite3_exec(database, "PRAGMA synchronous=FULL", nullptr, nullptr, nullptr) != SQLITE_OK) {
        result = OpenResult::FAILED;
        reason = sqlite3_errmsg(database);
    }
    if (result != OpenResult::OK) {
        (result == OpenResult::FAILED ? failure_ : corrupt_reason_) = reason;
        sqlite3_close_v2(database);
        return result;
    }
    database_ = database;
    return OpenResult::OK;
}

bool HitDatabaseBase::OpenMemoryLocked() {
    sqlite3* database = nullptr;
    if (sqlite3_open_v2(":memory:", &database, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) != SQLITE_OK) {
        failure_ = database != nullptr ? sqlite3_errmsg(database) : "cannot open a database in memory";
        sqlite3_close_v2(database);
        return false;
    }
    database_ = database;
    in_memory_ = true;
    return true;
}

void HitDatabaseBase::CloseLocked() {
    for (auto& entry : statements_) {
        sqlite3_finalize(entry.second);
    }
    statements_.clear();
    if (database_ != nullptr) {
        sqlite3_close_v2(database_);
        database_ = nullptr;
    }
}

bool HitDatabaseBase::ReplaceDamagedFileLocked(const SqliteTableSchema& schema, const std::string& reason) {
    corrupt_reason_ = reason;
    MoveAsideLocked();
    return !corrupt_aside_.empty() && OpenFileLocked() == OpenResult::OK && EnsureTableLocked(schema);
}

void HitDatabaseBase::MoveAsideLocked() {
    CloseLocked();
    std::string error;
    corrupt_aside_ = SqliteTableRepair::MoveAside(file_path_, "corrupt", error);
    if (corrupt_aside_.empty()) {
        failure_ = "it is not a usable database (" + corrupt_reason_ + ") and cannot be moved aside: " + error;
    }
}

}  // namespace VelmoraMobile
