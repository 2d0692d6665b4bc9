#pragma once

#include <cstdint>
#include <string>

#include "runtime/services/storage/SqliteTableSchema.h"

struct sqlite3;

namespace VelmoraMobile {

/// The file-level repairs shared by the hit database and the data store file: moving a file aside
/// and carrying what can still be read out of it. Nothing here deletes a file that holds data.
/// Stateless; the caller serialises use of a connection.
class SqliteTableRepair {
public:
    struct Carried {
        int64_t rows = 0;
        /// Rows the source table had; -1 when they could not be counted.
        int64_t of = -1;
    };

    /// Renames `path` (and its -wal and -journal) to "<path>.<label>-<unix seconds>" (with "-n"
    /// added when taken); an -shm beside it is dropped, it holds nothing. The new path, or "" with
    /// `error` set when the file could not be moved (it is then left where it was).
    static std::string MoveAside(const std::string& path, const std::string& label, std::string& error);

    /// Opens `source_path` for reading and copies every row `schema.select_sql` gives there into the
    /// table of `db`, in one transaction of `db`. When a damaged page stops the scan, the rows beyond
    /// it are read backwards from the end, so one bad page costs only its own rows. The source is
    /// never written.
    static Carried CarryRows(sqlite3* db, const std::string& source_path, const SqliteTableSchema& schema);

    /// Whether a result code means that the file is damaged or no database.
    static bool IsCorruption(int result_code);
    /// Whether a result code means that the file cannot be written or read at all (disk full,
    /// read-only, I/O error), as opposed to a bad statement or a lock.
    static bool IsStorageFailure(int result_code);
};

}  // namespace VelmoraMobile
