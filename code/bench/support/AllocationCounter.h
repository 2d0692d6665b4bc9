#pragma once

#include <cstdint>

namespace VelmoraBench {

/// Counts the calls of the global operator new in this binary (the benchmark binary replaces it).
/// Count() may be read from any thread.
class AllocationCounter {
public:
    static uint64_t Count();
};

}  // namespace VelmoraBench
