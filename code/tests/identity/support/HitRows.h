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
    auto collect = [](void* out, int count, char** values, char**) {
        auto& row = static_cast<std::vector<HitRow>*>(out)->emplace_back();
        for (int column = 0; column < count; ++column) row.push_back(values[column] ? values[column] : "");
        return 0;
    };
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK ||
        sqlite3_busy_timeout(db, 5000) != SQLITE_OK ||
        sqlite3_exec(db, "SELECT URL, PAIR_ID, EVENT_NUMBER, SSL, TIMESTAMP FROM IDENTITY_REQUESTS ORDER BY ID",
                     collect, &rows, nullptr) != SQLITE_OK) {
        ADD_FAILURE() << "cannot read the hit table of " << path;
    }
    sqlite3_close(db);
    return rows;
}

}  // namespace VelmoraTest
