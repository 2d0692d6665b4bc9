#pragma once

#include <cstdint>

#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// The vocabulary of a table description: column types and column constraints. Schemas list them
/// per column; the hit database turns them into SQL. The numbers are stable, since schemas are
/// compared and stored by them.
class DatabaseInterface : public virtual ObjectInterface {
public:
    enum class ColumnDataType : int32_t {
        INTEGER = 0,
        REAL = 1,
        TEXT = 2,
    };

    enum class ColumnConstraint : int32_t {
        NOT_NULL = 0,
        UNIQUE = 1,
        PRIMARY_KEY = 2,
        /// Value assigned by the database at the insert; only on an INTEGER PRIMARY_KEY column.
        AUTOINCREMENT = 3,
    };
};

}  // namespace VelmoraMobile
