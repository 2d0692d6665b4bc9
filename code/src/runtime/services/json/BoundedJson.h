#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace VelmoraMobile {

/// The one door through which JSON text from outside (configuration files, stored values, server
/// answers) becomes a document. Everything that walks a document recursively afterwards
/// (conversion to Variants, dump, copy) relies on its depth bound: a top-level entry holding
/// containers nested deeper than MAX_DEPTH is refused with one warning and the rest of the
/// document is kept. The parser itself is iterative, so any depth of input is safe to read.
/// Stateless; callable from any thread.
class BoundedJson {
public:
    /// Nesting levels a document may have, the root container counting as one.
    static constexpr int MAX_DEPTH = 100;

    /// Never throws: text that is not JSON gives a discarded value (`is_discarded()`).
    static nlohmann::json Parse(const std::string& text);
};

}  // namespace VelmoraMobile
