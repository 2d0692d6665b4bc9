#include "runtime/hitqueue/HitQueueBase.h"

#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <exception>
#include <system_error>

#include "runtime/hitqueue/HitTableSchema.h"
#include "runtime/hitqueue/SqliteQueryResult.h"
#include "runtime/services/DatabaseServiceInterface.h"
#include "runtime/values/Log.h"
#include "runtime/values/SdkError.h"
#include "runtime/values/ThreadName.h"

namespace VelmoraMobile {

namespace {

constexpr int64_t DEFAULT_RETRY_WAIT_MS = 30000;

int64_t InitialRetryWaitMs() {
    const char* text = std::getenv("VELMORA_HIT_RETRY_MS");
    if (text == nullptr || *text == '\0') {
        return DEFAULT_RETRY_WAIT_MS;
    }
    char* end = nullptr;
    long long value = std::strtoll(text, &end, 10);
    return (end != nullptr && *end == '\0' && value >= 0) ? value : DEFAULT_RETRY_WAIT_MS;
}

std::atomic<int64_t>& RetryWaitMs() {
    static std::atomic<int64_t> wait_ms{InitialRetryWaitMs()};
    return wait_ms;
}

}  // namespace

HitQueueBase::HitQueueBase(const std::shared_ptr<PlatformServicesInterface>& platform_services,
                           const std::shared_ptr<DatabaseHitSchemaBase>& schema,
                           const std::shared_ptr<HitProcessorBase>& processor)
    : HitDatabaseBase(DatabasePathFor(platform_services, schema), TableNameOf(schema), KeyColumnOf(schema)),
      schema_(schema),
      processor_(processor),
      platform_services_(platform_services),
      system_info_service_(platform_services->GetSystemInfoService()) {
    if (!processor_) {
        VELMORA_THROW("hit_queue.invalid_argument", "A hit queue needs a processor.");
    }
    table_schema_ = HitTableSchema::FromSchema(*schema_);
    column_names_ = schema_->GetColumnNames();
    select_oldest_sql_ = SelectOldestSql({});
    // Virtual calls from here reach this class's versions, which is what construction needs. A file
    // that cannot be used costs this run's hits their persistence, never the queue itself.
    if (!(OpenOrCreateDatabase() && InitializeDatabase()) && !FallBackToMemory()) {
        VELMORA_THROW("hit_queue.database_unavailable", "Cannot open a hit database, not even in memory.");
    }
}

HitQueueBase::~HitQueueBase() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        disposed_ = true;
        online_ = false;
        condition_.notify_all();
    }
    if (worker_.joinable()) {
        if (worker_.get_id() == std::this_thread::get_id()) {
            // The worker let go of the last reference; it returns without touching this object.
            *destroyed_on_worker_ = true;
            worker_.detach();
        } else {
            worker_.join();
        }
    }
}

std::string HitQueueBase::DatabasePathFor(const std::shared_ptr<PlatformServicesInterface>& platform_services,
                                          const std::shared_ptr<DatabaseHitSchemaBase>& schema) {
    if (!platform_services) {
        Log::Error(LOG_TAG, "Cannot create a hit queue: platform services are missing");
        VELMORA_THROW("platform_services.missing_service", "Cannot function without platform services.");
    }
    if (!schema || schema->GetTableName().empty() || schema->GetDatabaseName().empty()) {
        VELMORA_THROW("hit_queue.invalid_argument", "A hit queue needs a schema with a table and a database name.");
    }
    std::shared_ptr<DatabaseServiceInterface> database_service = platform_services->GetDatabaseService();
    if (!database_service) {
        Log::Error(LOG_TAG, "Cannot create a hit queue: the database service is missing");
        VELMORA_THROW("platform_services.missing_service", "Cannot open a hit database without a database service.");
    }
    std::string path = database_service->GetDatabasePath(schema->GetDatabaseName());
    if (path.empty()) {
        VELMORA_THROW("hit_queue.database_unavailable",
                      "The database service gave no path for " + schema->GetDatabaseName());
    }
    return path;
}

std::string HitQueueBase::TableNameOf(const std::shared_ptr<DatabaseHitSchemaBase>& schema) {
    return schema ? schema->GetTableName() : std::string();
}

