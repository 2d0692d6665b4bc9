// An identity request's round trip, host -> hub -> module task -> response event -> callback,
// against the same hand-offs between bare threads: a "delivery" and a "module" thread, each with a
// locked queue, so that the comparison shows what the hub, the module and the events cost on top
// of the unavoidable thread switches. Also the heap allocations of one round trip.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "bench/support/AllocationCounter.h"
#include "bench/support/BenchCore.h"
#include "bench/support/Figures.h"
#include "tools/server/TestIdentityServer.h"

using namespace VelmoraMobile;
using namespace VelmoraBench;

namespace {

using Clock = std::chrono::steady_clock;

/// A thread that runs the functions handed to it in order.
class BareThread {
public:
    BareThread() : thread_([this] { Loop(); }) {}
    ~BareThread() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
        }
        wake_.notify_one();
        thread_.join();
    }
    void Post(std::function<void()> task) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            tasks_.push_back(std::move(task));
        }
        wake_.notify_one();
    }

private:
    void Loop() {
        std::unique_lock<std::mutex> lock(mutex_);
        while (true) {
            wake_.wait(lock, [this] { return stop_ || !tasks_.empty(); });
            if (tasks_.empty()) {
                return;
            }
            std::function<void()> task = std::move(tasks_.front());
            tasks_.pop_front();
            lock.unlock();
            task();
            lock.lock();
        }
    }

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> tasks_;
    bool stop_ = false;
    std::thread thread_;
};

/// The bare road: caller -> delivery -> module -> delivery -> caller's callback.
class BareRoad {
public:
    void Ask(const IdentityPublicApi::StringCallback& callback) {
        delivery_.Post(
            [this, callback] { module_.Post([this, callback] { delivery_.Post([callback] { callback("mid"); }); }); });
    }

private:
    BareThread delivery_;
    BareThread module_;
};

/// The real road on a started core that already has its MID.
class RealRoad {
public:
    RealRoad() : core_(BenchOptions(folder_.Path(), server_.Host())), api_(core_.IdentityApi()) { AskMid(*api_); }
    void Ask(const IdentityPublicApi::StringCallback& callback) { api_->GetOndaraCloudId(callback); }

private:
    VelmoraTestServer::TestIdentityServer server_;
    ScratchFolder folder_;
    Core core_;
    std::shared_ptr<IdentityPublicApi> api_;
};

// Round trips per second of `callers` threads asking `per_caller` times each.
template <typename Road>
double Rate(Road& road, int callers, int per_caller) {
    auto start = Clock::now();
    std::vector<std::thread> threads;
    for (int c = 0; c < callers; ++c) {
        threads.emplace_back([&] {
            Answer answer;
            for (int i = 0; i < per_caller; ++i) {
                road.Ask(answer.Callback());
                answer.Wait();
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    std::chrono::duration<double> took = Clock::now() - start;
    return callers * per_caller / took.count();
}

// Median latency in microseconds of one caller, and the heap allocations per round trip.
template <typename Road>
void Single(Road& road, int count, double& p50_us, double& allocations) {
    std::vector<double> latencies;
    latencies.reserve(static_cast<size_t>(count));
    Answer answer;
    uint64_t before = AllocationCounter::Count();
    for (int i = 0; i < count; ++i) {
        auto start = Clock::now();
        road.Ask(answer.Callback());
        answer.Wait();
        latencies.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    allocations = static_cast<double>(AllocationCounter::Count() - before) / count;
    std::nth_element(latencies.begin(), latencies.begin() + count / 2, latencies.end());
    p50_us = latencies[static_cast<size_t>(count / 2)];
}

int PerCaller() {
    return Figures::Quick() ? 300 : 5000;
}

template <typename Road>
void Measure(const std::string& name) {
    Road road;
    Figures::Record(name + "/4", Rate(road, 4, PerCaller()));
    double p50 = 0;
    double allocations = 0;
    Single(road, PerCaller(), p50, allocations);
    Figures::Record(name + "/p50", p50);
    Figures::Record(name + "/allocations", allocations);
}

template <typename Road>
void BM_RoundTrip(benchmark::State& state) {
    Road road;
    Answer answer;
    for (auto _ : state) {
        road.Ask(answer.Callback());
        answer.Wait();
    }
}

void Report() {
    Measure<RealRoad>("core");
    Measure<BareRoad>("bare");
    Figures::Compare("round trip host -> module -> callback, 4 callers (round trips/s)", "core/4", "bare/4", "/s",
                     ">= 0.77x, i.e. at most 1.3x the time");
    Figures::Compare("round trip, 1 caller, p50", "core/p50", "bare/p50", "us", "");
    Figures::Compare("heap allocations per round trip", "core/allocations", "bare/allocations", "", "<= 10");
}

}  // namespace

BENCHMARK_TEMPLATE(BM_RoundTrip, RealRoad)->UseRealTime();
BENCHMARK_TEMPLATE(BM_RoundTrip, BareRoad)->UseRealTime();

int main(int argc, char** argv) {
    return Figures::Main(argc, argv, Report);
}
