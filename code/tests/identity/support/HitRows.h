#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>
#include <vector>

// The identity hit table read straight from its file, as a device keeps it. Header only.
namespace VelmoraTest {

using HitRow = std::vector<std::string>;

/// Rows of IDENTITY_REQUESTS in `path`, oldest first: URL, PAIR_ID, EVENT_NUMBER, SSL, TIMESTAMP.
inline std::vector<HitRow> ReadHitRows(const std::string& path) {
    std::vector<HitRow> rows;
    sqlite3* db = nullptr;
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK &&
        sqlite3_busy_timeout(db, 5000) == SQLITE_OK &&
        sqlite3_prepare_v2(db, "SELECT URL, PAIR_ID, EVENT_NUMBER, SSL, TIMESTAMP FROM IDENTITY_REQUESTS ORDER BY ID",
                           -1, &statement, nullptr) == SQLITE_OK) {
        while (sqlite3_step(statement) == SQLITE_ROW) {
            rows.emplace_back();
            for (int column = 0; column < 5; ++column) {
                const unsigned char* value = sqlite3_column_text(statement, column);
                rows.back().push_back(value ? reinterpret_cast<const char*>(value) : "");
            }
        }
    } else {
        ADD_FAILURE() << "cannot read the hit table of " << path;
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return rows;
}

}  // namespace VelmoraTest