std::string HitQueueBase::KeyColumnOf(const std::shared_ptr<DatabaseHitSchemaBase>& schema) {
    if (!schema) {
        return std::string();
    }
    std::vector<std::string> names = schema->GetColumnNames();
    std::vector<std::vector<DatabaseInterface::ColumnConstraint>> constraints = schema->GetColumnConstraints();
    for (size_t i = 0; i < names.size() && i < constraints.size(); ++i) {
        const auto& list = constraints[i];
        if (std::find(list.begin(), list.end(), DatabaseInterface::ColumnConstraint::PRIMARY_KEY) != list.end()) {
            return names[i];
        }
    }
    return std::string();
}

bool HitQueueBase::InitializeDatabase() {
    std::lock_guard<std::recursive_mutex> lock(DatabaseMutex());
    return EnsureTableLocked(table_schema_);
}

bool HitQueueBase::Dispose(std::chrono::milliseconds timeout) {
    std::thread finished;
    {
        std::unique_lock<std::mutex> lock(mutex_);
        disposed_ = true;
        online_ = false;
        condition_.notify_all();
        if (!worker_started_) {
            return true;
        }
        if (worker_.joinable() && worker_.get_id() == std::this_thread::get_id()) {
            return false;
        }
        if (worker_running_ && timeout.count() > 0) {
            condition_.wait_for(lock, timeout, [this] { return !worker_running_; });
        }
        if (worker_running_) {
            return false;
        }
        finished = std::move(worker_);
    }
    // The worker has left its loop; this only collects the thread.
    if (finished.joinable()) {
        finished.join();
    }
    return true;
}

void HitQueueBase::BringOnline() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (disposed_) {
        Log::Debug(LOG_TAG, "Hit queue of table %s is disposed and stays off line", TableName());
        return;
    }
    online_ = true;
    ++work_version_;
    if (!worker_started_) {
        std::weak_ptr<Object> owner = weak_from_this();
        bool shared_owned = !owner.expired();
        try {
            worker_ = std::thread(&HitQueueBase::WorkerMain, this, owner, shared_owned, destroyed_on_worker_);
            worker_started_ = true;
            worker_running_ = true;
        } catch (const std::system_error& error) {
            Log::Error(LOG_TAG, "Cannot start the worker of table %s: %s", TableName(), std::string(error.what()));
        }
    }
    condition_.notify_all();
}

void HitQueueBase::Suspend() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (disposed_) {
        return;
    }
    online_ = false;
    condition_.notify_all();
}

bool HitQueueBase::UpdateAllHits(const std::map<std::string, std::shared_ptr<Variant>>& values) {
    if (values.empty()) {
        return true;
    }
    return UpdateRows(values, nullptr);
}

std::string HitQueueBase::SelectOldestSql(const std::vector<std::string>& earlier_columns) const {
    std::string sql = "SELECT ";
    int parameter = 1;
    for (const auto& name : column_names_) {
        const std::string column = QuoteIdentifier(name);
        if (std::find(earlier_columns.begin(), earlier_columns.end(), name) != earlier_columns.end()) {
            sql += "CASE WHEN rowid <= ?1 THEN ?" + std::to_string(++parameter) + " ELSE " + column + " END, ";
        } else {
            sql += column + ", ";
        }
    }
    return sql + "rowid, " + KeyExpression() + " FROM " + QuoteIdentifier(TableName()) + " ORDER BY rowid";
}

bool HitQueueBase::UpdateEarlierHits(const std::map<std::string, std::shared_ptr<Variant>>& values) {
    auto known = KnownColumns(values);
    if (known.empty()) {
        return false;
    }
    std::vector<std::string> columns;
    std::vector<std::shared_ptr<Variant>> bound;
    // In the order the SELECT names the columns, which is the schema's.
    for (const auto& name : column_names_) {
        for (const auto& entry : known) {
            if (entry.first == name) {
                columns.push_back(name);
                bound.push_back(entry.second);
            }
        }
    }
    std::lock_guard<std::recursive_mutex> lock(DatabaseMutex());
    // The rowid's own index finds the newest row at once, whatever the backlog.
    sqlite3_stmt* newest = CachedStatementLocked("SELECT max(rowid) FROM " + QuoteIdentifier(TableName()));
    if (newest == nullptr) {
        return false;
    }
    const bool found = sqlite3_step(newest) == SQLITE_ROW;
    if (!found) {
        LogErrorLocked("find the newest row");
    }
    earlier_rowid_ = found ? sqlite3_column_int64(newest, 0) : 0;
    sqlite3_reset(newest);
    earlier_values_ = std::move(bound);
    select_oldest_sql_ = SelectOldestSql(columns);
    return found;
}

