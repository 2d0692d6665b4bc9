#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Identity.h"
#include "IdentityCoreTestSupport.h"
#include "IdentityHarness.h"
#include "IdentityObject.h"
#include "IdentitySyncTestSupport.h"
#include "LogCapture.h"

using namespace VelmoraMobile;
using VelmoraTest::IdentityHarness;
using VelmoraTest::LogCapture;

namespace {

const std::string UPDATED = "UPDATED_IDENTITY_RESPONSE";

std::shared_ptr<IdentityObject> Answer(const std::string& mid, const std::string& blob, const std::string& hint,
                                       int64_t ttl, const std::string& error = "",
                                       const std::vector<std::string>& opt_out = {}) {
    auto answer = std::make_shared<IdentityObject>();
    answer->SetMid(mid);
    answer->SetBlob(blob);
    answer->SetHint(hint);
    answer->SetTtl(std::chrono::seconds(ttl));
    answer->SetError(error);
    answer->SetOptOut(opt_out);
    return answer;
}

/// A registered module, never booted, so no sync of its own interferes, with a known state.
class IdentityResponseApplicationTest : public ::testing::Test {
protected:
    void SetUp() override {
        identity = harness.RegisterIdentity();
        harness.RunInIdentityQueue([&] {
            identity->mid = "device-mid";
            identity->blob = "old-blob";
            identity->location_hint = "3";
            identity->ttl = std::chrono::seconds(100);
        });
    }

    /// Calls NetworkResponseLoaded as the hit queue would, then waits until its events are delivered.
    void Apply(const std::shared_ptr<IdentityObject>& answer, const std::string& pair_id) {
        harness.RunInIdentityQueue([&] { identity->NetworkResponseLoaded(answer, pair_id, 17); });
        VelmoraTest::Settle(harness);
    }

    std::vector<std::shared_ptr<Event>> Updated() const {
        std::vector<std::shared_ptr<Event>> result;
        for (const auto& event : harness.Events(EventType::IDENTITY, EventSource::RESPONSE_IDENTITY)) {
            if (event->GetName() == UPDATED) result.push_back(event);
        }
        return result;
    }

    std::shared_ptr<DataStoreInterface> Store() {
        return harness.services->GetLocalStorageService()->GetDataStore("visitorIDServiceDataStore");
    }

    struct Fields {
        std::string mid, blob, hint;
        int64_t ttl;
    };
    Fields Read() {
        Fields fields;
        harness.RunInIdentityQueue([&] {
            fields = Fields{identity->mid, identity->blob, identity->location_hint, identity->ttl.count()};
        });
        return fields;
    }

    IdentityHarness harness;
    std::shared_ptr<Identity> identity;
};

}  // namespace

TEST_F(IdentityResponseApplicationTest, AHitWithoutAnswerSavesTheOldStateAndTellsEverybodyAndTheCaller) {
    LogCapture log;
    Apply(nullptr, "pair-1");

    EXPECT_EQ(VelmoraTest::CountIdentityLines(log, LoggingMode::DEBUG_LOG, "empty json object"), 1u);
    Fields fields = Read();
    EXPECT_EQ(fields.blob, "old-blob");
    EXPECT_EQ(fields.hint, "3");
    EXPECT_EQ(fields.ttl, 100);
    // Saved all the same.
    EXPECT_EQ(Store()->GetString("VELMORAMOBILE_PERSISTED_MID_BLOB", ""), "old-blob");
    EXPECT_EQ(Store()->GetLong("VELMORAMOBILE_VISITORID_TTL", 0), 100);

    auto events = Updated();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0]->GetResponsePairID(), "");
    EXPECT_EQ(events[1]->GetResponsePairID(), "pair-1");
    // The two differ only in the pair id.
    EXPECT_EQ(VelmoraTest::KeysOf(events[0]->GetData()), VelmoraTest::KeysOf(events[1]->GetData()));
    for (const auto& event : events) {
        EXPECT_EQ(event->GetData()->OptString("mid", ""), "device-mid");
        EXPECT_EQ(event->GetData()->OptString("blob", ""), "old-blob");
        EXPECT_EQ(event->GetData()->OptString("locationhint", ""), "3");
    }
}

