#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "runtime/values/Object.h"
#include "runtime/values/Variant.h"

namespace VelmoraMobile {

/// A description of a select on a hit table. A plain record: fill the fields, then hand it to
/// HitQueueBase::QueryHit. Only the first row of the result is read.
class Query : public Object {
public:
    /// Table to read; empty: the queue's own table.
    std::string table;
    /// Columns in the order the schema reads them; empty: the schema's columns.
    std::vector<std::string> columns;
    /// SQL condition with "?" placeholders, e.g. "URL = ?"; empty: every row.
    std::string where;
    /// Values for the placeholders of `where`, in order; an empty pointer binds NULL.
    std::vector<std::shared_ptr<Variant>> where_args;
    /// SQL ordering, e.g. "TIMESTAMP DESC"; empty: oldest row first.
    std::string order_by;
    /// Maximum number of rows; negative: no limit.
    int32_t limit{-1};
};

}  // namespace VelmoraMobile
