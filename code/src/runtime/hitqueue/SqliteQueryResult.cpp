#include "runtime/hitqueue/SqliteQueryResult.h"

#include <sqlite3.h>

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "runtime/values/SdkError.h"
#include "runtime/values/StringUtils.h"

namespace VelmoraMobile {

SqliteQueryResult::SqliteQueryResult(sqlite3_stmt* statement, bool owns_statement)
    : statement_(statement), owns_statement_(owns_statement) {}

SqliteQueryResult::~SqliteQueryResult() {
    Finalize();
}

void SqliteQueryResult::CheckReadable(int32_t index) const {
    if (statement_ == nullptr) {
        VELMORA_THROW("database.query_result.finalized", "The query result has been finalized.");
    }
    if (index < 0 || index >= sqlite3_column_count(statement_)) {
        VELMORA_THROW("database.query_result.no_such_column",
                      StringUtils::FormatString("No column %d in the query result.", index));
    }
    if (sqlite3_column_type(statement_, index) == SQLITE_NULL) {
        VELMORA_THROW("database.query_result.null", StringUtils::FormatString("Column %d is NULL.", index));
    }
}

int64_t SqliteQueryResult::GetLong(int32_t index) {
    CheckReadable(index);
    switch (sqlite3_column_type(statement_, index)) {
        case SQLITE_INTEGER: return sqlite3_column_int64(statement_, index);
        case SQLITE_FLOAT: {
            double value = sqlite3_column_double(statement_, index);
            // 2^63 is exactly representable; anything at or above it does not fit.
            if (std::trunc(value) == value && value >= -9223372036854775808.0 && value < 9223372036854775808.0) {
                return static_cast<int64_t>(value);
            }
            break;
        }
        case SQLITE_TEXT: {
            const char* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, index));
            // strtoll would skip leading blanks; a stored number has none.
            if (text != nullptr && (std::isdigit(static_cast<unsigned char>(*text)) || *text == '-' || *text == '+')) {
                char* end = nullptr;
                errno = 0;
                long long value = std::strtoll(text, &end, 10);
                if (errno == 0 && end != nullptr && *end == '\0') {
                    return value;
                }
            }
            break;
        }
        default: break;
    }
    VELMORA_THROW("database.query_result.type", StringUtils::FormatString("Column %d is not an integer.", index));
}

int32_t SqliteQueryResult::GetInt(int32_t index) {
    int64_t value = GetLong(index);
    if (value < std::numeric_limits<int32_t>::min() || value > std::numeric_limits<int32_t>::max()) {
        VELMORA_THROW("database.query_result.range",
                      StringUtils::FormatString("Column %d does not fit into 32 bits.", index));
    }
    return static_cast<int32_t>(value);
}

std::string SqliteQueryResult::GetString(int32_t index) {
    CheckReadable(index);
    if (sqlite3_column_type(statement_, index) == SQLITE_BLOB) {
        VELMORA_THROW("database.query_result.type", StringUtils::FormatString("Column %d is a blob.", index));
    }
    const unsigned char* text = sqlite3_column_text(statement_, index);
    if (text == nullptr) {
        VELMORA_THROW("database.query_result.no_memory",
                      StringUtils::FormatString("Column %d could not be read as text.", index));
    }
    return std::string(reinterpret_cast<const char*>(text),
                       static_cast<size_t>(sqlite3_column_bytes(statement_, index)));
}

void SqliteQueryResult::Finalize() {
    if (statement_ == nullptr) {
        return;
    }
    if (owns_statement_) {
        sqlite3_finalize(statement_);
    } else {
        sqlite3_reset(statement_);
        sqlite3_clear_bindings(statement_);
    }
    statement_ = nullptr;
}

}  // namespace VelmoraMobile
