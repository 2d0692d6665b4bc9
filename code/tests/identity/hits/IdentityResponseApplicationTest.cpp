#include "identity/hits/IdentityObject.h"
#include "identity/module/IdentityConstants.h"
#include "tests/identity/ids/IdentitySyncTestSupport.h"
#include "tests/identity/state/IdentityStateTestSupport.h"
#include "tests/identity/support/IdentityCoreTestSupport.h"
using namespace VelmoraMobile;
using namespace VelmoraTest;
using Strings = std::vector<std::string>;

namespace {

std::shared_ptr<IdentityObject> Answer(const std::string& mid, const std::string& blob, const std::string& error = "") {
    auto answer = std::make_shared<IdentityObject>();
    answer->SetMid(mid);
    answer->SetBlob(blob);
    answer->SetHint(blob.empty() ? "" : "7");
    answer->SetTtl(std::chrono::seconds(blob.empty() ? 600 : 1800));
    answer->SetError(error);
    return answer;
}

}  // namespace

// A registered module, never booted, so no sync of its own interferes, with a known state.
TEST(IdentityResponseApplicationTest, OnlyAnAnswerWithAMidAndNoErrorChangesTheStateEveryAnswerIsAnsweredTwice) {
    IdentityHarness harness;
    auto identity = harness.RegisterIdentity();
    harness.RunInIdentityQueue([&] {
        identity->mid = "device-mid";
        identity->blob = "old-blob";
        identity->location_hint = "3";
        identity->ttl = std::chrono::seconds(100);
    });
    auto store = Store(harness);
    std::shared_ptr<Event> last;  // the newest UPDATED event
    // Calls NetworkResponseLoaded as the hit queue would; returns the pair ids of the UPDATED events it sent.
    auto apply = [&](const std::shared_ptr<IdentityObject>& answer, const std::string& pair_id) {
        const size_t before = harness.Events().size();
        harness.RunInIdentityQueue([&] { identity->NetworkResponseLoaded(answer, pair_id, 17); });
        Settle(harness);
        Strings pair_ids;
        auto events = harness.Events();
        for (size_t i = before; i < events.size(); ++i) {
            if (events[i]->GetName() != "UPDATED_IDENTITY_RESPONSE") continue;
            pair_ids.push_back(events[i]->GetResponsePairID());
            last = events[i];
        }
        return pair_ids;
    };
    LogCapture log;
    EXPECT_EQ(apply(nullptr, "pair-1"), (Strings{"", "pair-1"}));
    EXPECT_EQ(CountIdentityLines(log, LoggingMode::DEBUG_LOG, "empty json object"), 1u);
    EXPECT_EQ(last->GetData()->OptString("mid", ""), "device-mid");
    EXPECT_EQ(apply(Answer("", "blob-without-mid"), "pair-2"), (Strings{"", "pair-2"}));
    EXPECT_EQ(apply(Answer("server-mid", "blob-with-error", "server trouble"), ""), Strings{""});
    EXPECT_EQ(Fields(harness), "device-mid|||3|old-blob|||100|0");
    EXPECT_FALSE(log.ContainsFragment("ID Service - Got ID Response"));

    // An error while the device has no MID yet makes one, and only that.
    harness.RunInIdentityQueue([&] { identity->mid.clear(); });
    apply(Answer("server-mid", "blob-with-error", "server trouble"), "pair-3");
    const std::string mid = store->GetString("VELMORAMOBILE_PERSISTED_MID", "");
    EXPECT_EQ(mid.size(), 38u);
    EXPECT_EQ(Fields(harness), mid + "|||3|old-blob|||100|0");
    EXPECT_EQ(last->GetData()->OptString("mid", ""), mid);

    // An answer with a MID takes blob, hint and ttl, never the server's MID.
    EXPECT_EQ(apply(Answer("server-mid", "new-blob"), ""), Strings{""});
    EXPECT_EQ(Fields(harness), mid + "|||7|new-blob|||1800|0");
    EXPECT_EQ(last->GetData()->OptString("blob", ""), "new-blob");
    EXPECT_EQ(CountIdentityLines(log, LoggingMode::DEBUG_LOG,
                                 "ID Service - Got ID Response (mid: " + mid + ", blob: new-blob, hint: 7, ttl: 1800)"),
              1u);
    EXPECT_EQ(store->GetString("VELMORAMOBILE_PERSISTED_MID_BLOB", ""), "new-blob");

    // Missing blob and hint clear what the device had.
    apply(Answer("server-mid", ""), "");
    EXPECT_EQ(Fields(harness), mid + "|||||||600|0");
    EXPECT_FALSE(store->Contains("VELMORAMOBILE_PERSISTED_MID_BLOB"));

    // An opt-out list asks for the opt-out and still takes the rest of the answer.
    auto opted_out = Answer("server-mid", "optout-blob");
    opted_out->SetOptOut({"global"});
    harness.RunInIdentityQueue([&] {
        identity->ParseIDsOnjsonResponseReceivedCallback(opted_out);
        EXPECT_EQ((Strings{identity->blob, identity->location_hint}), (Strings{"optout-blob", "7"}));
        EXPECT_EQ(identity->ttl.count(), 1800);
    });
    EXPECT_EQ(
        CountIdentityLines(log, LoggingMode::DEBUG_LOG, "ID Service - Got Global Opt Out Response, forcing opt out."),
        1u);
    auto update = harness.WaitForEvent([](const auto& e) {
        return e->GetEventType() == EventType::CONFIGURATION && e->GetEventSource() == EventSource::REQUEST_CONTENT;
    });
    ASSERT_NE(update, nullptr);
    EXPECT_EQ(update->GetName(), "Configuration Update From Identity Module");
    std::shared_ptr<Variant> values;
    ASSERT_TRUE(update->GetData()->GetVariant("config.update", values));
    EXPECT_EQ(StringUtils::ToString(*values), "{global.privacy: \"optedout\"}");
    // The configuration takes it and the module wipes on its own queue; the checks below need that done.
    ASSERT_TRUE(WaitFor([&] {
        bool out = false;
        harness.RunInIdentityQueue([&] { out = identity->privacy_status == MobilePrivacyStatus::OPT_OUT; });
        return out;
    }));

    // The record handed out is reused until a field changes: each field alone must renew it.
    namespace Keys = IdentityConstants::EventDataKeys::Identity;
    harness.RunInIdentityQueue([&] {
        const std::pair<std::string*, const std::string*> fields[] = {
            {&identity->mid, &Keys::VISITOR_ID_MID},
            {&identity->user_identifier, &Keys::USER_IDENTIFIER},
            {&identity->advertising_identifier, &Keys::ADVERTISING_IDENTIFIER},
            {&identity->push_identifier, &Keys::PUSH_IDENTIFIER},
            {&identity->blob, &Keys::VISITOR_ID_BLOB},
            {&identity->location_hint, &Keys::VISITOR_ID_LOCATION_HINT}};
        for (const auto& [field, key] : fields) {
            identity->PackageEventData();
            *field = "changed-" + *key;
            EXPECT_EQ(identity->PackageEventData()->OptString(*key, ""), *field) << *key;
        }
        identity->last_sync = std::chrono::seconds(4242);
        EXPECT_EQ(identity->PackageEventData()->OptLong(Keys::VISITOR_IDS_LAST_SYNC, 0), 4242);
    });

    // An opted-out module keeps and saves nothing, yet still answers.
    const std::string kept = Fields(harness);
    store->Remove("VELMORAMOBILE_PERSISTED_MID_BLOB");
    EXPECT_EQ(apply(Answer("server-mid", "new-blob"), "pair-4"), (Strings{"", "pair-4"}));
    EXPECT_EQ(Fields(harness), kept);
    EXPECT_FALSE(store->Contains("VELMORAMOBILE_PERSISTED_MID_BLOB"));
}
