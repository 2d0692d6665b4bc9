#pragma once

#include <string>

namespace VelmoraMobile {

/// Percent-encoding of URL components. Stateless; callable from any thread.
class UrlEncoder {
public:
    /// RFC 3986 unreserved bytes (ASCII letters, digits, "-", ".", "_", "~") stay as they are;
    /// every other byte, multi-byte UTF-8 included, becomes "%XX" with upper-case hex digits.
    static std::string Encode(const std::string& text);
};

}  // namespace VelmoraMobile
