#pragma once

#include <cstddef>
#include <string>

namespace VelmoraMobile {

/// Steers text conversion. Plain value type; safe to copy between threads.
struct ToStringOptions {
    bool pretty_print{false};
    std::string indent;
    bool show_type{false};
    std::string separator;
    size_t max_depth;
    size_t max_elements;
    size_t max_string_length;

    ToStringOptions();
};

}  // namespace VelmoraMobile
