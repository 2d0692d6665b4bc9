// Start-up: from constructing a core to the first answer of the identity module.
// - with 1,000 stored customer ids, against the bare cost of opening the data store file and
//   reading the key that holds them;
// - with 10,000 hits queued from an earlier run, against the same start with none;
// - and the resident memory that an idle started core adds to the process.

#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "bench/support/AllocationCounter.h"
#include "bench/support/BenchCore.h"
#include "bench/support/Figures.h"
#include "bench/support/SyncCounter.h"
#include "tools/server/TestIdentityServer.h"

using namespace VelmoraMobile;
using namespace VelmoraBench;

namespace {

using Clock = std::chrono::steady_clock;

// No identity server listens here: queued hits stay queued while the starts are timed.
const char* const kNoServer = "127.0.0.1:9";

int Starts() {
    return Figures::Quick() ? 3 : 30;
}

double Median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

// CPU time of the whole process (every thread: the core's, and the test server's if it works
// meanwhile), in milliseconds. On a shared machine it moves less than the wall time.
double ProcessCpuMs() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

// Milliseconds from constructing a core on `folder` to the MID in hand; the median of Starts().
// `syncs` gets the syncs to disk made before the answer, per start; `cpu` the median CPU time
// of the process over the same span, and `allocations` the median count of operator new calls.
double StartToFirstAnswer(const std::string& folder, const std::string& server, double* syncs = nullptr,
                          double* cpu = nullptr, double* allocations = nullptr) {
    std::vector<double> times;
    std::vector<double> cpu_times;
    std::vector<double> allocation_counts;
    uint64_t synced = 0;
    for (int i = 0; i < Starts(); ++i) {
        const uint64_t before = SyncCounter::Count();
        const double cpu_before = ProcessCpuMs();
        const uint64_t allocations_before = AllocationCounter::Count();
        auto start = Clock::now();
        Core core(BenchOptions(folder, server));
        AskMid(*core.IdentityApi());
        times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        cpu_times.push_back(ProcessCpuMs() - cpu_before);
        allocation_counts.push_back(static_cast<double>(AllocationCounter::Count() - allocations_before));
        synced += SyncCounter::Count() - before;
        core.Stop();
    }
    if (syncs != nullptr) {
        *syncs = static_cast<double>(synced) / Starts();
    }
    if (cpu != nullptr) {
        *cpu = Median(cpu_times);
    }
    if (allocations != nullptr) {
        *allocations = Median(allocation_counts);
    }
    return Median(times);
}

// A folder whose identity module has a MID and `ids` customer ids, synced once.
void StoreCustomerIds(const std::string& folder, int ids) {
    VelmoraTestServer::TestIdentityServer server;
    Core core(BenchOptions(folder, server.Host()));
    std::map<std::string, std::string> identifiers;
    for (int i = 0; i < ids; ++i) {
        identifiers["type" + std::to_string(i)] = "customer-id-" + std::to_string(i);
    }
    core.IdentityApi()->SyncIdentifiers(identifiers);
    AskMid(*core.IdentityApi());  // answered after the sync has been saved
    server.WaitForRequests(1, std::chrono::seconds(10));
    core.Stop();
}

// Copies the one queued hit of `folder` until there are `rows`, in one transaction.
void QueueRows(const std::string& folder, int rows) {
    {
        Core core(BenchOptions(folder, kNoServer));  // the sync at boot stays queued
        AskMid(*core.IdentityApi());
        core.Stop();
    }
    sqlite3* db = nullptr;
    sqlite3_open_v2((folder + "/VLBMobileIdentity.sqlite").c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
    std::string columns;
    sqlite3_stmt* info = nullptr;
    sqlite3_prepare_v2(db, "SELECT name FROM pragma_table_info('IDENTITY_REQUESTS') WHERE pk = 0", -1, &info, nullptr);
    while (sqlite3_step(info) == SQLITE_ROW) {
        columns +=
            (columns.empty() ? "" : ", ") + std::string(reinterpret_cast<const char*>(sqlite3_column_text(info, 0)));
    }
    sqlite3_finalize(info);
    const std::string copy = "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
                             std::to_string(rows - 1) + ") INSERT INTO IDENTITY_REQUESTS (" + columns + ") SELECT " +
                             columns + " FROM n, (SELECT * FROM IDENTITY_REQUESTS LIMIT 1)";
    sqlite3_exec(db, copy.c_str(), nullptr, nullptr, nullptr);
    sqlite3_close_v2(db);
}

// The bare baseline of a cold start: open the data store file and read the customer ids' key.
double OpenAndRead(const std::string& folder) {
    std::vector<double> times;
    size_t size = 0;
    for (int i = 0; i < Starts(); ++i) {
        auto start = Clock::now();
        sqlite3* db = nullptr;
        sqlite3_open_v2((folder + "/VelmoraDataStores.sqlite").c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
        sqlite3_stmt* read = nullptr;
        sqlite3_prepare_v2(db,
                           "SELECT value FROM data_stores WHERE store = 'visitorIDServiceDataStore' AND key = "
                           "'VELMORAMOBILE_VISITORID_IDS'",
                           -1, &read, nullptr);
        if (sqlite3_step(read) == SQLITE_ROW) {
            size = static_cast<size_t>(sqlite3_column_bytes(read, 0));
        }
        sqlite3_finalize(read);
        sqlite3_close_v2(db);
        times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    }
    benchmark::DoNotOptimize(size);
    return Median(times);
}

void BM_ColdStartWith1000Ids(benchmark::State& state) {
    ScratchFolder folder;
    StoreCustomerIds(folder.Path(), 1000);
    VelmoraTestServer::TestIdentityServer server;
    for (auto _ : state) {
        double syncs = 0;
        double cpu = 0;
        double allocations = 0;
        Figures::Record("cold", StartToFirstAnswer(folder.Path(), server.Host(), &syncs, &cpu, &allocations));
        Figures::Record("cold/allocations", allocations);
        Figures::Record("cold/syncs", syncs);
        Figures::Record("cold/cpu", cpu);
        Figures::Record("cold/bare", OpenAndRead(folder.Path()));
    }
}

// The same in memory-backed folders: what the start costs besides waiting for the disk.
void BM_ColdStartWith1000IdsWithoutDisk(benchmark::State& state) {
    ScratchFolder folder("/dev/shm");
    StoreCustomerIds(folder.Path(), 1000);
    VelmoraTestServer::TestIdentityServer server;
    for (auto _ : state) {
        double cpu = 0;
        Figures::Record("cold/shm", StartToFirstAnswer(folder.Path(), server.Host(), nullptr, &cpu));
        Figures::Record("cold/shm/cpu", cpu);
        Figures::Record("cold/shm/bare", OpenAndRead(folder.Path()));
    }
}

void BM_StartWithQueuedRows(benchmark::State& state) {
    ScratchFolder queued;
    QueueRows(queued.Path(), 10000);
    ScratchFolder empty;
    {
        Core core(BenchOptions(empty.Path(), kNoServer));
        AskMid(*core.IdentityApi());
        core.Stop();
    }
    for (auto _ : state) {
        double syncs = 0;
        double none_syncs = 0;
        Figures::Record("queued", StartToFirstAnswer(queued.Path(), kNoServer, &syncs));
        Figures::Record("queued/none", StartToFirstAnswer(empty.Path(), kNoServer, &none_syncs));
        Figures::Record("queued/syncs", syncs);
        Figures::Record("queued/none/syncs", none_syncs);
    }
}

void BM_IdleCoreResidentMemory(benchmark::State& state) {
    VelmoraTestServer::TestIdentityServer server;
    ScratchFolder folder;
    for (auto _ : state) {
        long before = ResidentKb();
        Core core(BenchOptions(folder.Path(), server.Host()));
        AskMid(*core.IdentityApi());
        server.WaitForRequests(1, std::chrono::seconds(30));
        long after = ResidentKb();
        Figures::Record("rss/core", static_cast<double>(after - before) / 1024.0);
        Figures::Record("rss/process", static_cast<double>(after) / 1024.0);
        core.Stop();
    }
}

void Report() {
    Figures::Compare("cold start to the first answer, 1,000 stored customer ids", "cold", "cold/bare", "ms", "<= 3 ms");
    Figures::Compare("the same in memory-backed folders (/dev/shm)", "cold/shm", "cold/shm/bare", "ms", "<= 3 ms");
    Figures::Show("syncs to disk before that first answer", "cold/syncs", "per start", "");
    Figures::Show("CPU time of the process over that start (all threads)", "cold/cpu", "ms", "");
    Figures::Show("the same in memory-backed folders", "cold/shm/cpu", "ms", "");
    Figures::Show("heap allocations (operator new, all threads) over that start", "cold/allocations", "", "");
    Figures::Compare("start-up with 10,000 queued rows, against none", "queued", "queued/none", "ms", "<= 2x");
    Figures::Show("the floor: the same start with no ids and no rows", "queued/none", "ms", "");
    Figures::Compare("syncs to disk before that first answer, 10,000 queued rows against none", "queued/syncs",
                     "queued/none/syncs", "per start", "");
    Figures::Show("resident memory added by an idle started core", "rss/core", "MiB", "");
    Figures::Show("resident memory of the benchmark process with it", "rss/process", "MiB", "");
}

}  // namespace

BENCHMARK(BM_ColdStartWith1000Ids)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ColdStartWith1000IdsWithoutDisk)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StartWithQueuedRows)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_IdleCoreResidentMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
    SyncCounter::Install();
    return Figures::Main(argc, argv, Report);
}
