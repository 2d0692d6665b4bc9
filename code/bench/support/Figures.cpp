#include "bench/support/Figures.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <vector>

namespace VelmoraBench {

namespace {

std::mutex g_mutex;
std::map<std::string, double> g_values;
bool g_quick = false;

bool Find(const std::string& name, double& value) {
    std::lock_guard<std::mutex> lock(g_mutex);
    auto found = g_values.find(name);
    if (found == g_values.end()) {
        return false;
    }
    value = found->second;
    return true;
}

}  // namespace

void Figures::Record(const std::string& name, double value) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_values[name] = value;
}

void Figures::Compare(const std::string& figure, const std::string& name, const std::string& baseline,
                      const std::string& unit, const std::string& target) {
    double value = 0;
    double base = 0;
    if (!Find(name, value) || !Find(baseline, base) || base == 0) {
        std::printf("%s: not measured\n", figure.c_str());
        return;
    }
    std::printf("%s: %.4g %s vs bare %.4g %s = %.2fx (target %s)\n", figure.c_str(), value, unit.c_str(), base,
                unit.c_str(), value / base, target.c_str());
}

void Figures::Show(const std::string& figure, const std::string& name, const std::string& unit,
                   const std::string& target) {
    double value = 0;
    if (!Find(name, value)) {
        std::printf("%s: not measured\n", figure.c_str());
        return;
    }
    std::printf("%s: %.4g %s%s%s\n", figure.c_str(), value, unit.c_str(), target.empty() ? "" : " (target ",
                target.empty() ? "" : (target + ")").c_str());
}

bool Figures::Quick() {
    return g_quick;
}

void Figures::ParseQuick(int argc, char** argv) {
    for (int i = 0; i < argc; ++i) {
        g_quick = g_quick || std::strcmp(argv[i], "--quick") == 0;
    }
}

int Figures::Main(int argc, char** argv, void (*report)()) {
    std::vector<char*> args;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--quick") == 0) {
            g_quick = true;
        } else {
            args.push_back(argv[i]);
        }
    }
    static char short_runs[] = "--benchmark_min_time=0.01";
    if (g_quick) {
        args.push_back(short_runs);
    }
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data())) {
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::printf("-- figures\n");
    report();
    std::fflush(stdout);
    return 0;
}

}  // namespace VelmoraBench
