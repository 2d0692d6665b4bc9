#pragma once

#include <string>

namespace VelmoraBench {

/// The figures of one benchmark binary, each beside its bare baseline: benchmarks record values,
/// and Main prints every comparison at the end as one line "<figure>: <value> vs <baseline> =
/// <ratio>x (target ...)".
class Figures {
public:
    /// Keeps the last value recorded under `name`.
    static void Record(const std::string& name, double value);
    /// Prints `name` beside `baseline` and value / baseline, when both were recorded. `target`
    /// says which way is good, e.g. "<= 1.3x" for times, ">= 0.7x" for rates.
    static void Compare(const std::string& figure, const std::string& name, const std::string& baseline,
                        const std::string& unit, const std::string& target);
    /// Prints one figure without a baseline.
    static void Show(const std::string& figure, const std::string& name, const std::string& unit,
                     const std::string& target);
    /// Notes a --quick among the arguments; Main does it too, but a binary that sizes its
    /// benchmarks before Main calls this first.
    static void ParseQuick(int argc, char** argv);
    /// True when run with --quick: a few iterations, just enough to see that it works.
    static bool Quick();
    /// Parses --quick, runs the registered benchmarks and calls `report`; the binary's main.
    static int Main(int argc, char** argv, void (*report)());
};

}  // namespace VelmoraBench