std::string HitQueueBase::SelectSql(const Query& query) const {
    std::string sql = "SELECT ";
    const std::vector<std::string>& columns = query.columns.empty() ? column_names_ : query.columns;
    for (size_t i = 0; i < columns.size(); ++i) {
        sql += (i > 0 ? ", " : "") + QuoteIdentifier(columns[i]);
    }
    sql += " FROM " + QuoteIdentifier(query.table.empty() ? TableName() : query.table);
    if (!query.where.empty()) {
        sql += " WHERE " + query.where;
    }
    sql += " ORDER BY " + (query.order_by.empty() ? std::string("rowid") : query.order_by);
    if (query.limit >= 0) {
        sql += " LIMIT " + std::to_string(query.limit);
    }
    return sql;
}

std::shared_ptr<DatabaseHitBase> HitQueueBase::QueryHit(const std::shared_ptr<Query>& query) {
    if (!query) {
        Log::Debug(LOG_TAG, "QueryHit without a query");
        return nullptr;
    }
    const std::string sql = SelectSql(*query);

    std::lock_guard<std::recursive_mutex> lock(DatabaseMutex());
    sqlite3_stmt* statement = PrepareLocked(sql);
    if (statement == nullptr) {
        return nullptr;
    }
    for (size_t i = 0; i < query->where_args.size(); ++i) {
        if (!BindVariant(statement, static_cast<int>(i + 1), query->where_args[i])) {
            Log::Error(LOG_TAG, "Cannot bind argument %d of query \"%s\"", static_cast<int>(i + 1), sql);
            sqlite3_finalize(statement);
            return nullptr;
        }
    }
    int rc = sqlite3_step(statement);
    if (rc != SQLITE_ROW) {
        if (rc != SQLITE_DONE) {
            LogErrorLocked("run a query");
        }
        sqlite3_finalize(statement);
        return nullptr;
    }
    auto result = std::make_shared<SqliteQueryResult>(statement, true);
    std::shared_ptr<DatabaseHitBase> hit = GenerateHitGuarded(result);
    result->Finalize();
    return hit;
}

namespace {

/// One row of a cursor that the caller steps: the schema's Finalize must not end the cursor.
class CursorRow : public Object, public QueryResultInterface {
public:
    explicit CursorRow(QueryResultInterface& cursor) : cursor_(cursor) {}
    int32_t GetInt(int32_t index) override { return cursor_.GetInt(index); }
    int64_t GetLong(int32_t index) override { return cursor_.GetLong(index); }
    std::string GetString(int32_t index) override { return cursor_.GetString(index); }
    void Finalize() override {}

private:
    QueryResultInterface& cursor_;
};

}  // namespace

std::vector<std::shared_ptr<DatabaseHitBase>> HitQueueBase::QueryHits(const std::shared_ptr<Query>& query) {
    std::vector<std::shared_ptr<DatabaseHitBase>> hits;
    if (!query) {
        Log::Debug(LOG_TAG, "QueryHits without a query");
        return hits;
    }
    const std::string sql = SelectSql(*query);
    std::lock_guard<std::recursive_mutex> lock(DatabaseMutex());
    sqlite3_stmt* statement = PrepareLocked(sql);
    if (statement == nullptr) {
        return hits;
    }
    SqliteQueryResult cursor(statement, true);
    for (size_t i = 0; i < query->where_args.size(); ++i) {
        if (!BindVariant(statement, static_cast<int>(i + 1), query->where_args[i])) {
            Log::Error(LOG_TAG, "Cannot bind argument %d of query \"%s\"", static_cast<int>(i + 1), sql);
            cursor.Finalize();
            return hits;
        }
    }
    auto row = std::make_shared<CursorRow>(cursor);
    int rc;
    while ((rc = sqlite3_step(statement)) == SQLITE_ROW) {
        if (std::shared_ptr<DatabaseHitBase> hit = GenerateHitGuarded(row)) {
            hits.push_back(hit);
        }
    }
    if (rc != SQLITE_DONE) {
        LogErrorLocked("list rows");
        hits.clear();
    }
    cursor.Finalize();
    return hits;
}

