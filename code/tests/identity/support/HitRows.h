#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>
#include <vector>

// SQLite files read and written straight, as a device keeps them. Header only.
namespace VelmoraTest {

using HitRow = std::vector<std::string>;

/// Runs `sql` (one statement or several) on the file `path`, created if missing; returns the rows
/// it yields, each value as text ("" for NULL).
inline std::vector<HitRow> Sql(const std::string& path, const std::string& sql,
                               int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) {
    std::vector<HitRow> rows;
    auto collect = [](void* out, int count, char** values, char**) {
        auto& row = static_cast<std::vector<HitRow>*>(out)->emplace_back();
        for (int column = 0; column < count; ++column) row.push_back(values[column] ? values[column] : "");
        return 0;
    };
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, flags, nullptr) != SQLITE_OK ||
        sqlite3_busy_timeout(db, 5000) != SQLITE_OK ||
        sqlite3_exec(db, sql.c_str(), collect, &rows, nullptr) != SQLITE_OK) {
        ADD_FAILURE() << path << ": " << sql << ": " << sqlite3_errmsg(db);
    }
    sqlite3_close(db);
    return rows;
}

/// Rows of IDENTITY_REQUESTS in `path`, oldest first: URL, PAIR_ID, EVENT_NUMBER, SSL, TIMESTAMP.
inline std::vector<HitRow> ReadHitRows(const std::string& path) {
    return Sql(path, "SELECT URL, PAIR_ID, EVENT_NUMBER, SSL, TIMESTAMP FROM IDENTITY_REQUESTS ORDER BY ID",
               SQLITE_OPEN_READONLY);
}

}  // namespace VelmoraTest
