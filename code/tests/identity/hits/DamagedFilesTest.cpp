// The module on a data folder whose two files are of another shape: it starts, one error line
// names each problem, and what could be read of the old files is used.

#include "tests/identity/support/HitRows.h"
#include "tests/identity/support/IdentityCoreTestSupport.h"
#include "tests/support/LogCapture.h"
#include "tools/server/TestIdentityServer.h"
using namespace VelmoraMobile;
using namespace VelmoraTest;
using namespace VelmoraTestServer;

namespace {

const std::string HITS = "VLBMobileIdentity.sqlite";
const std::string STORES = "VelmoraDataStores.sqlite";
const std::string STORED_MID = "12345678901234567890123456789012345678";

}  // namespace

TEST(DamagedFilesTest, TheModuleStartsNamesEachProblemOnceSendsTheCarriedRowAndKeepsTheStoredMid) {
    TestIdentityServer server;
    TempDir dir;
    const std::string hits = dir.File(HITS), stores = dir.File(STORES);
    Sql(hits,
        "CREATE TABLE IDENTITY_REQUESTS (ID INTEGER PRIMARY KEY AUTOINCREMENT, URL TEXT, TIMESTAMP INTEGER, "
        "PAIR_ID TEXT, EVENT_NUMBER INTEGER, SSL INTEGER, EXTRA TEXT NOT NULL DEFAULT ''); "
        "INSERT INTO IDENTITY_REQUESTS (URL, TIMESTAMP, PAIR_ID, EVENT_NUMBER, SSL) VALUES ('" +
            server.BaseUrl() + "/id?old=1', 1700000000, 'p', 1, 0)");
    Sql(stores,
        "CREATE TABLE data_stores (store TEXT NOT NULL, key TEXT NOT NULL, type INTEGER NOT NULL, value, "
        "PRIMARY KEY (store, key)); "
        "INSERT INTO data_stores VALUES ('visitorIDServiceDataStore', 'VELMORAMOBILE_PERSISTED_MID', 1, '" +
            STORED_MID + "')");
    LogCapture log;
    IdentityHarness harness(dir.Path());
    harness.RegisterIdentity();
    ConfigureWithServer(harness, server.Host(), {{"ondaraCloud.org", "ORG@VelmoraOrg"}, {"global.privacy", "optedin"}});
    harness.Boot();
    // The boot's forced sync and the carried-over hit.
    ASSERT_TRUE(server.WaitForRequests(2, std::chrono::seconds(20)));
    harness.Shutdown();

    // The exact lines, and the files moved aside, are the repair tests' concern.
    size_t errors = 0;
    for (const auto& l : log.Lines()) errors += l.mode == LoggingMode::ERROR_LOG;
    EXPECT_EQ(errors, 2u);
    const auto requests = server.Requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].params.count("old") + requests[1].params.count("old"), 1u);
    EXPECT_EQ(requests[0].params.count("old") ? requests[1].params.at("d_mid") : requests[0].params.at("d_mid"),
              STORED_MID);
}
