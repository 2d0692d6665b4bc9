#pragma once

#include <cstdint>
#include <string>

#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// A cursor that stands on one row. Not thread-safe: it is used by the thread it was handed to,
/// while that thread runs the call that received it.
class QueryResultInterface : public virtual ObjectInterface {
public:
    /// Each getter reads the column at `index` (0-based) and throws SdkError when the read fails:
    /// no such column, a NULL, a value of another type, a number out of range, or a finalized cursor.
    virtual int32_t GetInt(int32_t index) = 0;
    virtual int64_t GetLong(int32_t index) = 0;
    virtual std::string GetString(int32_t index) = 0;
    /// Ends the cursor; nothing may be read after it. Calling it again does nothing.
    virtual void Finalize() = 0;
};

}  // namespace VelmoraMobile
