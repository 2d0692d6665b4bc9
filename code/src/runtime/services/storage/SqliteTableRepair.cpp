#include "runtime/services/storage/SqliteTableRepair.h"

#include <sqlite3.h>

#include <chrono>
#include <filesystem>
#include <system_error>

namespace VelmoraMobile {

namespace {

constexpr int BUSY_TIMEOUT_MS = 5000;

bool Run(sqlite3* db, const char* sql) {
    return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

/// Copies the rows of `select` into `insert` until the select ends or fails; adds the rows stored to
/// `carried`. True when the select ran to its end.
bool CopyRows(sqlite3_stmt* select, sqlite3_stmt* insert, int64_t& carried, bool& insert_failed) {
    const int columns = sqlite3_column_count(select);
    int rc;
    while ((rc = sqlite3_step(select)) == SQLITE_ROW) {
        for (int i = 0; i < columns; ++i) {
            sqlite3_bind_value(insert, i + 1, sqlite3_column_value(select, i));
        }
        int stored = sqlite3_step(insert);
        sqlite3_reset(insert);
        sqlite3_clear_bindings(insert);
        if (stored != SQLITE_DONE) {
            insert_failed = true;
            return false;
        }
        carried += sqlite3_changes(sqlite3_db_handle(insert));
    }
    return rc == SQLITE_DONE;
}

sqlite3_stmt* Prepare(sqlite3* db, const std::string& sql) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), static_cast<int>(sql.size()), &statement, nullptr) != SQLITE_OK) {
        sqlite3_finalize(statement);
        return nullptr;
    }
    return statement;
}

/// The select in age order (`direction` " ASC" or " DESC"), or without order when the source has
/// no such column (a table without rowid).
sqlite3_stmt* PrepareSelect(sqlite3* db, const SqliteTableSchema& schema, const char* direction) {
    if (!schema.order_by.empty()) {
        std::string order;
        for (const std::string& term : schema.order_by) {
            order += (order.empty() ? " ORDER BY " : ", ") + term + direction;
        }
        if (sqlite3_stmt* ordered = Prepare(db, schema.select_sql + order)) {
            return ordered;
        }
    }
    return std::string(direction) == " ASC" ? Prepare(db, schema.select_sql) : nullptr;
}

}  // namespace

std::string SqliteTableRepair::MoveAside(const std::string& path, const std::string& label, std::string& error) {
    long long seconds =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
    std::string stem = path + "." + label + "-" + std::to_string(seconds);
    std::string aside = stem;
    std::error_code code;
    for (int n = 1; std::filesystem::exists(aside, code) || std::filesystem::exists(aside + "-wal", code); ++n) {
        aside = stem + "-" + std::to_string(n);
    }
    std::filesystem::rename(path, aside, code);
    if (code) {
        error = code.message();
        return "";
    }
    // A journal left beside the file belongs to it, never to a fresh one in its place.
    std::error_code ignored;
    for (const char* suffix : {"-wal", "-journal"}) {
        if (std::filesystem::exists(path + suffix, ignored)) {
            std::filesystem::rename(path + suffix, aside + suffix, ignored);
        }
    }
    std::filesystem::remove(path + "-shm", ignored);
    return aside;
}

SqliteTableRepair::Carried SqliteTableRepair::CarryRows(sqlite3* db, const std::string& source_path,
                                                        const SqliteTableSchema& schema) {
    Carried carried;
    // A connection of its own: damage met while reading the source must not undo the writes of db,
    // which SQLite would do to a transaction that read it through ATTACH.
    // A reader of a file in WAL mode makes an -shm and an empty -wal beside it; those it made are
    // taken away again, since they hold nothing.
    std::error_code ignored;
    const bool had_wal = std::filesystem::exists(source_path + "-wal", ignored);
    const bool had_shm = std::filesystem::exists(source_path + "-shm", ignored);
    auto close_source = [&](sqlite3* connection) {
        sqlite3_close_v2(connection);
        if (!had_wal && std::filesystem::exists(source_path + "-wal", ignored) &&
            std::filesystem::file_size(source_path + "-wal", ignored) == 0) {
            std::filesystem::remove(source_path + "-wal", ignored);
            if (!had_shm) {
                std::filesystem::remove(source_path + "-shm", ignored);
            }
        }
    };
    sqlite3* source = nullptr;
    if (sqlite3_open_v2(source_path.c_str(), &source, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        close_source(source);
        return carried;
    }
    sqlite3_busy_timeout(source, BUSY_TIMEOUT_MS);
    // Only a table has rows of its own; a view of that name is left alone.
    bool is_table = false;
    if (sqlite3_stmt* type =
            Prepare(source, "SELECT type = 'table' FROM sqlite_master WHERE name = ?1 COLLATE NOCASE")) {
        sqlite3_bind_text(type, 1, schema.name.data(), static_cast<int>(schema.name.size()), SQLITE_TRANSIENT);
        is_table = sqlite3_step(type) == SQLITE_ROW && sqlite3_column_int(type, 0) != 0;
        sqlite3_finalize(type);
    }
    if (!is_table) {
        // Zero rows when the file could be read and holds no such table; unknown when it could not.
        carried.of = sqlite3_errcode(source) == SQLITE_OK || sqlite3_errcode(source) == SQLITE_DONE ? 0 : -1;
        close_source(source);
        return carried;
    }
    std::string quoted = "\"";
    for (char c : schema.name) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    quoted += "\"";
    if (sqlite3_stmt* count = Prepare(source, "SELECT count(*) FROM " + quoted)) {
        if (sqlite3_step(count) == SQLITE_ROW) {
            carried.of = sqlite3_column_int64(count, 0);
        }
        sqlite3_finalize(count);
    }
    sqlite3_stmt* insert = Prepare(db, schema.insert_sql);
    if (insert != nullptr && Run(db, "BEGIN")) {
        bool insert_failed = false;
        sqlite3_stmt* forward = PrepareSelect(source, schema, " ASC");
        bool complete = forward != nullptr && CopyRows(forward, insert, carried.rows, insert_failed);
        sqlite3_finalize(forward);
        if (!complete && forward != nullptr && !insert_failed) {
            sqlite3_stmt* backward = PrepareSelect(source, schema, " DESC");
            if (backward != nullptr) {
                CopyRows(backward, insert, carried.rows, insert_failed);
            }
            sqlite3_finalize(backward);
        }
        if (insert_failed || !Run(db, "COMMIT")) {
            Run(db, "ROLLBACK");
            carried.rows = 0;
        }
    }
    sqlite3_finalize(insert);
    close_source(source);
    return carried;
}

bool SqliteTableRepair::IsCorruption(int result_code) {
    int primary = result_code & 0xff;
    return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

bool SqliteTableRepair::IsStorageFailure(int result_code) {
    int primary = result_code & 0xff;
    return primary == SQLITE_FULL || primary == SQLITE_IOERR || primary == SQLITE_READONLY ||
           primary == SQLITE_CANTOPEN || primary == SQLITE_PERM || primary == SQLITE_NOLFS;
}

}  // namespace VelmoraMobile
