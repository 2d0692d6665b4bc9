#pragma once

#include <cstdint>
#include <string>

#include "runtime/hitqueue/QueryResultInterface.h"
#include "runtime/values/Object.h"

struct sqlite3_stmt;

namespace VelmoraMobile {

/// A QueryResultInterface over a SQLite statement that has just stepped onto a row.
/// Used only while the caller holds the lock of the statement's connection. Numbers are read
/// strictly: an integer column, a whole real, or text that is exactly a decimal integer.
class SqliteQueryResult : public Object, public QueryResultInterface {
public:
    /// `owns_statement`: Finalize finalizes the statement; otherwise (a cached statement) it
    /// resets it and clears its bindings, so the statement can be used again.
    SqliteQueryResult(sqlite3_stmt* statement, bool owns_statement);
    ~SqliteQueryResult() override;
    SqliteQueryResult(const SqliteQueryResult&) = delete;
    SqliteQueryResult& operator=(const SqliteQueryResult&) = delete;

    int32_t GetInt(int32_t index) override;
    int64_t GetLong(int32_t index) override;
    std::string GetString(int32_t index) override;
    void Finalize() override;

private:
    /// Throws unless `index` names a non-NULL column of a live cursor.
    void CheckReadable(int32_t index) const;

    sqlite3_stmt* statement_;
    bool owns_statement_;
};

}  // namespace VelmoraMobile
