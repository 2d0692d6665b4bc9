// IdentityPublicApi against a real hub, the configuration extension, the identity module and the
// test identity server: what each operation meets at the module.

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "identity/api/IdentityPublicApi.h"
#include "identity/module/IdentityConstants.h"
#include "runtime/bus/EventSource.h"
#include "runtime/bus/EventType.h"
#include "runtime/values/Variant.h"
#include "tests/identity/api/Answers.h"
#include "tests/identity/support/IdentityHarness.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"
#include "tools/server/TestIdentityServer.h"

using namespace VelmoraMobile;
using VelmoraTest::IdAnswers;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;
using VelmoraTest::StringAnswers;

namespace {

const std::string ORG = "0123456789ABCDEF@VelmoraOrg";

class IdentityPublicApiTest : public ::testing::Test {
protected:
    void SetUp() override {
        harness.RegisterIdentity();
        api = IdentityPublicApi::Create(harness.hub, harness.services);
    }

    void Configure(const std::string& org, const std::string& privacy) {
        Variant::VariantMap values{{"ondaraCloud.server", Variant::FromString(server.Host())},
                                   {"global.ssl", Variant::FromBoolean(false)},
                                   {"global.privacy", Variant::FromString(privacy)}};
        if (!org.empty()) values["ondaraCloud.org"] = Variant::FromString(org);
        harness.ConfigureVariants(values);
    }

    /// Sends a getter and waits for its answer: every request sent before it has been answered
    /// by then, since the module answers in order and the hub delivers in order.
    std::string AnsweredMarker() {
        auto marker = std::make_shared<StringAnswers>();
        api->GetUserIdentifier(marker->StringCallback());
        EXPECT_TRUE(marker->WaitForCount(1)) << "the marker request got no answer";
        return marker->First();
    }

    /// Waits until the module's queue holds `count` events (once every request sent has been heard).
    bool QueueHolds(size_t count) {
        return VelmoraTest::WaitFor([&] {
            size_t size = 0;
            harness.RunInIdentityQueue([&] { size = harness.identity->event_queue.size(); });
            return size == count;
        });
    }

    size_t IdRequestsSeen() const {
        size_t count = 0;
        for (const auto& request : server.Requests()) count += request.path == "/id";
        return count;
    }

