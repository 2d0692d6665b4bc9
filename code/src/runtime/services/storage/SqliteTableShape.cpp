#include "runtime/services/storage/SqliteTableShape.h"

#include <sqlite3.h>

#include <algorithm>
#include <cctype>
#include <vector>

namespace VelmoraMobile {

namespace {

constexpr size_t MAX_QUOTED_SQL = 200;

struct Column {
    std::string name;
    std::string type;
    bool not_null = false;
    bool has_default = false;
    int primary_key = 0;
    bool generated = false;
    bool autoincrement = false;
    bool unique = false;
};

struct Shape {
    std::vector<Column> columns;
    bool without_rowid = false;
    bool strict = false;
    /// UNIQUE constraints over several columns or expressions; they cannot be told per column.
    int compound_uniques = 0;
};

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

std::string Text(sqlite3_stmt* statement, int column) {
    const unsigned char* text = sqlite3_column_text(statement, column);
    return text != nullptr ? reinterpret_cast<const char*>(text) : "";
}

/// Runs `sql` with the text arguments `args` and calls `row` for every result row. False when it fails.
template <typename Row>
bool ForEachRow(sqlite3* db, const char* sql, const std::vector<std::string>& args, Row row) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) != SQLITE_OK) {
        sqlite3_finalize(statement);
        return false;
    }
    for (size_t i = 0; i < args.size(); ++i) {
        sqlite3_bind_text(statement, static_cast<int>(i + 1), args[i].data(), static_cast<int>(args[i].size()),
                          SQLITE_TRANSIENT);
    }
    int rc;
    while ((rc = sqlite3_step(statement)) == SQLITE_ROW) {
        row(statement);
    }
    sqlite3_finalize(statement);
    return rc == SQLITE_DONE;
}

bool ReadShape(sqlite3* db, const std::string& schema, const std::string& table, Shape& shape) {
    bool ok = ForEachRow(db,
                         "SELECT name, upper(trim(type)), \"notnull\", dflt_value IS NOT NULL, pk, hidden "
                         "FROM pragma_table_xinfo(?1, ?2) ORDER BY cid",
                         {table, schema}, [&](sqlite3_stmt* row) {
                             Column column;
                             column.name = Text(row, 0);
                             column.type = Text(row, 1);
                             column.not_null = sqlite3_column_int(row, 2) != 0;
                             column.has_default = sqlite3_column_int(row, 3) != 0;
                             column.primary_key = sqlite3_column_int(row, 4);
                             column.generated = sqlite3_column_int(row, 5) != 0;
                             shape.columns.push_back(column);
                         });
    for (Column& column : shape.columns) {
        int autoincrement = 0;
        if (sqlite3_table_column_metadata(db, schema.c_str(), table.c_str(), column.name.c_str(), nullptr, nullptr,
                                          nullptr, nullptr, &autoincrement) == SQLITE_OK) {
            column.autoincrement = autoincrement != 0;
        }
    }
    std::vector<std::string> unique_indexes;
    ok = ok && ForEachRow(db, "SELECT name FROM pragma_index_list(?1, ?2) WHERE \"unique\" AND origin <> 'pk'",
                          {table, schema}, [&](sqlite3_stmt* row) { unique_indexes.push_back(Text(row, 0)); });
    for (const std::string& index : unique_indexes) {
        std::vector<std::string> names;
        ok = ok && ForEachRow(db, "SELECT name FROM pragma_index_info(?1, ?2) ORDER BY seqno", {index, schema},
                              [&](sqlite3_stmt* row) { names.push_back(Text(row, 0)); });
        auto single = names.size() == 1 ? std::find_if(shape.columns.begin(), shape.columns.end(),
                                                       [&](const Column& c) { return c.name == names[0]; })
                                        : shape.columns.end();
        if (single != shape.columns.end()) {
            single->unique = true;
        } else {
            ++shape.compound_uniques;
        }
    }
    ok = ok && ForEachRow(db, "SELECT wr, strict FROM pragma_table_list(?1) WHERE schema = ?2", {table, schema},
                          [&](sqlite3_stmt* row) {
                              shape.without_rowid = sqlite3_column_int(row, 0) != 0;
                              shape.strict = sqlite3_column_int(row, 1) != 0;
                          });
    return ok;
}

const Column* Find(const Shape& shape, const std::string& name) {
    for (const Column& column : shape.columns) {
        if (Lower(column.name) == Lower(name)) {
            return &column;
        }
    }
    return nullptr;
}

void Flag(std::vector<std::string>& out, bool found, bool expected, const std::string& name, const char* what) {
    if (found != expected) {
        out.push_back(name + (found ? " has " : " lacks ") + what);
    }
}

