#include "identity/hits/IdentityHitDatabase.h"
#include "identity/hits/IdentityHitQueue.h"
#include "identity/hits/IdentityObject.h"
#include "runtime/values/SdkError.h"
#include "tests/identity/ids/IdentitySyncTestSupport.h"
#include "tests/identity/support/HitRows.h"
#include "tests/identity/support/IdentityCoreTestSupport.h"
#include "tests/support/LogCapture.h"
#include "tools/server/TestIdentityServer.h"

using namespace VelmoraMobile;
using VelmoraTest::CountIdentityLines;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;
using VelmoraTest::MakeConfig;
using VelmoraTest::TempDir;
using VelmoraTest::WaitFor;
using VelmoraTestServer::Fault;
using VelmoraTestServer::TestIdentityServer;

namespace {

using std::chrono::milliseconds;

const std::string ORG = "ORG@VelmoraOrg";

using Strings = std::vector<std::string>;

/// A module that only records what the processor reports: the pair id, with " empty" when no
/// answer came. It is registered on a hub, whose task queue applies the reports, but builds no
/// pipeline of its own.
class RecordingIdentity : public Identity {
public:
    void OnRegistered() override {}
    void OnUnregistered() override {}
    void NetworkResponseLoaded(const std::shared_ptr<IdentityObject>& object, const std::string& pair_id,
                               int32_t) override {
        std::lock_guard<std::mutex> lock(mutex_);
        calls_.push_back(pair_id + (object ? "" : " empty"));
    }
    Strings Calls() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return calls_;
    }

private:
    mutable std::mutex mutex_;
    Strings calls_;
};

/// A parser that fails loudly, as some platforms' parsers do.
class ThrowingJsonService : public Object, public virtual JsonUtilityServiceInterface {
public:
    std::shared_ptr<JsonObject> ParseJson(const std::string&) override {
        throw SdkError("test.parse_failed", "cannot parse", DebugInfo());
    }
};

Strings Params(const TestIdentityServer& server, const std::string& key) {
    Strings values;
    for (const auto& request : server.Requests()) {
        auto found = request.params.find(key);
        values.push_back(found == request.params.end() ? "?" : found->second);
    }
    return values;
}

/// The pipeline alone: a hit database on a real file over a module that records what comes back.
class IdentityHitPipelineTest : public ::testing::Test {
protected:
    void SetUp() override {
        saved_retry_wait_ = HitQueueBase::GetRetryWait();
        HitQueueBase::SetRetryWait(milliseconds(20));
        ASSERT_TRUE(hub->RegisterModule(module));
        ASSERT_TRUE(WaitFor([&] { return module->IsRegistered(); }));
    }
    void TearDown() override {
        Dispose();
        hub->Shutdown();
        HitQueueBase::SetRetryWait(saved_retry_wait_);
    }
    void Create() {
        database = IdentityHitDatabase::CreateIdentityDatabase(module, services, nullptr);
        ASSERT_NE(database, nullptr);
    }
    void Dispose() {
        while (database && !database->Dispose(milliseconds(1000))) {
        }
        database.reset();
    }
    std::string Url(const std::string& tag) const { return server.BaseUrl() + "/id?d_orgid=ORG&hit=" + tag; }
    /// Stores a hit; it goes out at once only under "optedin".
    void QueueHit(const std::string& tag, const std::string& privacy = "optunknown") {
        auto event =
            EventBuilder("sync", EventType::IDENTITY, EventSource::REQUEST_IDENTITY).SetPairID("pair-" + tag).Build();
        database->Queue(Url(tag), MakeConfig(ORG, server.Host(), false, privacy), event);
    }
    bool WaitForCalls(size_t count) {
        return WaitFor([&] { return module->Calls().size() >= count; });
    }

    TestIdentityServer server;
    TempDir dir;
    std::shared_ptr<PlatformServices> services = std::make_shared<PlatformServices>(dir.Path());
    std::shared_ptr<RecordingIdentity> module = std::make_shared<RecordingIdentity>();
    std::shared_ptr<EventHub> hub = std::make_shared<EventHub>(services);
    std::shared_ptr<IdentityHitDatabase> database;
    milliseconds saved_retry_wait_{0};
};

}  // namespace

