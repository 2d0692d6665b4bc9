#pragma once

#include <string>

#include "runtime/hitqueue/DatabaseHitSchemaBase.h"
#include "runtime/services/storage/SqliteTableSchema.h"

namespace VelmoraMobile {

/// The table a hit schema describes, as SQL: the statement that makes it, and how the rows of an
/// older table of that name are carried into a new one. A row is carried only when every column
/// holds a value the hit queue can read back under the schema's type (no NULL, no blob, no text
/// where a number belongs), so a carried row never turns into a row the queue must pass over.
class HitTableSchema {
public:
    /// Throws SdkError "hit_queue.invalid_argument" when the schema names no columns, lists types or
    /// constraints for other columns than it names, or uses a type or constraint without SQL.
    static SqliteTableSchema FromSchema(const DatabaseHitSchemaBase& schema);
};

}  // namespace VelmoraMobile
