#pragma once

#include <string>

struct sqlite3;

namespace VelmoraMobile {

/// Compares a table of an open SQLite connection with the statement this program makes it with.
/// A file can be perfectly healthy and still hold a table of another shape (another program's, an
/// older one's, a damaged schema text, a view of that name): such a table loses or jams every row
/// written to it, and no integrity check sees it.
///
/// Stateless; callable from any thread that may use the connection.
class SqliteTableShape {
public:
    enum class Verdict { MATCHES, MISSING, DIFFERS, UNREADABLE };

    struct Finding {
        Verdict verdict = Verdict::MISSING;
        /// What differs, in words for a log line (DIFFERS), or SQLite's message (UNREADABLE).
        std::string detail;
    };

    /// Looks up `table` in the schema `schema` ("main") of `db`. `create_sql` is the statement as
    /// SQLite keeps it in sqlite_master ("CREATE TABLE <name> (...)", without IF NOT EXISTS). A table
    /// whose kept statement is exactly that text MATCHES: one look into the schema table, whatever
    /// the number of rows. Any other text DIFFERS, with the differences named (columns, their order,
    /// types and constraints, a view in place of the table, triggers, ...).
    static Finding Check(sqlite3* db, const std::string& schema, const std::string& table,
                         const std::string& create_sql);
};

}  // namespace VelmoraMobile
