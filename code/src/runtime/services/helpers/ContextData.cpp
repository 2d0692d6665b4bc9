#include "runtime/services/helpers/ContextData.h"

namespace VelmoraMobile {

std::string ContextData::CleanKey(const std::string& key) {
    std::string cleaned;
    cleaned.reserve(key.size());
    for (char ch : key) {
        auto c = static_cast<unsigned char>(ch);
        bool keep = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
        if (keep) {
            cleaned.push_back(ch);
        } else if (c == '.') {
            // Dots are separators: never first, never doubled; a trailing one is cut below.
            if (!cleaned.empty() && cleaned.back() != '.') {
                cleaned.push_back('.');
            }
        }
    }
    if (!cleaned.empty() && cleaned.back() == '.') {
        cleaned.pop_back();
    }
    return cleaned;
}

}  // namespace VelmoraMobile