bool HitQueueBase::Queue(const std::shared_ptr<DatabaseHitBase>& hit) {
    if (!hit) {
        Log::Debug(LOG_TAG, "An empty hit was not queued in table %s", TableName());
        return false;
    }
    std::map<std::string, std::shared_ptr<Variant>> values = DataMapGuarded(hit);
    if (values.empty()) {
        Log::Warning(LOG_TAG, "The schema gave no column values for a hit; nothing was queued in table %s",
                     TableName());
        return false;
    }
    if (!InsertRow(values)) {
        return false;
    }
    NoteNewWork();
    return true;
}

std::shared_ptr<DatabaseHitBase> HitQueueBase::SelectOldestHit() {
    bool failed = false;
    RowMark mark;
    return SelectOldest(failed, mark);
}

bool HitQueueBase::DeleteAllHits() {
    std::lock_guard<std::recursive_mutex> lock(DatabaseMutex());
    ++row_generation_;
    return HitDatabaseBase::DeleteAllHits();
}

bool HitQueueBase::DeleteTable() {
    std::lock_guard<std::recursive_mutex> lock(DatabaseMutex());
    ++row_generation_;
    return HitDatabaseBase::DeleteTable();
}

bool HitQueueBase::DeleteHitWithIdentifier(const std::string& identifier) {
    std::lock_guard<std::recursive_mutex> lock(DatabaseMutex());
    ++row_generation_;
    return HitDatabaseBase::DeleteHitWithIdentifier(identifier);
}

void HitQueueBase::Reset() {
    {
        std::lock_guard<std::recursive_mutex> lock(DatabaseMutex());
        ++row_generation_;
        // A fresh file numbers its rows from 1 again.
        earlier_values_.clear();
        select_oldest_sql_ = SelectOldestSql({});
    }
    HitDatabaseBase::Reset();
}

bool HitQueueBase::UpdateHit(const std::shared_ptr<DatabaseHitBase>& hit) {
    if (!hit || hit->identifier.empty()) {
        Log::Debug(LOG_TAG, "Cannot update a hit without identifier in table %s", TableName());
        return false;
    }
    std::map<std::string, std::shared_ptr<Variant>> values = DataMapGuarded(hit);
    if (values.empty()) {
        Log::Warning(LOG_TAG, "The schema gave no column values for hit %s of table %s", hit->identifier, TableName());
        return false;
    }
    return UpdateRows(values, &hit->identifier);
}

void HitQueueBase::SetRetryWait(std::chrono::milliseconds wait) {
    RetryWaitMs().store(std::max<int64_t>(0, wait.count()), std::memory_order_relaxed);
}

std::chrono::milliseconds HitQueueBase::GetRetryWait() {
    return std::chrono::milliseconds(RetryWaitMs().load(std::memory_order_relaxed));
}

