#pragma once

// Direct looks into the SQLite files and logs of the storage tests.

#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/LogCapture.h"

namespace VelmoraTest {

using Strings = std::vector<std::string>;
using SqlTextRows = std::vector<Strings>;
using Rows = SqlTextRows;

/// Runs `sql` on the file (made when missing); each column as text ("NULL" for null).
inline SqlTextRows SqlRows(const std::string& path, const std::string& sql) {
    SqlTextRows rows;
    sqlite3* database = nullptr;
    if (sqlite3_open(path.c_str(), &database) == SQLITE_OK && sqlite3_busy_timeout(database, 5000) == SQLITE_OK) {
        auto add_row = [](void* out, int columns, char** values, char**) {
            auto& row = static_cast<SqlTextRows*>(out)->emplace_back();
            for (int i = 0; i < columns; ++i) row.push_back(values[i] != nullptr ? values[i] : "NULL");
            return 0;
        };
        sqlite3_exec(database, sql.c_str(), add_row, &rows, nullptr);
    }
    sqlite3_close(database);
    return rows;
}

/// The files of `folder` that the file `base` was moved aside to under `label` ("corrupt", "mismatch").
inline std::vector<std::string> FilesAside(const std::string& folder, const std::string& base,
                                           const std::string& label) {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::string name = entry.path().filename().string();
        if (name.rfind(base + "." + label + "-", 0) == 0 && name.find("-wal") == std::string::npos &&
            name.find("-shm") == std::string::npos) {
            found.push_back(entry.path().string());
        }
    }
    return found;
}

/// Overwrites a leaf page of `table` in the middle of the file; false when the table has too few.
inline bool DamageMiddleLeaf(const std::string& path, const std::string& table) {
    SqlTextRows leaves =
        SqlRows(path, "SELECT pageno FROM dbstat WHERE name = '" + table + "' AND pagetype = 'leaf' ORDER BY path");
    if (leaves.size() < 5) return false;
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp((std::stol(leaves[leaves.size() / 2][0]) - 1) * 4096);
    file << std::string(4096, '\xff');
    return true;
}

/// The messages of the error lines captured.
inline std::vector<std::string> ErrorLines(const LogCapture& log) {
    std::vector<std::string> errors;
    for (const auto& line : log.Lines()) {
        if (line.mode == VelmoraMobile::LoggingMode::ERROR_LOG) errors.push_back(line.message);
    }
    return errors;
}

}  // namespace VelmoraTest
