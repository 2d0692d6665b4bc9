// Throughput of the persistent hit queue: rows stored per second, and rows stored then worked off
// by the worker with a processor that answers DONE at once. Every row is a durable SQLite write.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "bench/support/Figures.h"
#include "runtime/hitqueue/DatabaseHitSchema.h"
#include "runtime/hitqueue/HitProcessor.h"
#include "runtime/hitqueue/HitQueue.h"
#include "runtime/services/PlatformServices.h"

using namespace VelmoraMobile;

namespace {

class BenchHit : public virtual DatabaseHitBase {
public:
    std::string url;
};

class BenchSchema : public DatabaseHitSchema<BenchHit> {
public:
    BenchSchema() {
        table_name = "BENCH_REQUESTS";
        database_name = "bench.sqlite";
        column_names = {"ID", "URL", "TIMESTAMP"};
        column_data_types = {DatabaseInterface::ColumnDataType::INTEGER, DatabaseInterface::ColumnDataType::TEXT,
                             DatabaseInterface::ColumnDataType::INTEGER};
        column_constraints = {
            {DatabaseInterface::ColumnConstraint::PRIMARY_KEY, DatabaseInterface::ColumnConstraint::AUTOINCREMENT},
            {},
            {}};
    }

    std::shared_ptr<BenchHit> GenerateHit(const std::shared_ptr<QueryResultInterface>& result) override {
        auto hit = std::make_shared<BenchHit>();
        hit->identifier = result->GetString(0);
        hit->url = result->GetString(1);
        hit->timestamp = std::chrono::seconds(result->GetLong(2));
        result->Finalize();
        return hit;
    }

    std::map<std::string, std::shared_ptr<Variant>> GenerateDataMap(const std::shared_ptr<BenchHit>& hit) override {
        return {{"URL", Variant::FromString(hit->url)}, {"TIMESTAMP", Variant::FromLong(hit->timestamp.count())}};
    }
};

class CountingProcessor : public HitProcessor<BenchHit> {
public:
    HitProcessResult Process(const std::shared_ptr<BenchHit>&) override {
        std::lock_guard<std::mutex> lock(mutex_);
        ++processed_;
        condition_.notify_all();
        return HitProcessResult::DONE;
    }

    void WaitFor(int64_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        condition_.wait(lock, [&] { return processed_ >= count; });
    }

private:
    std::mutex mutex_;
    std::condition_variable condition_;
    int64_t processed_{0};
};

using BenchQueue = HitQueue<BenchHit, BenchSchema, CountingProcessor>;

/// A data folder of its own for one run, removed afterwards.
class ScratchFolder {
public:
    ScratchFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "bench_hit_queue.XXXXXX").string();
        path_ = mkdtemp(pattern.data()) != nullptr ? pattern : std::string();
    }
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

struct Pipeline {
    ScratchFolder folder;
    std::shared_ptr<PlatformServices> services{std::make_shared<PlatformServices>(folder.Path())};
    std::shared_ptr<CountingProcessor> processor{std::make_shared<CountingProcessor>()};
    std::shared_ptr<BenchQueue> queue{
        std::make_shared<BenchQueue>(services, std::make_shared<BenchSchema>(), processor)};

    ~Pipeline() {
        while (!queue->Dispose(std::chrono::milliseconds(1000))) {
        }
    }
};

std::shared_ptr<BenchHit> MakeHit(int64_t n) {
    auto hit = std::make_shared<BenchHit>();
    hit->url = "https://id.example.net/id?d_mid=" + std::to_string(n) + "&d_ver=2&d_orgid=ABC%40VelmoraOrg";
    hit->timestamp = std::chrono::seconds(1700000000 + n);
    return hit;
}

void BM_QueueRows(benchmark::State& state) {
    const int64_t rows = state.range(0);
    for (auto _ : state) {
        state.PauseTiming();
        auto pipeline = std::make_unique<Pipeline>();
        state.ResumeTiming();
        for (int64_t n = 0; n < rows; ++n) {
            pipeline->queue->Queue(MakeHit(n));
        }
        state.PauseTiming();
        pipeline.reset();
        state.ResumeTiming();
    }
    state.counters["rows/s"] =
        benchmark::Counter(static_cast<double>(state.iterations() * rows), benchmark::Counter::kIsRate);
}

void BM_QueueAndDrain(benchmark::State& state) {
    const int64_t rows = state.range(0);
    for (auto _ : state) {
        state.PauseTiming();
        auto pipeline = std::make_unique<Pipeline>();
        state.ResumeTiming();
        for (int64_t n = 0; n < rows; ++n) {
            pipeline->queue->Queue(MakeHit(n));
        }
        pipeline->queue->BringOnline();
        pipeline->processor->WaitFor(rows);
        state.PauseTiming();
        pipeline.reset();
        state.ResumeTiming();
    }
    state.counters["rows/s"] =
        benchmark::Counter(static_cast<double>(state.iterations() * rows), benchmark::Counter::kIsRate);
}

}  // namespace

int main(int argc, char** argv) {
    VelmoraBench::Figures::ParseQuick(argc, argv);
    // Every row is a durable write: a quick run keeps to a few of them.
    const std::vector<int64_t> rows =
        VelmoraBench::Figures::Quick() ? std::vector<int64_t>{20} : std::vector<int64_t>{100, 1000};
    for (int64_t count : rows) {
        benchmark::RegisterBenchmark("BM_QueueRows", BM_QueueRows)
            ->Arg(count)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
        benchmark::RegisterBenchmark("BM_QueueAndDrain", BM_QueueAndDrain)
            ->Arg(count)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
    }
    return VelmoraBench::Figures::Main(argc, argv, [] {});
}