TEST_F(IdentityHitPipelineTest, EveryKindOfAnswerEndsItsHitInOrderWithoutLosingTheNext) {
    LogCapture log;
    Create();
    struct Case {
        std::string tag;
        std::function<void(Fault&)> fault;
        const char* report;  // what the module hears; none for a request that is retried
    };
    const std::vector<Case> cases = {
        // A 503 is retried after the (shortened) wait, before any younger hit.
        {"busy", [](Fault& f) { f.status = 503; }, nullptr},
        {"busy", [](Fault&) {}, ""},
        {"gone", [](Fault& f) { f.status = 404; }, " empty"},
        {"text", [](Fault& f) { f.not_json = true; }, " empty"},
        {"garbage", [](Fault& f) { f.not_json = true, f.garbage_bytes = 2 * 1024 * 1024; }, " empty"},
        {"empty", [](Fault& f) { f.body = std::string("{}"); }, " empty"},
        {"reset", [](Fault& f) { f.drop_connection = true; }, " empty"},
        {"last", [](Fault&) {}, ""},
    };
    std::string queued;
    Strings tags, reports;
    for (const auto& c : cases) {
        Fault fault;  // hits are the only requests here
        c.fault(fault);
        server.PushFault(fault);
        if (c.tag != queued) QueueHit(queued = c.tag);
        tags.push_back(c.tag);
        if (c.report) reports.push_back("pair-" + c.tag + c.report);
    }
    database->UpdatePrivacyStatus(MobilePrivacyStatus::OPT_IN);
    ASSERT_TRUE(WaitForCalls(reports.size()));
    EXPECT_EQ(Params(server, "hit"), tags);

    // A parser that throws reports twice; a missing one once.
    Dispose();
    services->SetJsonUtilityService(std::make_shared<ThrowingJsonService>());
    Create();
    Fault text;
    text.body = "not json at all";
    server.PushFault(text);
    QueueHit("a", "optedin");
    ASSERT_TRUE(WaitForCalls(reports.size() + 2));
    Dispose();
    services->SetJsonUtilityService(nullptr);
    Create();
    QueueHit("b", "optedin");
    ASSERT_TRUE(WaitForCalls(reports.size() + 3));
    reports.insert(reports.end(), {"pair-a empty", "pair-a empty", "pair-b empty"});
    EXPECT_EQ(module->Calls(), reports);
    auto count = [&](const std::string& line) { return CountIdentityLines(log, LoggingMode::DEBUG_LOG, line); };
    EXPECT_EQ(count("Recoverable network error while processing Identity requests.  Will retry in 30 seconds."), 1u);
    EXPECT_EQ(count("Un-recoverable network error while processing Identity requests.  Discarding request."), 1u);
    EXPECT_EQ(count("json object created is null. cannot parse identity network response."), 3u);
    EXPECT_EQ(count("json object created is null. cannot parse identity network response:\nnot json at all\n"
                    "Error - test.parse_failed cannot parse"),
              1u);
    EXPECT_EQ(count("json utility service is null. cannot parse data. return"), 1u);
}

// ---- The whole road: module, hub, queue, HTTP server, data store ----

TEST(IdentityHitPipelineEndToEndTest, UnregisteredRowsStayAndARestartSendsThemWithTheSameMid) {
    TestIdentityServer server;
    TempDir dir;
    const std::string file = dir.File("VLBMobileIdentity.sqlite");
    std::string mid;
    {
        // An unknown privacy status keeps the syncs in the table, unsent.
        IdentityHarness harness(dir.Path());
        auto identity = harness.RegisterIdentity();
        VelmoraTest::ConfigureWithServer(harness, server.Host(),
                                         {{"ondaraCloud.org", ORG}, {"global.privacy", "optunknown"}});
        harness.Boot();
        auto sync = std::make_shared<EventData>();
        sync->PutStringMap("visitoridentifiers", {{"crm", "user-1"}});
        sync->PutBoolean("issyncevent", true);
        harness.DispatchIdentityRequest(sync);
        ASSERT_TRUE(WaitFor([&] { return VelmoraTest::ReadHitRows(file).size() == 2u; }));
        harness.RunInIdentityQueue([&] { mid = identity->mid; });
        // Returns once the "unregistration" task has disposed of the queue.
        ASSERT_TRUE(harness.hub->UnregisterModule("com.velmora.module.identity"));
        EXPECT_EQ(identity->hit_database, nullptr);
    }
    ASSERT_EQ(VelmoraTest::ReadHitRows(file).size(), 2u);
    ASSERT_TRUE(server.Requests().empty());

    IdentityHarness harness(dir.Path());
    harness.RegisterIdentity();
    // The stored "optunknown" holds the rows until this run opts in; the boot syncs once more.
    VelmoraTest::ConfigureWithServer(harness, server.Host(), {{"ondaraCloud.org", ORG}, {"global.privacy", "optedin"}});
    harness.Boot();
    ASSERT_TRUE(server.WaitForRequests(3, milliseconds(20000)));
    EXPECT_EQ(Params(server, "d_mid"), (Strings{mid, mid, mid}));
    EXPECT_TRUE(WaitFor([&] { return VelmoraTest::ReadHitRows(file).empty(); }));
}
