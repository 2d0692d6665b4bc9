#include "runtime/services/helpers/UrlEncoder.h"

namespace VelmoraMobile {

namespace {

bool IsUnreserved(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_' || c == '~';
}

}  // namespace

std::string UrlEncoder::Encode(const std::string& text) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string encoded;
    encoded.reserve(text.size() + text.size() / 2);
    for (char ch : text) {
        auto c = static_cast<unsigned char>(ch);
        if (IsUnreserved(c)) {
            encoded.push_back(ch);
        } else {
            encoded.push_back('%');
            encoded.push_back(kHex[c >> 4]);
            encoded.push_back(kHex[c & 0x0F]);
        }
    }
    return encoded;
}

}  // namespace VelmoraMobile
