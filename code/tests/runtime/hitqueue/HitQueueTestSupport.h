#pragma once

// A small hit type, schema and scriptable processor for the hit queue tests, and their fixture.

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "runtime/hitqueue/DatabaseHitSchema.h"
#include "runtime/hitqueue/HitProcessor.h"
#include "runtime/hitqueue/HitQueue.h"
#include "runtime/services/PlatformServices.h"
#include "runtime/values/Log.h"
#include "runtime/values/TryCatch.h"
#include "tests/runtime/Gate.h"
#include "tests/runtime/services/storage/SqlFiles.h"
#include "tests/support/TempDir.h"

namespace VelmoraTest {

using namespace VelmoraMobile;

class TestHit : public virtual DatabaseHitBase {
public:
    std::string payload;
    int32_t count{0};
};

/// Table TEST_HITS: ID INTEGER PRIMARY KEY AUTOINCREMENT, PAYLOAD TEXT, TIMESTAMP INTEGER, COUNT INTEGER.
/// Without `autoincrement` the key is the plain rowid, which SQLite gives out again.
class TestHitSchema : public DatabaseHitSchema<TestHit> {
public:
    static constexpr const char* DATABASE = "test-hits.sqlite";

    explicit TestHitSchema(bool autoincrement = true) {
        using Type = DatabaseInterface::ColumnDataType;
        using Constraint = DatabaseInterface::ColumnConstraint;
        table_name = "TEST_HITS";
        database_name = DATABASE;
        column_names = {"ID", "PAYLOAD", "TIMESTAMP", "COUNT"};
        column_data_types = {Type::INTEGER, Type::TEXT, Type::INTEGER, Type::INTEGER};
        column_constraints = {{Constraint::PRIMARY_KEY}, {}, {}, {}};
        if (autoincrement) column_constraints[0].push_back(Constraint::AUTOINCREMENT);
    }

    /// Runs at each row read, on the reading thread with the database lock held. Set before the worker starts.
    std::function<void()> on_read;

    std::shared_ptr<TestHit> GenerateHit(const std::shared_ptr<QueryResultInterface>& result) override {
        if (on_read) on_read();
        if (!result) return nullptr;
        auto hit = std::make_shared<TestHit>();
        TryCatchFinally(
            [&] {
                hit->identifier = result->GetString(0);
                hit->payload = result->GetString(1);
                hit->timestamp = std::chrono::seconds(result->GetLong(2));
                hit->count = result->GetInt(3);
            },
            [&](SdkError& error) {
                Log::Error("TestHitSchema", "Unreadable test row: %s", error.GetMessage());
                hit = nullptr;
            },
            [&] { result->Finalize(); });
        return hit;
    }

    std::map<std::string, std::shared_ptr<Variant>> GenerateDataMap(const std::shared_ptr<TestHit>& hit) override {
        if (!hit) return {};
        return {{"PAYLOAD", Variant::FromString(hit->payload)},
                {"TIMESTAMP", Variant::FromLong(hit->timestamp.count())},
                {"COUNT", Variant::FromInteger(hit->count)}};
    }
};

/// Records every hit it is given. `script` decides the answer (default DONE); it runs on the worker.
class TestHitProcessor : public HitProcessor<TestHit> {
public:
    std::function<HitProcessResult(const std::shared_ptr<TestHit>&)> script;

    HitProcessResult Process(const std::shared_ptr<TestHit>& hit) override {
        if (in_process_++ != 0) ++overlaps;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            payloads_.push_back(hit->payload);
        }
        HitProcessResult result = script ? script(hit) : HitProcessResult::DONE;
        --in_process_;
        ++finished;
        return result;
    }

    std::vector<std::string> Payloads() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return payloads_;
    }

    std::atomic<size_t> finished{0};  // hits answered
    std::atomic<int> overlaps{0};     // calls made while another was in process

private:
    mutable std::mutex mutex_;
    std::vector<std::string> payloads_;
    std::atomic<int> in_process_{0};
};

using TestHitQueue = HitQueue<TestHit, TestHitSchema, TestHitProcessor>;

inline std::shared_ptr<TestHit> MakeHit(const std::string& payload, int32_t count = 0) {
    auto hit = std::make_shared<TestHit>();
    hit->payload = payload;
    hit->count = count;
    hit->timestamp = std::chrono::seconds(1700000000);
    return hit;
}

/// A queue with fresh schema and processor over the data folder `dir`.
struct QueueParts {
    std::shared_ptr<PlatformServices> services;
    std::shared_ptr<TestHitSchema> schema = std::make_shared<TestHitSchema>();
    std::shared_ptr<TestHitProcessor> processor = std::make_shared<TestHitProcessor>();
    std::shared_ptr<TestHitQueue> queue;

    explicit QueueParts(const TempDir& dir) : services(std::make_shared<PlatformServices>(dir.Path())) {}

    /// Builds the queue; the processor's script should be set before.
    std::shared_ptr<TestHitQueue> Build() {
        return queue = std::make_shared<TestHitQueue>(services, schema, processor);
    }
};

/// A short retry wait for the test, and a data folder with its hit file.
class HitQueueFixture : public ::testing::Test {
protected:
    void SetUp() override { HitQueueBase::SetRetryWait(std::chrono::milliseconds(20)); }
    void TearDown() override { HitQueueBase::SetRetryWait(std::chrono::seconds(30)); }
    std::string File() const { return dir_.File(TestHitSchema::DATABASE); }
    Rows Sql(const std::string& sql) const { return SqlRows(File(), sql); }

    TempDir dir_;
};

}  // namespace VelmoraTest