std::vector<std::string> CompareShapes(const Shape& found, const Shape& expected) {
    std::vector<std::string> out;
    std::string missing;
    for (const Column& column : expected.columns) {
        if (Find(found, column.name) == nullptr) {
            missing += (missing.empty() ? "" : ", ") + column.name;
        }
    }
    if (!missing.empty()) {
        out.push_back("no column " + missing);
    }
    std::vector<std::string> common_found;
    for (const Column& column : found.columns) {
        const Column* wanted = Find(expected, column.name);
        if (wanted == nullptr) {
            std::string extra = "extra column " + column.name;
            extra += column.type.empty() ? "" : " " + column.type;
            extra += column.not_null ? " NOT NULL" : "";
            out.push_back(extra);
            continue;
        }
        common_found.push_back(Lower(column.name));
        if (column.type != wanted->type) {
            out.push_back(column.name + " is " + (column.type.empty() ? std::string("untyped") : column.type) +
                          ", not " + (wanted->type.empty() ? std::string("untyped") : wanted->type));
        }
        Flag(out, column.not_null, wanted->not_null, column.name, "NOT NULL");
        Flag(out, column.primary_key != 0, wanted->primary_key != 0, column.name, "PRIMARY KEY");
        if (column.primary_key != 0 && wanted->primary_key != 0 && column.primary_key != wanted->primary_key) {
            out.push_back(column.name + " has another place in the PRIMARY KEY");
        }
        Flag(out, column.autoincrement, wanted->autoincrement, column.name, "AUTOINCREMENT");
        Flag(out, column.unique, wanted->unique, column.name, "UNIQUE");
        Flag(out, column.has_default, wanted->has_default, column.name, "a DEFAULT");
        Flag(out, column.generated, wanted->generated, column.name, "a generated value");
    }
    std::vector<std::string> common_expected;
    for (const Column& column : expected.columns) {
        if (Find(found, column.name) != nullptr) {
            common_expected.push_back(Lower(column.name));
        }
    }
    if (common_found != common_expected) {
        out.push_back("columns in another order");
    }
    if (found.without_rowid != expected.without_rowid) {
        out.push_back(found.without_rowid ? "the table is WITHOUT ROWID" : "the table has a rowid");
    }
    if (found.strict != expected.strict) {
        out.push_back(found.strict ? "the table is STRICT" : "the table is not STRICT");
    }
    if (found.compound_uniques != expected.compound_uniques) {
        out.push_back("other UNIQUE constraints over several columns");
    }
    return out;
}

/// The differences between `table` as it is and as `create_sql` makes it, read through the pragmas
/// of both: the found one in `db`, the wanted one in a scratch database in memory.
std::vector<std::string> DescribeDifferences(sqlite3* db, const std::string& schema, const std::string& table,
                                             const std::string& create_sql) {
    sqlite3* reference = nullptr;
    Shape found;
    Shape expected;
    bool compared = sqlite3_open_v2(":memory:", &reference, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK &&
                    sqlite3_exec(reference, create_sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK &&
                    ReadShape(reference, "main", table, expected) && ReadShape(db, schema, table, found);
    sqlite3_close_v2(reference);
    return compared ? CompareShapes(found, expected) : std::vector<std::string>();
}

}  // namespace

SqliteTableShape::Finding SqliteTableShape::Check(sqlite3* db, const std::string& schema, const std::string& table,
                                                  const std::string& create_sql) {
    Finding finding;
    std::string type;
    std::string sql;
    bool exists = false;
    // Indexes and triggers made apart from the table can refuse rows too; the table's own UNIQUE and
    // PRIMARY KEY indexes have no statement of their own.
    std::vector<std::string> attached;
    std::string master =
        "SELECT type, name, sql FROM \"" + schema + "\".sqlite_master WHERE tbl_name = ?1 COLLATE NOCASE";
    bool read = ForEachRow(db, master.c_str(), {table}, [&](sqlite3_stmt* row) {
        std::string row_type = Text(row, 0);
        if (Lower(Text(row, 1)) == Lower(table)) {
            exists = true;
            type = row_type;
            sql = Text(row, 2);
        } else if (row_type == "trigger") {
            attached.push_back("trigger " + Text(row, 1));
        } else if (row_type == "index" && Lower(Text(row, 2)).rfind("create unique", 0) == 0) {
            attached.push_back("unique index " + Text(row, 1));
        }
    });
    if (!read) {
        finding.verdict = Verdict::UNREADABLE;
        finding.detail = sqlite3_errmsg(db);
        return finding;
    }
    if (!exists) {
        finding.verdict = Verdict::MISSING;
        return finding;
    }
    if (type != "table") {
        finding.verdict = Verdict::DIFFERS;
        finding.detail = "it is a " + type + ", not a table";
        return finding;
    }
    if (sql == create_sql && attached.empty()) {
        finding.verdict = Verdict::MATCHES;
        return finding;
    }
    std::vector<std::string> differences =
        sql == create_sql ? std::vector<std::string>() : DescribeDifferences(db, schema, table, create_sql);
    differences.insert(differences.end(), attached.begin(), attached.end());
    if (differences.empty()) {
        // Same columns, other words: a CHECK, a COLLATE, a foreign key. Quote the statement itself.
        std::string quoted = sql.size() > MAX_QUOTED_SQL ? sql.substr(0, MAX_QUOTED_SQL) + "..." : sql;
        differences.push_back("its statement differs: " + quoted);
    }
    finding.verdict = Verdict::DIFFERS;
    for (size_t i = 0; i < differences.size(); ++i) {
        finding.detail += (i > 0 ? "; " : "") + differences[i];
    }
    return finding;
}

}  // namespace VelmoraMobile