std::shared_ptr<DatabaseHitBase> HitQueueBase::SelectOldest(bool& failed, RowMark& mark) {
    const int rowid_column = static_cast<int>(column_names_.size());
    std::lock_guard<std::recursive_mutex> lock(DatabaseMutex());
    bool repaired = false;
    for (;;) {
        sqlite3_stmt* statement = CachedStatementLocked(select_oldest_sql_);
        if (statement == nullptr) {
            failed = true;
            return nullptr;
        }
        if (!earlier_values_.empty()) {
            // Bound anew each time: a repair prepares the statement again.
            sqlite3_bind_int64(statement, 1, earlier_rowid_);
            for (size_t i = 0; i < earlier_values_.size(); ++i) {
                BindVariant(statement, static_cast<int>(i + 2), earlier_values_[i]);
            }
        }
        int rc;
        while ((rc = sqlite3_step(statement)) == SQLITE_ROW &&
               unreadable_rows_.count(sqlite3_column_int64(statement, rowid_column)) > 0) {
        }
        if (rc != SQLITE_ROW) {
            if (rc != SQLITE_DONE) {
                const int code = sqlite3_extended_errcode(HandleLocked());
                LogErrorLocked("select the oldest row");
                sqlite3_reset(statement);
                // Damage met on the way is repaired here, once per read: the rows around it go on.
                if (!repaired && RepairDamageLocked(table_schema_, code)) {
                    repaired = true;
                    ++row_generation_;
                    continue;
                }
                failed = true;
                return nullptr;
            }
            sqlite3_reset(statement);
            return nullptr;
        }
        int64_t rowid = sqlite3_column_int64(statement, rowid_column);
        const unsigned char* key_text = sqlite3_column_text(statement, rowid_column + 1);
        std::string key = key_text != nullptr ? reinterpret_cast<const char*>(key_text) : "";

        auto result = std::make_shared<SqliteQueryResult>(statement, false);
        std::shared_ptr<DatabaseHitBase> hit = GenerateHitGuarded(result);
        result->Finalize();
        if (hit) {
            if (hit->identifier.empty()) {
                hit->identifier = key;
            }
            mark.rowid = rowid;
            mark.generation = row_generation_;
            mark.key = std::move(key);
            return hit;
        }
        unreadable_rows_.insert(rowid);
        Log::Error(LOG_TAG, "Row %s of table %s cannot be read; it is passed over and stays in the file", key,
                   TableName());
    }
}

std::shared_ptr<DatabaseHitBase> HitQueueBase::GenerateHitGuarded(const std::shared_ptr<QueryResultInterface>& result) {
    try {
        return schema_->GenerateHitBase(result);
    } catch (const SdkError& error) {
        Log::Error(LOG_TAG, "The schema of table %s failed to read a row: %s", TableName(), error);
    } catch (const std::exception& error) {
        Log::Error(LOG_TAG, "The schema of table %s failed to read a row: %s", TableName(), std::string(error.what()));
    } catch (...) {
        Log::Error(LOG_TAG, "The schema of table %s failed to read a row", TableName());
    }
    return nullptr;
}

std::map<std::string, std::shared_ptr<Variant>> HitQueueBase::DataMapGuarded(
    const std::shared_ptr<DatabaseHitBase>& hit) {
    try {
        return schema_->GenerateDataMapBase(hit);
    } catch (const SdkError& error) {
        Log::Error(LOG_TAG, "The schema of table %s failed to map a hit: %s", TableName(), error);
    } catch (const std::exception& error) {
        Log::Error(LOG_TAG, "The schema of table %s failed to map a hit: %s", TableName(), std::string(error.what()));
    } catch (...) {
        Log::Error(LOG_TAG, "The schema of table %s failed to map a hit", TableName());
    }
    return {};
}

std::vector<std::pair<std::string, std::shared_ptr<Variant>>> HitQueueBase::KnownColumns(
    const std::map<std::string, std::shared_ptr<Variant>>& values) const {
    std::vector<std::pair<std::string, std::shared_ptr<Variant>>> known;
    known.reserve(values.size());
    for (const auto& entry : values) {
        if (std::find(column_names_.begin(), column_names_.end(), entry.first) == column_names_.end()) {
            Log::Warning(LOG_TAG, "Table %s has no column %s; the value is left out", TableName(), entry.first);
            continue;
        }
        known.push_back(entry);
    }
    return known;
}

bool HitQueueBase::InsertRow(const std::map<std::string, std::shared_ptr<Variant>>& values) {
    auto columns = KnownColumns(values);
    if (columns.empty()) {
        return false;
    }
    std::string names;
    std::string placeholders;
    for (size_t i = 0; i < columns.size(); ++i) {
        names += (i > 0 ? ", " : "") + QuoteIdentifier(columns[i].first);
        placeholders += i > 0 ? ", ?" : "?";
    }
    std::string sql = "INSERT INTO " + QuoteIdentifier(TableName()) + " (" + names + ") VALUES (" + placeholders + ")";

    std::lock_guard<std::recursive_mutex> lock(DatabaseMutex());
    return WriteLocked(sql, columns, nullptr, "insert a row", "the hit was not queued");
}

