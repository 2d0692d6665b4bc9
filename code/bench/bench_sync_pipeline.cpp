// The sync pipeline end to end: syncs through the public API, the module, the data store, the
// SQLite hit queue and libcurl to a local identity server, until the queue is empty again; against
// the bare cost of durability, a SQLite insert and delete per row in WAL mode with full sync. Also
// the syncs to disk per hit, counted in SQLite's own file layer.

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <chrono>
#include <string>
#include <thread>

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

// Hits per second through the whole pipeline, and syncs to disk per hit.
void Pipeline(int count, double& rate, double& syncs_per_hit) {
    VelmoraTestServer::TestIdentityServer server;
    ScratchFolder folder;
    Core core(BenchOptions(folder.Path(), server.Host()));
    auto api = core.IdentityApi();
    const std::string hits = folder.File("VLBMobileIdentity.sqlite");
    AskMid(*api);
    server.WaitForRequests(1, std::chrono::seconds(30));  // the sync at boot
    WaitUntilEmpty(hits);
    const size_t before = server.Requests().size();
    const uint64_t syncs = SyncCounter::Count();
    auto start = Clock::now();
    for (int i = 0; i < count; ++i) {
        // A new value each time, so that every call is a sync that goes out.
        api->SyncIdentifier("bench", "value" + std::to_string(i), VisitorIdAuthenticationState::AUTHENTICATED);
    }
    server.WaitForRequests(before + static_cast<size_t>(count), std::chrono::seconds(600));
    WaitUntilEmpty(hits);
    std::chrono::duration<double> took = Clock::now() - start;
    syncs_per_hit = static_cast<double>(SyncCounter::Count() - syncs) / count;
    rate = count / took.count();
    core.Stop();
}

// The bare baseline: a durable insert and delete per row, as a queue of one row at a time makes.
void Bare(int count, double& rate, double& syncs_per_hit) {
    ScratchFolder folder;
    sqlite3* db = nullptr;
    sqlite3_open_v2(folder.File("bare.sqlite").c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    sqlite3_exec(db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;", nullptr, nullptr, nullptr);
    sqlite3_exec(db,
                 "CREATE TABLE hits (ID INTEGER PRIMARY KEY AUTOINCREMENT, URL TEXT, TIMESTAMP INTEGER, "
                 "PAIR_ID TEXT, EVENT_NUMBER INTEGER, SSL INTEGER)",
                 nullptr, nullptr, nullptr);
    sqlite3_stmt* insert = nullptr;
    sqlite3_stmt* remove = nullptr;
    sqlite3_prepare_v2(db, "INSERT INTO hits (URL, TIMESTAMP, PAIR_ID, EVENT_NUMBER, SSL) VALUES (?1, 1, '', 1, 0)", -1,
                       &insert, nullptr);
    sqlite3_prepare_v2(db, "DELETE FROM hits WHERE ID = ?1", -1, &remove, nullptr);
    const std::string url = "http://127.0.0.1:1/id?d_mid=12345678901234567890123456789012345678&d_ver=2";
    const uint64_t syncs = SyncCounter::Count();
    auto start = Clock::now();
    for (int i = 0; i < count; ++i) {
        sqlite3_bind_text(insert, 1, url.c_str(), -1, SQLITE_STATIC);
        sqlite3_step(insert);
        sqlite3_reset(insert);
        sqlite3_bind_int64(remove, 1, sqlite3_last_insert_rowid(db));
        sqlite3_step(remove);
        sqlite3_reset(remove);
    }
    std::chrono::duration<double> took = Clock::now() - start;
    syncs_per_hit = static_cast<double>(SyncCounter::Count() - syncs) / count;
    rate = count / took.count();
    sqlite3_finalize(insert);
    sqlite3_finalize(remove);
    sqlite3_close_v2(db);
}

// Runs `measure` (a rate and syncs per item) once per iteration and records both under `figure`.
void Measure(benchmark::State& state, void (*measure)(int, double&, double&), const std::string& figure,
             const std::string& unit) {
    for (auto _ : state) {
        double rate = 0;
        double syncs = 0;
        measure(static_cast<int>(state.range(0)), rate, syncs);
        state.counters[unit + "s/s"] = rate;
        state.counters["fsyncs/" + unit] = syncs;
        Figures::Record(figure, rate);
        Figures::Record(figure + "/syncs", syncs);
    }
}

void BM_SyncPipeline(benchmark::State& state) {
    Measure(state, Pipeline, "pipeline", "hit");
}

void BM_BareInsertDelete(benchmark::State& state) {
    Measure(state, Bare, "bare", "pair");
}

void Report() {
    Figures::Compare("sync pipeline (hits/s)", "pipeline", "bare", "/s", ">= 0.7x");
    Figures::Compare("syncs to disk per hit", "pipeline/syncs", "bare/syncs", "", "<= 3 per hit");
}

}  // namespace

int main(int argc, char** argv) {
    SyncCounter::Install();
    Figures::ParseQuick(argc, argv);
    benchmark::RegisterBenchmark("BM_SyncPipeline", BM_SyncPipeline)
        ->Arg(Count())
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("BM_BareInsertDelete", BM_BareInsertDelete)
        ->Arg(Count())
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
    return Figures::Main(argc, argv, Report);
}
