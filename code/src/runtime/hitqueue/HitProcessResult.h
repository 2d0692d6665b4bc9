#pragma once

#include <cstdint>

namespace VelmoraMobile {

/// A processor's answer for one hit.
enum class HitProcessResult : int32_t {
    /// The hit is finished: its row is deleted.
    DONE = 0,
    /// The row stays and the same hit comes again after the retry wait.
    RETRY = 1,
};

}  // namespace VelmoraMobile
