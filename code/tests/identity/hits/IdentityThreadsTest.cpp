// The module's fields have one owner, its task queue, and a stop ends every thread of ours: the
// server's answers under load from several host threads, an answer during unregistration, a hub
// dropped while its worker is busy.

#include <set>
#include <thread>

#include "identity/hits/IdentityHitProcessor.h"
#include "runtime/hitqueue/HitQueueBase.h"
#include "tests/identity/support/IdentityCoreTestSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/OurThreads.h"
#include "tools/server/TestIdentityServer.h"
using namespace VelmoraMobile;
using namespace VelmoraTest;
using namespace VelmoraTestServer;

namespace {

const std::string ORG = "ORG@VelmoraOrg";

bool IsUpdated(const std::shared_ptr<Event>& event, const std::string& pair_id) {
    return event->GetName() == "UPDATED_IDENTITY_RESPONSE" && event->GetResponsePairID() == pair_id;
}

void ConfigureAndBoot(IdentityHarness& harness, const TestIdentityServer& server) {
    ConfigureWithServer(harness, server.Host(), {{"ondaraCloud.org", ORG}, {"global.privacy", "optedin"}});
    harness.Boot();
}

}  // namespace

TEST(IdentityThreadsTest, SyncsAndRequestsFromSeveralHostThreadsAreAllSentAnsweredAndKept) {
    TestIdentityServer server;
    Fault slow;
    slow.delay_ms = 3;
    server.SetDefaultFault(slow);
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    ConfigureAndBoot(harness, server);
    ASSERT_NE(harness.WaitForEvent([](const auto& e) { return IsUpdated(e, ""); }), nullptr);

    constexpr int THREADS = 4;
    constexpr int ROUNDS = 8;
    std::vector<std::string> sync_pairs(THREADS * ROUNDS), request_pairs(THREADS * ROUNDS);
    std::vector<std::thread> hosts;
    for (int t = 0; t < THREADS; ++t) {
        hosts.emplace_back([&, t] {
            for (int r = 0; r < ROUNDS; ++r) {
                const std::string id = std::to_string(t) + "_" + std::to_string(r);
                auto sync = std::make_shared<EventData>();
                sync->PutStringMap("visitoridentifiers", {{"type" + id, "id" + id}});
                sync->PutInteger("authenticationstate", 1);
                sync->PutBoolean("issyncevent", true);
                sync_pairs[t * ROUNDS + r] = harness.DispatchIdentityRequest(sync)->GetResponsePairID();
                harness.DispatchIdentityRequest(MakeData({{"vid", "user" + id}}));
                request_pairs[t * ROUNDS + r] = harness.DispatchIdentityRequest(nullptr)->GetResponsePairID();
            }
        });
    }
    for (auto& host : hosts) host.join();

    // Every answer was applied: each sync's caller heard its paired update, each request its response.
    for (size_t i = 0; i < sync_pairs.size(); ++i) {
        ASSERT_NE(harness.WaitForEvent([&](const auto& e) { return IsUpdated(e, sync_pairs[i]); }), nullptr);
        ASSERT_NE(harness.WaitForResponse(request_pairs[i]), nullptr);
    }
    Settle(harness);
    EXPECT_EQ(server.Requests().size(), 1u + THREADS * ROUNDS);
    // Every sync's id was merged in, each type once.
    std::set<std::string> types;
    harness.RunInIdentityQueue([&] {
        for (const auto& id : identity->customer_ids) types.insert(id->id_type);
        EXPECT_EQ(identity->customer_ids.size(), static_cast<size_t>(THREADS * ROUNDS));
        EXPECT_EQ(identity->blob, "test-blob");
    });
    EXPECT_EQ(types.size(), static_cast<size_t>(THREADS * ROUNDS));
}

TEST(IdentityThreadsTest, AnAnswerArrivingDuringUnregistrationIsSavedBeforeShutdownReturns) {
    TestIdentityServer server;
    Fault slow;
    slow.path = "/id";
    slow.delay_ms = 700;
    server.PushFault(slow);
    IdentityHarness harness;
    harness.RegisterIdentity();
    ConfigureAndBoot(harness, server);
    // The boot's sync is out and its answer still on the way when the stop begins.
    ASSERT_TRUE(server.WaitForRequests(1, std::chrono::seconds(20)));
    harness.Shutdown();
    auto store = harness.services->GetLocalStorageService()->GetDataStore("visitorIDServiceDataStore");
    EXPECT_EQ(store->GetString("VELMORAMOBILE_PERSISTED_MID_BLOB", ""), "test-blob");
}

TEST(IdentityThreadsTest, DroppingTheHubWithAStoredRowInFlightEndsEveryThreadOfOurs) {
    const std::chrono::milliseconds saved_wait = HitQueueBase::GetRetryWait();
    HitQueueBase::SetRetryWait(std::chrono::seconds(30));
    for (const bool hang : {false, true}) {  // a 503 waiting for its retry, or no answer at all
        TestIdentityServer server;
        Fault fault;
        fault.status = hang ? 200 : 503;
        fault.hang = hang;
        server.SetDefaultFault(fault);
        TempDir dir;
        std::weak_ptr<Identity> weak_identity;
        size_t requests = 0;
        {
            IdentityHarness harness(dir.Path());
            weak_identity = harness.RegisterIdentity();
            ConfigureAndBoot(harness, server);
            ASSERT_TRUE(server.WaitForRequests(1, std::chrono::seconds(20))) << hang;
            // Nothing but the worker is busy: a task that briefly holds the hub is over.
            Settle(harness);
            harness.identity.reset();
            auto start = std::chrono::steady_clock::now();
            harness.hub.reset();  // no Shutdown: the destructor stops it all the same
            EXPECT_LT(std::chrono::steady_clock::now() - start, EventHub::DEFAULT_SHUTDOWN_DEADLINE) << hang;
            requests = server.Requests().size();
            EXPECT_TRUE(weak_identity.expired()) << hang;
        }
        // The harness's services went with it; nothing of ours is left to send anything.
        EXPECT_EQ(OurThreadCount(), 0u) << hang;
        EXPECT_EQ(server.Requests().size(), requests) << hang;
    }
    HitQueueBase::SetRetryWait(saved_wait);
}

TEST(IdentityThreadsTest, AnAnswerForAModuleThatHasLeftIsDroppedWithOneLogLine) {
    TestIdentityServer server;
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    ASSERT_TRUE(harness.hub->UnregisterModule("com.velmora.module.identity"));
    LogCapture log;
    auto processor = std::make_shared<IdentityHitProcessor>(harness.services->GetNetworkService(), nullptr,
                                                            harness.services->GetJsonUtilityService(), identity);
    auto hit = std::make_shared<IdentityDatabaseHit>();
    hit->url = server.BaseUrl() + "/id?d_orgid=" + ORG;
    hit->pair_id = "late";
    EXPECT_EQ(processor->Process(hit), HitProcessResult::DONE);
    EXPECT_EQ(log.Count("Module com.velmora.module.identity is unregistering: task NetworkResponseLoaded dropped"), 1u);
    EXPECT_EQ(identity->blob, "");
}
