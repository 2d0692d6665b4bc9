#pragma once

#include <chrono>
#include <string>

#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// One queued item. A concrete hit derives from this class virtually and adds its own fields.
/// A hit is filled completely before it is handed to a queue and is not shared between threads
/// while it is being changed.
class DatabaseHitBase : public Object {
public:
    /// The row's key as text; empty on a hit that has not been read from the table.
    std::string identifier;
    /// Seconds since the Unix epoch.
    std::chrono::seconds timestamp{0};
};

}  // namespace VelmoraMobile
