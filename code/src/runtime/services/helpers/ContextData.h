#pragma once

#include <string>

namespace VelmoraMobile {

/// Helpers for context data keys. Stateless; callable from any thread.
class ContextData {
public:
    /// Keeps ASCII letters, digits, "_" and "."; drops every other byte; collapses runs of
    /// "." to one and strips leading and trailing ".". Gives "" when nothing usable is left.
    static std::string CleanKey(const std::string& key);
};

}  // namespace VelmoraMobile