TEST_F(IdentityResponseApplicationTest, AnAnswerWithAMidOverwritesBlobHintAndTtlButNeverTheDeviceMid) {
    LogCapture log;
    Apply(Answer("server-mid", "new-blob", "7", 1800), "");

    Fields fields = Read();
    EXPECT_EQ(fields.mid, "device-mid");
    EXPECT_EQ(fields.blob, "new-blob");
    EXPECT_EQ(fields.hint, "7");
    EXPECT_EQ(fields.ttl, 1800);
    EXPECT_EQ(VelmoraTest::CountIdentityLines(
                  log, LoggingMode::DEBUG_LOG,
                  "ID Service - Got ID Response (mid: device-mid, blob: new-blob, hint: 7, ttl: 1800)"),
              1u);
    EXPECT_EQ(Store()->GetString("VELMORAMOBILE_PERSISTED_MID_BLOB", ""), "new-blob");
    EXPECT_EQ(Store()->GetString("VELMORAMOBILE_PERSISTED_MID", ""), "device-mid");
    EXPECT_EQ(Store()->GetLong("VELMORAMOBILE_VISITORID_TTL", 0), 1800);

    // No pair id: one event, for everybody, carrying the new state.
    auto events = Updated();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0]->GetResponsePairID(), "");
    EXPECT_EQ(events[0]->GetData()->OptString("blob", ""), "new-blob");

    // Missing blob and hint clear what the device had; a missing ttl had already become 600.
    Apply(Answer("server-mid", "", "", 600), "");
    fields = Read();
    EXPECT_EQ(fields.blob, "");
    EXPECT_EQ(fields.hint, "");
    EXPECT_EQ(fields.ttl, 600);
    EXPECT_FALSE(Store()->Contains("VELMORAMOBILE_PERSISTED_MID_BLOB"));
}

TEST_F(IdentityResponseApplicationTest, WithoutAMidOrWithAnErrorTheAnswerChangesNothingButAMissingMid) {
    LogCapture log;
    Apply(Answer("", "blob-without-mid", "5", 60), "");
    Apply(Answer("server-mid", "blob-with-error", "5", 60, "server trouble"), "");
    Fields fields = Read();
    EXPECT_EQ(fields.mid, "device-mid");
    EXPECT_EQ(fields.blob, "old-blob");
    EXPECT_EQ(fields.hint, "3");
    EXPECT_EQ(fields.ttl, 100);
    EXPECT_FALSE(log.ContainsFragment("ID Service - Got ID Response"));
    EXPECT_FALSE(log.ContainsFragment("server trouble"));

    // An error while the device has no MID yet makes one, and only that.
    harness.RunInIdentityQueue([&] { identity->mid.clear(); });
    Apply(Answer("server-mid", "blob-with-error", "5", 60, "server trouble"), "pair-2");
    fields = Read();
    EXPECT_FALSE(fields.mid.empty());
    EXPECT_NE(fields.mid, "server-mid");
    EXPECT_EQ(fields.blob, "old-blob");
    EXPECT_EQ(Store()->GetString("VELMORAMOBILE_PERSISTED_MID", ""), fields.mid);
    auto events = Updated();
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[3]->GetResponsePairID(), "pair-2");
    EXPECT_EQ(events[3]->GetData()->OptString("mid", ""), fields.mid);
}

TEST_F(IdentityResponseApplicationTest, AGlobalOptOutAsksTheConfigurationAndStillAppliesTheAnswer) {
    LogCapture log;
    Fields fields;
    harness.RunInIdentityQueue([&] {
        identity->NetworkResponseLoaded(Answer("server-mid", "new-blob", "7", 1800, "", {"global"}), "", 3);
        // Read in the same task: the configuration's answer may opt the module out right after.
        fields = Fields{identity->mid, identity->blob, identity->location_hint, identity->ttl.count()};
        EXPECT_EQ(identity->privacy_status, MobilePrivacyStatus::OPT_IN);
    });
    EXPECT_EQ(fields.blob, "new-blob");
    EXPECT_EQ(fields.hint, "7");
    EXPECT_EQ(fields.ttl, 1800);
    EXPECT_EQ(VelmoraTest::CountIdentityLines(log, LoggingMode::DEBUG_LOG,
                                              "ID Service - Got Global Opt Out Response, forcing opt out."),
              1u);

    auto request = harness.WaitForEvent([](const std::shared_ptr<Event>& event) {
        return event->GetEventType() == EventType::CONFIGURATION &&
               event->GetEventSource() == EventSource::REQUEST_CONTENT;
    });
    ASSERT_NE(request, nullptr);
    Variant::VariantMap update;
    ASSERT_TRUE(request->GetData()->GetVariantMap("config.update", update));
    ASSERT_EQ(update.size(), 1u);
    std::string privacy;
    ASSERT_TRUE(update.at("global.privacy")->GetString(privacy));
    EXPECT_EQ(privacy, "optedout");
}

TEST_F(IdentityResponseApplicationTest, AnOptedOutModuleDropsTheAnswerYetStillAnswersTwice) {
    harness.RunInIdentityQueue([&] { identity->privacy_status = MobilePrivacyStatus::OPT_OUT; });
    Apply(Answer("server-mid", "new-blob", "7", 1800), "pair-3");

    Fields fields = Read();
    EXPECT_EQ(fields.blob, "old-blob");
    EXPECT_EQ(fields.ttl, 100);
    // Nothing was saved: the store never held a blob.
    EXPECT_FALSE(Store()->Contains("VELMORAMOBILE_PERSISTED_MID_BLOB"));

    auto events = Updated();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0]->GetResponsePairID(), "");
    EXPECT_EQ(events[1]->GetResponsePairID(), "pair-3");
    EXPECT_EQ(events[1]->GetData()->OptString("blob", ""), "old-blob");
}
