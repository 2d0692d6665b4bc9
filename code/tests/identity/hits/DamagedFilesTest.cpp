// The module on a data folder whose files are of another shape or unusable: it starts,
// one error line names the problem, a sync reaches the server, and nothing stored is deleted.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/identity/support/IdentityCoreTestSupport.h"
#include "tests/identity/support/IdentityHarness.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TempDir.h"
#include "tools/server/TestIdentityServer.h"

using namespace VelmoraMobile;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;
using VelmoraTest::TempDir;
using VelmoraTestServer::TestIdentityServer;
using Strings = std::vector<std::string>;

namespace {

const std::string HITS = "VLBMobileIdentity.sqlite";
const std::string STORES = "VelmoraDataStores.sqlite";
const std::string STORED_MID = "12345678901234567890123456789012345678";

void Sql(const std::string& path, const Strings& statements) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    for (const auto& sql : statements) {
        EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
    }
    sqlite3_close(db);
}

size_t CountRows(const std::string& path, const std::string& table) {
    sqlite3* db = nullptr;
    sqlite3_stmt* statement = nullptr;
    size_t count = 0;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK &&
        sqlite3_prepare_v2(db, ("SELECT count(*) FROM " + table).c_str(), -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW) {
        count = static_cast<size_t>(sqlite3_column_int64(statement, 0));
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return count;
}

std::string AsideOf(const std::string& folder, const std::string& file, const std::string& label) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::string name = entry.path().filename().string();
        if (name.rfind(file + "." + label + "-", 0) == 0 && name.find("-wal") == std::string::npos &&
            name.find("-shm") == std::string::npos) {
            return entry.path().string();
        }
    }
    return "";
}

}  // namespace

TEST(DamagedFilesTest, TheModuleStartsNamesTheProblemOnceSyncsAndKeepsWhatWasStored) {
    TestIdentityServer server;
    const std::string old_url = server.BaseUrl() + "/id?old=1";
    const std::string hit_columns =
        "ID INTEGER PRIMARY KEY AUTOINCREMENT, URL TEXT, TIMESTAMP INTEGER, PAIR_ID TEXT, "
        "EVENT_NUMBER INTEGER, SSL INTEGER";
    const std::string old_row = "INSERT INTO IDENTITY_REQUESTS (URL, TIMESTAMP, PAIR_ID, EVENT_NUMBER, SSL) VALUES ('" +
                                old_url + "', 1700000000, 'p', 1, 0)";
    const std::string mismatch = "Table IDENTITY_REQUESTS of %F does not match its schema (";
    const std::string moved = "); moved the file to %A and made a new table, carrying over ";
    struct Case {
        const char* what;
        std::function<void(const std::string& folder)> make;
        std::string file;   // the file the problem is in
        std::string label;  // where it is moved aside; empty when it is left in place
        std::string line;   // %F the file, %A the file moved aside
        bool old_row_sent, mid_kept;
    };
    const std::vector<Case> cases = {
        {"an extra NOT NULL column",
         [&](const std::string& f) {
             Sql(f + "/" + HITS,
                 {"CREATE TABLE IDENTITY_REQUESTS (" + hit_columns + ", EXTRA TEXT NOT NULL DEFAULT '')", old_row});
         },
         HITS, "mismatch", mismatch + "extra column EXTRA TEXT NOT NULL" + moved + "1 of 1 row", true, false},
        {"a directory in place of the hit file",
         [&](const std::string& f) { std::filesystem::create_directories(f + "/" + HITS); }, HITS, "",
         "Cannot use the hit database %F (unable to open database file); this run keeps its hits in memory and "
         "leaves the file as it is",
         false, false},
        {"a store table with a rowid",
         [&](const std::string& f) {
             Sql(f + "/" + STORES,
                 {"CREATE TABLE data_stores (store TEXT NOT NULL, key TEXT NOT NULL, type INTEGER NOT NULL, value, "
                  "PRIMARY KEY (store, key))",
                  "INSERT INTO data_stores VALUES ('visitorIDServiceDataStore', 'VELMORAMOBILE_PERSISTED_MID', 1, '" +
                      STORED_MID + "')"});
         },
         STORES, "mismatch",
         "The data store file (%F) holds a table of another shape (the table has a rowid); moved it to (%A) and "
         "started a fresh one with the 1 of 1 values that could be read",
         false, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        TempDir dir;
        c.make(dir.Path());
        server.ClearRequests();
        LogCapture log;
        IdentityHarness harness(dir.Path());
        harness.RegisterIdentity();
        VelmoraTest::ConfigureWithServer(harness, server.Host(),
                                         {{"ondaraCloud.org", "ORG@VelmoraOrg"}, {"global.privacy", "optedin"}});
        harness.Boot();
        // The boot's forced sync, and the old hit when it was carried over.
        ASSERT_TRUE(server.WaitForRequests(c.old_row_sent ? 2 : 1, std::chrono::seconds(20)));
        harness.Shutdown();

        const std::string file = dir.File(c.file);
        const std::string aside = c.label.empty() ? "" : AsideOf(dir.Path(), c.file, c.label);
        std::string line = c.line;
        line.replace(line.find("%F"), 2, file);
        if (!c.label.empty()) {
            ASSERT_FALSE(aside.empty());
            line.replace(line.find("%A"), 2, aside);
        }
        Strings errors;
        for (const auto& l : log.Lines()) {
            if (l.mode == LoggingMode::ERROR_LOG) errors.push_back(l.message);
        }
        EXPECT_EQ(errors, Strings{line});

        Strings mids;
        size_t old_sent = 0;
        for (const auto& request : server.Requests()) {
            old_sent += request.params.count("old");
            if (request.params.count("d_mid") > 0) mids.push_back(request.params.at("d_mid"));
        }
        EXPECT_EQ(old_sent, c.old_row_sent ? 1u : 0u);
        ASSERT_EQ(mids.size(), 1u);
        EXPECT_EQ(mids[0] == STORED_MID, c.mid_kept) << mids[0];
        // Nothing is deleted: what was stored is still in the file moved aside, or left in place.
        if (c.label.empty()) {
            EXPECT_TRUE(std::filesystem::is_directory(file));
        } else if (c.file == HITS) {
            EXPECT_EQ(CountRows(aside, "IDENTITY_REQUESTS"), 1u);
        } else if (c.file == STORES) {
            EXPECT_EQ(CountRows(aside, "data_stores"), 1u);
        }
    }
}