bool HitQueueBase::WriteLocked(const std::string& sql,
                               const std::vector<std::pair<std::string, std::shared_ptr<Variant>>>& columns,
                               const std::string* identifier, const char* what, const char* consequence) {
    for (int attempt = 0;; ++attempt) {
        // Fetched anew on each attempt: a repair closes the connection and its statements.
        sqlite3_stmt* statement = CachedStatementLocked(sql);
        int result_code = HandleLocked() != nullptr ? sqlite3_extended_errcode(HandleLocked()) : SQLITE_MISUSE;
        if (statement != nullptr) {
            if (!BindColumnsLocked(statement, columns, consequence)) {
                return false;  // the value's fault, not the table's
            }
            if (identifier != nullptr) {
                sqlite3_bind_text(statement, static_cast<int>(columns.size() + 1), identifier->data(),
                                  static_cast<int>(identifier->size()), SQLITE_TRANSIENT);
            }
            if (StepToDoneLocked(statement, what, &result_code)) {
                NoteWriteSucceededLocked();
                return true;
            }
        }
        // Never silent: the failure is logged above; a table of the wrong shape or a failing file is
        // repaired here so that the next hits are stored again.
        if (attempt > 0) {
            return false;
        }
        // A rebuilt table renumbers its rows, so a row read before must not be deleted by its old rowid.
        ++row_generation_;
        if (!RecoverFromWriteFailureLocked(table_schema_, result_code)) {
            return false;
        }
    }
}

bool HitQueueBase::BindColumnsLocked(sqlite3_stmt* statement,
                                     const std::vector<std::pair<std::string, std::shared_ptr<Variant>>>& columns,
                                     const char* consequence) {
    for (size_t i = 0; i < columns.size(); ++i) {
        if (!BindVariant(statement, static_cast<int>(i + 1), columns[i].second)) {
            Log::Warning(LOG_TAG, "Column %s of table %s cannot store the value given; %s", columns[i].first,
                         TableName(), consequence);
            sqlite3_reset(statement);
            sqlite3_clear_bindings(statement);
            return false;
        }
    }
    return true;
}

bool HitQueueBase::UpdateRows(const std::map<std::string, std::shared_ptr<Variant>>& values,
                              const std::string* identifier) {
    auto columns = KnownColumns(values);
    if (columns.empty()) {
        return false;
    }
    // Parameters are numbered, so that the condition below can name them again.
    std::string sql = "UPDATE " + QuoteIdentifier(TableName()) + " SET ";
    std::string differs;
    for (size_t i = 0; i < columns.size(); ++i) {
        const std::string column = QuoteIdentifier(columns[i].first);
        const std::string parameter = "?" + std::to_string(i + 1);
        sql += (i > 0 ? ", " : "") + column + " = " + parameter;
        differs += (i > 0 ? " OR " : "") + column + " IS NOT " + parameter;
    }
    if (identifier != nullptr) {
        sql += " WHERE " + KeyExpression() + " = ?" + std::to_string(columns.size() + 1);
    } else {
        // Rows that hold the values already are left alone: an update of all rows that changes
        // none (the reset at every start, once done) writes nothing and waits for no disk sync.
        sql += " WHERE " + differs;
    }

    std::lock_guard<std::recursive_mutex> lock(DatabaseMutex());
    bool done = WriteLocked(sql, columns, identifier, identifier != nullptr ? "update a row" : "update all rows",
                            "nothing was updated");
    if (done) {
        // Changed rows may have become readable.
        unreadable_rows_.clear();
    }
    return done;
}

void HitQueueBase::NoteNewWork() {
    std::lock_guard<std::mutex> lock(mutex_);
    ++work_version_;
    condition_.notify_all();
}

void HitQueueBase::WorkerMain(std::weak_ptr<Object> owner, bool shared_owned, std::shared_ptr<bool> destroyed) {
    NameThisThread("hits");
    bool idle = false;
    uint64_t idle_version = 0;
    for (;;) {
        uint64_t version = 0;
        if (!WaitForWork(idle, idle_version, version)) {
            break;
        }
        std::shared_ptr<Object> keep_alive;
        if (shared_owned) {
            keep_alive = owner.lock();
            if (!keep_alive) {
                break;  // the destructor runs on another thread and waits for this one
            }
        }
        StepOutcome outcome = StepOutcome::RETRY_LATER;
        try {
            outcome = Step();
        } catch (...) {
            // Out of memory and the like: the row is still there, so try again later.
            Log::Error(LOG_TAG, "The worker of table %s failed; it will try again", TableName());
        }
        keep_alive.reset();
        if (*destroyed) {
            return;
        }
        idle = outcome == StepOutcome::TABLE_EMPTY;
        idle_version = version;
        if (outcome == StepOutcome::RETRY_LATER) {
            WaitBeforeRetry();
        }
    }
    std::lock_guard<std::mutex> lock(mutex_);
    worker_running_ = false;
    condition_.notify_all();
}

