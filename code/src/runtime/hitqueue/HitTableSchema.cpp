#include "runtime/hitqueue/HitTableSchema.h"

#include <algorithm>
#include <vector>

#include "runtime/values/SdkError.h"

namespace VelmoraMobile {

namespace {

using Type = DatabaseInterface::ColumnDataType;
using Constraint = DatabaseInterface::ColumnConstraint;

const char* TypeSql(Type type) {
    switch (type) {
        case Type::INTEGER: return "INTEGER";
        case Type::REAL: return "REAL";
        case Type::TEXT: return "TEXT";
    }
    return nullptr;
}

const char* ConstraintSql(Constraint constraint) {
    switch (constraint) {
        case Constraint::NOT_NULL: return "NOT NULL";
        case Constraint::UNIQUE: return "UNIQUE";
        case Constraint::PRIMARY_KEY: return "PRIMARY KEY";
        case Constraint::AUTOINCREMENT: return "AUTOINCREMENT";
    }
    return nullptr;
}

std::string Quote(const std::string& name) {
    std::string quoted = "\"";
    for (char c : name) {
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    }
    return quoted + "\"";
}

/// The value of column `c` as the table stores it, and the test that it can be read back. These
/// follow what the queue's row reader accepts: an integer, a whole real or the exact text of an
/// integer for INTEGER; any number or text for TEXT.
std::string Readable(Type type, const std::string& c) {
    switch (type) {
        case Type::INTEGER:
            return "(typeof(" + c + ") = 'integer' OR (typeof(" + c + ") = 'real' AND " + c + " = CAST(" + c +
                   " AS INTEGER)) OR (typeof(" + c + ") = 'text' AND CAST(CAST(" + c + " AS INTEGER) AS TEXT) = " + c +
                   "))";
        case Type::REAL: return "typeof(" + c + ") IN ('integer', 'real')";
        case Type::TEXT: return "typeof(" + c + ") IN ('text', 'integer', 'real')";
    }
    return "0";
}

}  // namespace

SqliteTableSchema HitTableSchema::FromSchema(const DatabaseHitSchemaBase& hit_schema) {
    const std::vector<std::string> names = hit_schema.GetColumnNames();
    const std::vector<Type> types = hit_schema.GetColumnDataTypes();
    const std::vector<std::vector<Constraint>> constraints = hit_schema.GetColumnConstraints();
    if (names.empty() || types.size() != names.size() || constraints.size() > names.size()) {
        VELMORA_THROW("hit_queue.invalid_argument", "The schema of table " + hit_schema.GetTableName() +
                                                        " does not describe its columns consistently.");
    }
    SqliteTableSchema schema;
    schema.name = hit_schema.GetTableName();
    const std::string table = Quote(schema.name);
    std::string columns;
    std::string select;
    std::string where;
    std::string parameters;
    for (size_t i = 0; i < names.size(); ++i) {
        const char* type = TypeSql(types[i]);
        if (type == nullptr) {
            VELMORA_THROW("hit_queue.invalid_argument",
                          "Column " + names[i] + " of table " + schema.name + " has an unknown type.");
        }
        const std::string column = Quote(names[i]);
        std::string definition = column + " " + type;
        const std::vector<Constraint> none;
        const std::vector<Constraint>& list = i < constraints.size() ? constraints[i] : none;
        for (Constraint constraint : list) {
            const char* text = ConstraintSql(constraint);
            if (text == nullptr) {
                VELMORA_THROW("hit_queue.invalid_argument",
                              "Column " + names[i] + " of table " + schema.name + " has an unknown constraint.");
            }
            definition += std::string(" ") + text;
        }
        schema.create_sql += (i > 0 ? ", " : "") + definition;

        const std::string separator = i > 0 ? ", " : "";
        columns += separator + column;
        parameters += separator + "?";
        bool row_key =
            types[i] == Type::INTEGER && std::find(list.begin(), list.end(), Constraint::PRIMARY_KEY) != list.end();
        if (row_key) {
            // The key keeps its value, so a hit being processed still finds its row afterwards.
            select += separator + "rowid";
        } else {
            select += separator + "CAST(" + column + " AS " + type + ")";
            where += (where.empty() ? "" : " AND ") + Readable(types[i], column);
        }
    }
    schema.create_sql = "CREATE TABLE " + table + " (" + schema.create_sql + ")";
    schema.select_sql = "SELECT " + select + " FROM " + table + (where.empty() ? "" : " WHERE " + where);
    schema.order_by = {"rowid"};
    schema.insert_sql = "INSERT OR IGNORE INTO main." + table + " (" + columns + ") VALUES (" + parameters + ")";
    return schema;
}

}  // namespace VelmoraMobile
