// What the table check tells apart: every shape is made by SQL in a database in memory.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>
#include <tuple>
#include <vector>

#include "runtime/services/storage/SqliteTableShape.h"

using namespace VelmoraMobile;
using Verdict = SqliteTableShape::Verdict;

TEST(SqliteTableShapeTest, NamesWhatDiffersFromTheStatement) {
    const std::string COLUMNS = R"(("ID" INTEGER PRIMARY KEY AUTOINCREMENT, "URL" TEXT, "N" INTEGER))";
    const std::string WANTED = "CREATE TABLE \"T\" " + COLUMNS;
    const std::tuple<const char*, std::vector<std::string>, Verdict, std::string> cases[] = {
        {"none", {}, Verdict::MISSING, ""},
        {"made by the statement", {WANTED}, Verdict::MATCHES, ""},
        {"made only if missing", {"CREATE TABLE IF NOT EXISTS \"T\" " + COLUMNS}, Verdict::MATCHES, ""},
        {"with an index of its own", {WANTED, "CREATE INDEX i ON T(URL)"}, Verdict::MATCHES, ""},
        // Other types and missing keys: HitTableRepairTest reads them in its log line. A type's case is no difference.
        {"some columns",
         {R"(CREATE TABLE "T" ("ID" integer PRIMARY KEY AUTOINCREMENT))"},
         Verdict::DIFFERS,
         "no column URL, N"},
        {"one column", {"CREATE TABLE T (x)"}, Verdict::DIFFERS, "no column ID, URL, N; extra column x"},
        {"a view", {"CREATE VIEW t AS SELECT 1 AS ID"}, Verdict::DIFFERS, "it is a view, not a table"},
        {"another order",
         {R"(CREATE TABLE "T" ("ID" INTEGER PRIMARY KEY AUTOINCREMENT, "N" INTEGER, "URL" TEXT))"},
         Verdict::DIFFERS,
         "columns in another order"},
        {"other constraints",
         {R"(CREATE TABLE "T" ("ID" INTEGER PRIMARY KEY, "URL" TEXT UNIQUE, "N" INTEGER NOT NULL DEFAULT 0))"},
         Verdict::DIFFERS,
         "ID lacks AUTOINCREMENT; URL has UNIQUE; N has NOT NULL; N has a DEFAULT"},
        {"without rowid",
         {R"(CREATE TABLE "T" ("ID" INTEGER PRIMARY KEY, "URL" TEXT, "N" INTEGER) WITHOUT ROWID)"},
         Verdict::DIFFERS,
         "ID has NOT NULL; ID lacks AUTOINCREMENT; the table is WITHOUT ROWID"},
        {"a CHECK",
         {R"(CREATE TABLE "T" ("ID" INTEGER PRIMARY KEY AUTOINCREMENT, "URL" TEXT, "N" INTEGER CHECK (N > 0)))"},
         Verdict::DIFFERS,
         R"(its statement differs: CREATE TABLE "T" ("ID" INTEGER PRIMARY KEY AUTOINCREMENT, "URL" TEXT, "N" INTEGER CHECK (N > 0)))"},
        {"a trigger",
         {WANTED, "CREATE TRIGGER refuse BEFORE INSERT ON T BEGIN SELECT RAISE(ABORT, 'no'); END"},
         Verdict::DIFFERS,
         "trigger refuse"},
        {"a unique index", {WANTED, "CREATE UNIQUE INDEX once ON T(URL)"}, Verdict::DIFFERS, "unique index once"},
    };
    for (const auto& [what, statements, verdict, detail] : cases) {
        SCOPED_TRACE(what);
        sqlite3* db = nullptr;
        sqlite3_open(":memory:", &db);
        for (const auto& sql : statements) EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), 0);
        SqliteTableShape::Finding finding = SqliteTableShape::Check(db, "main", "T", WANTED);
        sqlite3_close(db);
        EXPECT_EQ(finding.verdict, verdict);
        EXPECT_EQ(finding.detail, detail);
    }
}
