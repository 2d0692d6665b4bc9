#pragma once

#include <string>
#include <vector>

namespace VelmoraMobile {

/// What a table must look like and how the rows of an older or damaged one are carried into it.
struct SqliteTableSchema {
    /// The table's name, unquoted.
    std::string name;
    /// The statement that makes it, as SQLite keeps it in sqlite_master: "CREATE TABLE <name> (...)".
    std::string create_sql;
    /// Reads the rows that can be carried, on a connection to the old file: "SELECT ... FROM <name>
    /// WHERE ...", without ORDER BY.
    std::string select_sql;
    /// Age order of the source rows, e.g. {"rowid"}; empty when there is none.
    std::vector<std::string> order_by;
    /// Stores one selected row in the new table: "INSERT OR IGNORE INTO main.<name> (...) VALUES (?...)",
    /// one parameter per selected column.
    std::string insert_sql;
};

}  // namespace VelmoraMobile