    VelmoraTestServer::TestIdentityServer server;
    IdentityHarness harness;
    std::shared_ptr<IdentityPublicApi> api;
};

TEST_F(IdentityPublicApiTest, OptedOutDropsSyncsRefusesTheUserIdAndAnswersWhatIsLeft) {
    Configure(ORG, "optedout");
    LogCapture log;
    harness.Boot();  // its forced sync is dropped too
    api->SyncIdentifier("crm", "alice", VisitorIdAuthenticationState::AUTHENTICATED);
    api->SyncIdentifiers({{"loyalty", "L-1"}});
    api->SyncIdentifiers({{"club", "C-2"}}, VisitorIdAuthenticationState::LOGGED_OUT);
    api->SetUserIdentifier("bob");
    auto url = std::make_shared<StringAnswers>();
    api->AppendToUrl("https://shop.example/cart", url->StringCallback());
    auto strings = std::make_shared<StringAnswers>();
    api->GetOndaraCloudId(strings->StringCallback());
    api->GetPushIdentifier(strings->StringCallback());
    api->GetAdvertisingIdentifier(strings->StringCallback());
    auto ids = std::make_shared<IdAnswers>();
    api->GetIdentifiers(ids->IdsCallback());

    EXPECT_EQ(AnsweredMarker(), "") << "the user identifier was set although opted out";
    EXPECT_EQ(log.Count("Ignoring ID Sync due to privacy status opt out."), 4u);
    EXPECT_TRUE(log.Contains("cannot set user identifier with privacy opt out. sharing"));
    EXPECT_EQ(strings->Values(), (std::vector<std::string>{"", "", ""}));
    EXPECT_EQ(ids->Count(), 0u);
    std::string decorated = url->First();
    EXPECT_EQ(decorated.rfind("https://shop.example/cart?velmora_mc=TS%3D", 0), 0u) << decorated;
    EXPECT_NE(decorated.find("%7COCORGID%3D0123456789ABCDEF%40VelmoraOrg"), std::string::npos) << decorated;
    EXPECT_EQ(decorated.find("OCMID"), std::string::npos) << decorated;
    EXPECT_EQ(decorated.find("velmora_aa_vid"), std::string::npos) << decorated;
    EXPECT_EQ(IdRequestsSeen(), 0u);
}

TEST_F(IdentityPublicApiTest, EachGetterReadsItsOwnValueAndEmptyWhenThereIsNone) {
    Configure(ORG, "optedin");
    auto empty = std::make_shared<StringAnswers>();
    api->GetOndaraCloudId(empty->StringCallback());
    api->GetPushIdentifier(empty->StringCallback());
    api->GetAdvertisingIdentifier(empty->StringCallback());
    api->GetUserIdentifier(empty->StringCallback());
    auto no_ids = std::make_shared<IdAnswers>();
    api->GetIdentifiers(no_ids->IdsCallback());
    AnsweredMarker();
    EXPECT_EQ(empty->Values(), (std::vector<std::string>{"", "", "", ""}));
    EXPECT_EQ(no_ids->Count(), 0u) << "GetIdentifiers called back without customer ids";

    harness.RunInIdentityQueue([&] {
        Identity& identity = *harness.identity;
        identity.mid = "mid-1";
        identity.push_identifier = "push-1";
        identity.advertising_identifier = "adid-1";
        identity.user_identifier = "vid-1";
        identity.customer_ids = {
            std::make_shared<VisitorId>("d_cid_ic", "crm", "alice", VisitorIdAuthenticationState::AUTHENTICATED),
            std::make_shared<VisitorId>("d_cid_ic", "loyalty", "L-1", VisitorIdAuthenticationState::LOGGED_OUT)};
    });
    using Getter = void (*)(IdentityPublicApi&, const IdentityPublicApi::StringCallback&);
    const std::vector<std::pair<Getter, std::string>> getters{
        {[](IdentityPublicApi& a, const IdentityPublicApi::StringCallback& c) { a.GetOndaraCloudId(c); }, "mid-1"},
        {[](IdentityPublicApi& a, const IdentityPublicApi::StringCallback& c) { a.GetPushIdentifier(c); }, "push-1"},
        {[](IdentityPublicApi& a, const IdentityPublicApi::StringCallback& c) { a.GetAdvertisingIdentifier(c); },
         "adid-1"},
        {[](IdentityPublicApi& a, const IdentityPublicApi::StringCallback& c) { a.GetUserIdentifier(c); }, "vid-1"},
    };
    for (const auto& getter : getters) {
        auto answer = std::make_shared<StringAnswers>();
        getter.first(*api, answer->StringCallback());
        EXPECT_EQ(answer->First(), getter.second);
    }
    auto ids = std::make_shared<IdAnswers>();
    api->GetIdentifiers(ids->IdsCallback());
    auto list = ids->First();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0]->id_type, "crm");
    EXPECT_EQ(list[0]->authentication_state, VisitorIdAuthenticationState::AUTHENTICATED);
    EXPECT_EQ(list[1]->id, "L-1");
    EXPECT_EQ(list[1]->id_origin, "d_cid_ic");
}

TEST_F(IdentityPublicApiTest, EverythingWaitsForAPendingConfigurationThenRunsInOrder) {
    harness.Boot();
    api->SyncIdentifier("crm", "alice", VisitorIdAuthenticationState::AUTHENTICATED);
    api->SetUserIdentifier("vid-7");
    auto user = std::make_shared<StringAnswers>();
    api->GetUserIdentifier(user->StringCallback());
    auto mid = std::make_shared<StringAnswers>();
    api->GetOndaraCloudId(mid->StringCallback());
    auto ids = std::make_shared<IdAnswers>();
    api->GetIdentifiers(ids->IdsCallback());
    auto url = std::make_shared<StringAnswers>();
    api->AppendToUrl("https://shop.example/", url->StringCallback());

    // The boot's forced sync and the six requests stand in the queue; nothing was answered.
    EXPECT_TRUE(QueueHolds(7));
    EXPECT_EQ(user->Count() + mid->Count() + ids->Count() + url->Count(), 0u);

    Configure(ORG, "optedin");
    EXPECT_EQ(user->First(), "vid-7");
    EXPECT_EQ(mid->First().size(), 38u);
    ASSERT_EQ(ids->First().size(), 1u);
    EXPECT_EQ(ids->First()[0]->id, "alice");
    EXPECT_NE(url->First().find("OCMID%3D" + mid->First()), std::string::npos);
    ASSERT_TRUE(server.WaitForRequests(2, std::chrono::seconds(20)));
    EXPECT_NE(server.Requests()[1].query.find("&d_cid_ic=crm%01alice%011"), std::string::npos);
}

