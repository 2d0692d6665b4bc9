#include "identity/hits/IdentityHitDatabase.h"
#include "runtime/values/SdkError.h"
#include "tests/identity/ids/IdentitySyncTestSupport.h"
#include "tests/identity/support/HitRows.h"
#include "tests/identity/support/IdentityCoreTestSupport.h"
#include "tools/server/TestIdentityServer.h"
using namespace VelmoraMobile;
using namespace VelmoraTest;
using namespace VelmoraTestServer;

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

}  // namespace

// The pipeline alone: a hit database on a real file over a module that records what comes back.
TEST(IdentityHitPipelineTest, EveryKindOfAnswerEndsItsHitInOrderWithoutLosingTheNext) {
    TestIdentityServer server;
    TempDir dir;
    auto services = std::make_shared<PlatformServices>(dir.Path());
    auto module = std::make_shared<RecordingIdentity>();
    auto hub = std::make_shared<EventHub>(services);
    const milliseconds saved_retry_wait = HitQueueBase::GetRetryWait();
    HitQueueBase::SetRetryWait(milliseconds(20));
    ASSERT_TRUE(hub->RegisterModule(module));
    std::shared_ptr<IdentityHitDatabase> database;
    auto reopen = [&](bool create) {
        while (database && !database->Dispose(milliseconds(1000))) {
        }
        database = create ? IdentityHitDatabase::CreateIdentityDatabase(module, services, nullptr) : nullptr;
    };
    // Stores a hit; it goes out at once only under "optedin".
    auto queue_hit = [&](const std::string& tag, const std::string& privacy) {
        auto event =
            EventBuilder("sync", EventType::IDENTITY, EventSource::REQUEST_IDENTITY).SetPairID("pair-" + tag).Build();
        database->Queue(server.BaseUrl() + "/id?d_orgid=ORG&hit=" + tag, MakeConfig(ORG, server.Host(), false, privacy),
                        event);
    };
    auto wait_for_calls = [&](size_t count) { return WaitFor([&] { return module->Calls().size() >= count; }); };
    LogCapture log;
    reopen(true);
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
    Strings reports;
    for (const auto& c : cases) {
        Fault fault;  // hits are the only requests here
        c.fault(fault);
        server.PushFault(fault);
        if (c.tag != queued) queue_hit(queued = c.tag, "optunknown");
        if (c.report) reports.push_back("pair-" + c.tag + c.report);
    }
    database->UpdatePrivacyStatus(MobilePrivacyStatus::OPT_IN);
    ASSERT_TRUE(wait_for_calls(reports.size()));

    // A parser that throws reports twice; a missing one once.
    services->SetJsonUtilityService(std::make_shared<ThrowingJsonService>());
    reopen(true);
    Fault text;
    text.body = "not json at all";
    server.PushFault(text);
    queue_hit("a", "optedin");
    ASSERT_TRUE(wait_for_calls(reports.size() + 2));
    services->SetJsonUtilityService(nullptr);
    reopen(true);
    queue_hit("b", "optedin");
    ASSERT_TRUE(wait_for_calls(reports.size() + 3));
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
    reopen(false);
    HitQueueBase::SetRetryWait(saved_retry_wait);
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
        ConfigureWithServer(harness, server.Host(), {{"ondaraCloud.org", ORG}, {"global.privacy", "optunknown"}});
        harness.Boot();
        auto sync = std::make_shared<EventData>();
        sync->PutStringMap("visitoridentifiers", {{"crm", "user-1"}});
        sync->PutBoolean("issyncevent", true);
        harness.DispatchIdentityRequest(sync);
        ASSERT_TRUE(WaitFor([&] { return ReadHitRows(file).size() == 2u; }));
        harness.RunInIdentityQueue([&] { mid = identity->mid; });
        // Returns once the "unregistration" task has disposed of the queue.
        ASSERT_TRUE(harness.hub->UnregisterModule("com.velmora.module.identity"));
        EXPECT_EQ(identity->hit_database, nullptr);
    }
    ASSERT_EQ(ReadHitRows(file).size(), 2u);
    ASSERT_TRUE(server.Requests().empty());

    IdentityHarness harness(dir.Path());
    harness.RegisterIdentity();
    // The stored "optunknown" holds the rows until this run opts in; the boot syncs once more.
    ConfigureWithServer(harness, server.Host(), {{"ondaraCloud.org", ORG}, {"global.privacy", "optedin"}});
    harness.Boot();
    ASSERT_TRUE(server.WaitForRequests(3, milliseconds(20000)));
    EXPECT_EQ(Params(server, "d_mid"), (Strings{mid, mid, mid}));
    EXPECT_TRUE(WaitFor([&] { return ReadHitRows(file).empty(); }));
}
