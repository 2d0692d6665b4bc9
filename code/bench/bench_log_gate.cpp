// A log call whose gate is closed, against the bare test of a relaxed atomic level: the closed
// gate must cost one test, with no text made and no argument converted.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>

#include "bench/support/Figures.h"
#include "runtime/values/Log.h"

using namespace VelmoraMobile;
using VelmoraBench::Figures;

namespace {

std::atomic<int> g_bare_level{1};

void BM_LogDebugClosedGate(benchmark::State& state) {
    Log::SetLogLevel(LoggingMode::WARNING_LOG);
    const std::string first = "first argument";
    const std::string second = "second argument";
    for (auto _ : state) {
        Log::Debug("Bench", "closed gate %s %s", first, second);
        benchmark::ClobberMemory();
    }
}

void BM_BareGate(benchmark::State& state) {
    const std::string first = "first argument";
    const std::string second = "second argument";
    for (auto _ : state) {
        if (g_bare_level.load(std::memory_order_relaxed) >= 2) {
            benchmark::DoNotOptimize(first);
            benchmark::DoNotOptimize(second);
        }
        benchmark::ClobberMemory();
    }
}

// The comparison takes the best of a few timed loops of each, so that it needs no result parsing.
template <typename Body>
double NsPerCall(Body body) {
    const int calls = Figures::Quick() ? 2000000 : 50000000;
    double best = 1e9;
    for (int round = 0; round < (Figures::Quick() ? 2 : 5); ++round) {
        auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < calls; ++i) {
            body();
            benchmark::ClobberMemory();
        }
        std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - start;
        best = std::min(best, took.count() / calls);
    }
    return best;
}

void Report() {
    Log::SetLogLevel(LoggingMode::WARNING_LOG);
    const std::string first = "first argument";
    const std::string second = "second argument";
    Figures::Record("log", NsPerCall([&] { Log::Debug("Bench", "closed gate %s %s", first, second); }));
    Figures::Record("bare", NsPerCall([&] {
                        if (g_bare_level.load(std::memory_order_relaxed) >= 2) {
                            benchmark::DoNotOptimize(first);
                        }
                    }));
    Figures::Compare("Log::Debug with a closed gate, 2 string arguments", "log", "bare", "ns", "<= 0.5 ns");
}

}  // namespace

BENCHMARK(BM_LogDebugClosedGate);
BENCHMARK(BM_BareGate);

int main(int argc, char** argv) {
    return Figures::Main(argc, argv, Report);
}