TEST_F(IdentityPublicApiTest, RequestsCarryTheirDataAndEmptyCallbacksSendNothing) {
    Configure(ORG, "optedin");
    api->GetOndaraCloudId(nullptr);
    api->GetPushIdentifier(nullptr);
    api->GetAdvertisingIdentifier(nullptr);
    api->GetUserIdentifier(nullptr);
    api->GetIdentifiers(nullptr);
    api->AppendToUrl("https://shop.example/", nullptr);
    api->CreateIdentityRequestWithOneTimeCallbackWithStringCallbackParam("mid", nullptr, nullptr);
    api->CreateIdentityRequestWithOneTimeCallbackWithVisitorIdCallbackParam("visitoridslist", nullptr, nullptr);

    api->SyncIdentifiers({});
    api->SyncIdentifier("", "v", VisitorIdAuthenticationState::AUTHENTICATED);
    api->SyncIdentifiers({{"a", "1"}, {"b", "2"}}, VisitorIdAuthenticationState::LOGGED_OUT);
    api->SetUserIdentifier("");
    auto url = std::make_shared<StringAnswers>();
    api->AppendToUrl("", url->StringCallback());
    EXPECT_EQ(url->First(), "");
    AnsweredMarker();

    auto requests = harness.Events(EventType::IDENTITY, EventSource::REQUEST_IDENTITY);
    ASSERT_EQ(requests.size(), 6u) << "an empty callback sent a request";
    for (const auto& request : requests) EXPECT_EQ(request->GetName(), "IdentityRequestIdentity");
    struct Sync {
        std::map<std::string, std::string> identifiers;
        int32_t state;
    };
    const std::vector<Sync> syncs{{{}, 0}, {{{"", "v"}}, 1}, {{{"a", "1"}, {"b", "2"}}, 2}};
    for (size_t i = 0; i < syncs.size(); ++i) {
        const auto& data = requests[i]->GetData();
        std::map<std::string, std::string> identifiers{{"stale", "entry"}};
        EXPECT_TRUE(data->GetStringMap("visitoridentifiers", identifiers)) << i;
        EXPECT_EQ(identifiers, syncs[i].identifiers) << i;
        EXPECT_EQ(data->OptInteger("authenticationstate", -1), syncs[i].state) << i;
        EXPECT_FALSE(data->OptBoolean("forcesync", true)) << i;
        EXPECT_TRUE(data->OptBoolean("issyncevent", false)) << i;
        EXPECT_EQ(data->GetEntries().size(), 4u) << i;
    }
    EXPECT_EQ(requests[3]->GetData()->OptString("vid", "absent"), "");
    EXPECT_EQ(requests[3]->GetData()->GetEntries().size(), 1u);
    EXPECT_EQ(requests[4]->GetData()->OptString("baseurl", "absent"), "");
    EXPECT_TRUE(requests[5]->GetData()->IsEmpty());
}

TEST_F(IdentityPublicApiTest, RegisterIdentityTwiceKeepsOneModule) {
    LogCapture log;
    api->RegisterIdentity();
    IdentityPublicApi::Create(harness.hub, harness.services)->RegisterIdentity();
    EXPECT_TRUE(harness.hub->IsRegisteredModule("com.velmora.module.identity"));
    EXPECT_FALSE(log.ContainsFragment("Cannot register module"));
}

TEST(IdentityPublicApiWithoutModule, CallsAreLoggedAndDroppedWithoutCallback) {
    IdentityHarness harness;  // a hub without the identity module, as after a stop
    auto answers = std::make_shared<StringAnswers>();
    LogCapture log;
    auto detached = IdentityPublicApi::Create(nullptr, nullptr);
    detached->GetOndaraCloudId(answers->StringCallback());
    detached->SyncIdentifier("crm", "alice", VisitorIdAuthenticationState::UNKNOWN);
    detached->RegisterIdentity();
    auto unregistered = IdentityPublicApi::Create(harness.hub, harness.services);
    unregistered->AppendToUrl("https://shop.example/", answers->StringCallback());
    unregistered->SetUserIdentifier("vid");

    const std::string no_core = " ignored: no core is running. Start the core before calling the identity API";
    EXPECT_TRUE(log.Contains("GetOndaraCloudId" + no_core));
    EXPECT_TRUE(log.Contains("DispatchIdSyncEvent" + no_core));
    EXPECT_TRUE(log.Contains("RegisterIdentity" + no_core));
    const std::string no_module =
        " ignored: the identity module is not registered on this hub (the core is stopped or not started)";
    EXPECT_TRUE(log.Contains("AppendToUrl" + no_module));
    EXPECT_TRUE(log.Contains("SetUserIdentifier" + no_module));
    harness.Shutdown();
    EXPECT_TRUE(harness.Events(EventType::IDENTITY, EventSource::REQUEST_IDENTITY).empty());
    EXPECT_EQ(answers->Count(), 0u);
}

}  // namespace