bool HitQueueBase::WaitForWork(bool idle, uint64_t idle_version, uint64_t& version) {
    std::unique_lock<std::mutex> lock(mutex_);
    condition_.wait(lock, [&] { return disposed_ || (online_ && (!idle || work_version_ != idle_version)); });
    if (disposed_) {
        return false;
    }
    version = work_version_;
    return true;
}

HitQueueBase::StepOutcome HitQueueBase::Step() {
    bool failed = false;
    RowMark mark;
    std::shared_ptr<DatabaseHitBase> hit = SelectOldest(failed, mark);
    if (!hit) {
        return failed ? StepOutcome::RETRY_LATER : StepOutcome::TABLE_EMPTY;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (disposed_ || !online_) {
            return StepOutcome::NOT_ONLINE;
        }
    }
    HitProcessResult result = HitProcessResult::RETRY;
    try {
        result = processor_->ProcessBase(hit);
    } catch (const SdkError& error) {
        Log::Error(LOG_TAG, "Processing hit %s of table %s failed: %s", hit->identifier, TableName(), error);
    } catch (const std::exception& error) {
        Log::Error(LOG_TAG, "Processing hit %s of table %s failed: %s", hit->identifier, TableName(),
                   std::string(error.what()));
    } catch (...) {
        Log::Error(LOG_TAG, "Processing hit %s of table %s failed", hit->identifier, TableName());
    }
    if (result == HitProcessResult::DONE) {
        return DeleteReadRow(mark) ? StepOutcome::PROCESSED : StepOutcome::RETRY_LATER;
    }
    if (result != HitProcessResult::RETRY) {
        Log::Warning(LOG_TAG, "Unknown processing result %d for hit %s of table %s; it will be retried",
                     static_cast<int>(result), hit->identifier, TableName());
    }
    Log::Debug(LOG_TAG, "Hit %s of table %s will be retried in %s", hit->identifier, TableName(), GetRetryWait());
    return StepOutcome::RETRY_LATER;
}

bool HitQueueBase::DeleteReadRow(const RowMark& mark) {
    std::lock_guard<std::recursive_mutex> lock(DatabaseMutex());
    // Any removal since the read may have freed the rowid for a newer row, which must stay. The
    // row that was read is gone by then anyway.
    if (mark.generation != row_generation_) {
        Log::Debug(LOG_TAG, "The row just processed in table %s was removed meanwhile", TableName());
        return true;
    }
    // A removal that a crash undoes only sends the hit once more, as a crash between the answer
    // and the removal would: delivery is at least once either way. So this commit does not wait
    // for the disk; the next synced commit, the next Queue's, carries it along.
    sqlite3* database = HandleLocked();
    if (database != nullptr) {
        sqlite3_exec(database, "PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr);
    }
    bool deleted = DeleteRowLocked(mark.rowid);
    const int code = deleted || database == nullptr ? SQLITE_OK : sqlite3_extended_errcode(database);
    if (database != nullptr && database == HandleLocked()) {
        sqlite3_exec(database, "PRAGMA synchronous=FULL", nullptr, nullptr, nullptr);
    }
    if (!deleted && RepairDamageLocked(table_schema_, code)) {
        // The rows carried over keep their keys; the one just processed must not come again.
        ++row_generation_;
        return HitDatabaseBase::DeleteHitWithIdentifier(mark.key);
    }
    return deleted;
}

void HitQueueBase::WaitBeforeRetry() {
    // The wait is the server's breathing space: a Suspend and a BringOnline in between do not
    // shorten it. Only the end of the queue does.
    std::unique_lock<std::mutex> lock(mutex_);
    condition_.wait_for(lock, GetRetryWait(), [&] { return disposed_; });
}

}  // namespace VelmoraMobile
