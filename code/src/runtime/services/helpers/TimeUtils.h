#pragma once

#include <cstdint>

namespace VelmoraMobile {

/// Wall-clock time. Stateless; callable from any thread.
class TimeUtils {
public:
    /// Seconds since the Unix epoch.
    static int64_t GetUnixTimeInSeconds();
    /// Also seconds since the Unix epoch (the unit of visitor payload time stamps).
    static int64_t GetUnixTime();
};

}  // namespace VelmoraMobile
