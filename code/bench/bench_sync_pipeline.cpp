// The sync pipeline end to end: syncs through the public API, the module, the data store, the
// SQLite hit queue and libcurl to a local identity server, until the queue is empty again; against
// the bare cost of durability, a SQLite insert and delete per row in WAL mode with full sync, the
// two taking turns. Also the syncs to disk per hit, counted in SQLite's own file layer.

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "bench/support/BenchCore.h"
#include "bench/support/Figures.h"
#include "bench/support/SyncCounter.h"
#include "tools/server/TestIdentityServer.h"

using namespace VelmoraMobile;
using namespace VelmoraBench;

namespace {

using Clock = std::chrono::steady_clock;

int Count() {
    return Figures::Quick() ? 100 : 2000;
}

// Rows left in the identity hit table; -1 when it cannot be read.
int64_t QueuedRows(const std::string& file) {
    sqlite3* db = nullptr;
    int64_t rows = -1;
    if (sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_stmt* count = nullptr;
        if (sqlite3_prepare_v2(db, "SELECT count(*) FROM IDENTITY_REQUESTS", -1, &count, nullptr) == SQLITE_OK &&
            sqlite3_step(count) == SQLITE_ROW) {
            rows = sqlite3_column_int64(count, 0);
        }
        sqlite3_finalize(count);
    }
    sqlite3_close_v2(db);
    return rows;
}

void WaitUntilEmpty(const std::string& file) {
    while (QueuedRows(file) != 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// The whole pipeline, one core and server for every round.
class Pipeline {
public:
    Pipeline() : core_(BenchOptions(folder_.Path(), server_.Host())), hits_(folder_.File("VLBMobileIdentity.sqlite")) {
        AskMid(*core_.IdentityApi());
        server_.WaitForRequests(1, std::chrono::seconds(30));  // the sync at boot
        WaitUntilEmpty(hits_);
    }
    ~Pipeline() { core_.Stop(); }

    // Seconds for `count` syncs, from the first call until the queue is empty again.
    double Run(int count) {
        auto api = core_.IdentityApi();
        const size_t before = server_.Requests().size();
        auto start = Clock::now();
        for (int i = 0; i < count; ++i) {
            // A new value each time, so that every call is a sync that goes out.
            api->SyncIdentifier("bench", "value" + std::to_string(next_++),
                                VisitorIdAuthenticationState::AUTHENTICATED);
        }
        server_.WaitForRequests(before + static_cast<size_t>(count), std::chrono::seconds(600));
        WaitUntilEmpty(hits_);
        return std::chrono::duration<double>(Clock::now() - start).count();
    }

private:
    VelmoraTestServer::TestIdentityServer server_;
    ScratchFolder folder_;
    Core core_;
    const std::string hits_;
    int next_{0};
};

// The bare baseline: a durable insert and delete per row, as a queue of one row at a time makes.
class Bare {
public:
    Bare() {
        sqlite3_open_v2(folder_.File("bare.sqlite").c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
        sqlite3_exec(db_, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;", nullptr, nullptr, nullptr);
        sqlite3_exec(db_,
                     "CREATE TABLE hits (ID INTEGER PRIMARY KEY AUTOINCREMENT, URL TEXT, TIMESTAMP INTEGER, "
                     "PAIR_ID TEXT, EVENT_NUMBER INTEGER, SSL INTEGER)",
                     nullptr, nullptr, nullptr);
        sqlite3_prepare_v2(db_,
                           "INSERT INTO hits (URL, TIMESTAMP, PAIR_ID, EVENT_NUMBER, SSL) VALUES (?1, 1, '', 1, 0)", -1,
                           &insert_, nullptr);
        sqlite3_prepare_v2(db_, "DELETE FROM hits WHERE ID = ?1", -1, &remove_, nullptr);
    }
    ~Bare() {
        sqlite3_finalize(insert_);
        sqlite3_finalize(remove_);
        sqlite3_close_v2(db_);
    }

    // Seconds for `count` insert and delete pairs.
    double Run(int count) {
        static const std::string url = "http://127.0.0.1:1/id?d_mid=12345678901234567890123456789012345678&d_ver=2";
        auto start = Clock::now();
        for (int i = 0; i < count; ++i) {
            sqlite3_bind_text(insert_, 1, url.c_str(), -1, SQLITE_STATIC);
            sqlite3_step(insert_);
            sqlite3_reset(insert_);
            sqlite3_bind_int64(remove_, 1, sqlite3_last_insert_rowid(db_));
            sqlite3_step(remove_);
            sqlite3_reset(remove_);
        }
        return std::chrono::duration<double>(Clock::now() - start).count();
    }

private:
    ScratchFolder folder_;
    sqlite3* db_{nullptr};
    sqlite3_stmt* insert_{nullptr};
    sqlite3_stmt* remove_{nullptr};
};

double Median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

// The disk's speed swings by twice within seconds on a shared machine, so the two sides take
// turns in rounds and each round's ratio compares neighbours; the median round is the figure.
void BM_SyncPipelineBesideBare(benchmark::State& state) {
    const int rounds = Figures::Quick() ? 1 : 5;
    const int count = static_cast<int>(state.range(0)) / rounds;
    for (auto _ : state) {
        Pipeline pipeline;
        Bare bare;
        std::vector<double> ours;
        std::vector<double> baseline;
        std::vector<double> ratios;
        uint64_t pipeline_syncs = 0;
        uint64_t bare_syncs = 0;
        for (int round = 0; round < rounds; ++round) {
            uint64_t before = SyncCounter::Count();
            ours.push_back(count / pipeline.Run(count));
            pipeline_syncs += SyncCounter::Count() - before;
            before = SyncCounter::Count();
            baseline.push_back(count / bare.Run(count));
            bare_syncs += SyncCounter::Count() - before;
            ratios.push_back(ours.back() / baseline.back());
        }
        state.counters["hits/s"] = Median(ours);
        state.counters["pairs/s"] = Median(baseline);
        Figures::Record("pipeline", Median(ours));
        Figures::Record("bare", Median(baseline));
        Figures::Record("ratio", Median(ratios));
        Figures::Record("pipeline/syncs", static_cast<double>(pipeline_syncs) / (count * rounds));
        Figures::Record("bare/syncs", static_cast<double>(bare_syncs) / (count * rounds));
    }
}

void Report() {
    Figures::Compare("sync pipeline (hits/s), median round", "pipeline", "bare", "/s", ">= 0.7x");
    Figures::Show("the same as the median of each round's ratio to its neighbouring bare run", "ratio", "x", ">= 0.7x");
    Figures::Compare("syncs to disk per hit", "pipeline/syncs", "bare/syncs", "", "<= 3 per hit");
}

}  // namespace

int main(int argc, char** argv) {
    SyncCounter::Install();
    Figures::ParseQuick(argc, argv);
    benchmark::RegisterBenchmark("BM_SyncPipelineBesideBare", BM_SyncPipelineBesideBare)
        ->Arg(Count())
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
    return Figures::Main(argc, argv, Report);
}
