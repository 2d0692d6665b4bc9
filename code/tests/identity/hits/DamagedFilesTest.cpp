// The module on a data folder whose files are of another shape: it starts, one error line names
// each problem, a sync reaches the server, and nothing stored is deleted.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
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

/// Runs the statements on the file; returns how many rows they gave.
size_t Sql(const std::string& path, const Strings& statements) {
    sqlite3* db = nullptr;
    size_t rows = 0;
    EXPECT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    auto count = [](void* n, int, char**, char**) {
        ++*static_cast<size_t*>(n);
        return 0;
    };
    for (const auto& sql : statements) {
        EXPECT_EQ(sqlite3_exec(db, sql.c_str(), count, &rows, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
    }
    sqlite3_close(db);
    return rows;
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

TEST(DamagedFilesTest, TheModuleStartsNamesEachProblemOnceSendsTheCarriedRowAndKeepsTheStoredMid) {
    TestIdentityServer server;
    TempDir dir;
    const std::string hits = dir.File(HITS), stores = dir.File(STORES);
    Sql(hits, {"CREATE TABLE IDENTITY_REQUESTS (ID INTEGER PRIMARY KEY AUTOINCREMENT, URL TEXT, TIMESTAMP INTEGER, "
               "PAIR_ID TEXT, EVENT_NUMBER INTEGER, SSL INTEGER, EXTRA TEXT NOT NULL DEFAULT '')",
               "INSERT INTO IDENTITY_REQUESTS (URL, TIMESTAMP, PAIR_ID, EVENT_NUMBER, SSL) VALUES ('" +
                   server.BaseUrl() + "/id?old=1', 1700000000, 'p', 1, 0)"});
    Sql(stores, {"CREATE TABLE data_stores (store TEXT NOT NULL, key TEXT NOT NULL, type INTEGER NOT NULL, value, "
                 "PRIMARY KEY (store, key))",
                 "INSERT INTO data_stores VALUES ('visitorIDServiceDataStore', 'VELMORAMOBILE_PERSISTED_MID', 1, '" +
                     STORED_MID + "')"});
    LogCapture log;
    IdentityHarness harness(dir.Path());
    harness.RegisterIdentity();
    VelmoraTest::ConfigureWithServer(harness, server.Host(),
                                     {{"ondaraCloud.org", "ORG@VelmoraOrg"}, {"global.privacy", "optedin"}});
    harness.Boot();
    // The boot's forced sync and the carried-over hit.
    ASSERT_TRUE(server.WaitForRequests(2, std::chrono::seconds(20)));
    harness.Shutdown();

    const std::string hits_aside = AsideOf(dir.Path(), HITS, "mismatch");
    const std::string stores_aside = AsideOf(dir.Path(), STORES, "mismatch");
    ASSERT_FALSE(hits_aside.empty() || stores_aside.empty());
    Strings errors;
    for (const auto& l : log.Lines()) {
        if (l.mode == LoggingMode::ERROR_LOG) errors.push_back(l.message);
    }
    std::sort(errors.begin(), errors.end());
    EXPECT_EQ(errors,
              (Strings{"Table IDENTITY_REQUESTS of " + hits +
                           " does not match its schema (extra column EXTRA TEXT NOT NULL); moved the file to " +
                           hits_aside + " and made a new table, carrying over 1 of 1 row",
                       "The data store file (" + stores +
                           ") holds a table of another shape (the table has a rowid); moved it to (" + stores_aside +
                           ") and started a fresh one with the 1 of 1 values that could be read"}));
    const auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].params.count("old") + requests[1].params.count("old"), 1u);
    EXPECT_EQ(requests[0].params.count("old") ? requests[1].params.at("d_mid") : requests[0].params.at("d_mid"),
              STORED_MID);
    // Nothing is deleted: what was stored is still in the files moved aside.
    EXPECT_EQ(Sql(hits_aside, {"SELECT * FROM IDENTITY_REQUESTS"}), 1u);
    EXPECT_EQ(Sql(stores_aside, {"SELECT * FROM data_stores"}), 1u);
}
