#pragma once

#include <string>
#include <string_view>

namespace VelmoraMobile {

/// The names events are built with, each kept once for the life of the process, so that an event
/// points at its name instead of copying it. Event names come from a small fixed set; past
/// MAX_NAMES the table takes no more and callers keep a copy of their own. Thread-safe.
class EventNames {
public:
    static constexpr size_t MAX_NAMES = 512;

    /// The kept copy of `name`, or null when the table is full.
    static const std::string* Intern(std::string_view name);
};

}  // namespace VelmoraMobile
