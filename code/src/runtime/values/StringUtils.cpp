#include "runtime/values/StringUtils.h"

#include <cstring>

#include "runtime/values/ObjectInterface.h"

namespace VelmoraMobile {

void ToStringImpl(std::ostream& out, const std::string& value, const ToStringOptions&) {
    out << value;
}
void ToStringImpl(std::ostream& out, std::string_view value, const ToStringOptions&) {
    out << value;
}
void ToStringImpl(std::ostream& out, const char* value, const ToStringOptions&) {
    out << (value ? value : "null");
}
void ToStringImpl(std::ostream& out, int value, const ToStringOptions&) {
    out << value;
}
void ToStringImpl(std::ostream& out, unsigned int value, const ToStringOptions&) {
    out << value;
}
void ToStringImpl(std::ostream& out, long value, const ToStringOptions&) {
    out << value;
}
void ToStringImpl(std::ostream& out, long long value, const ToStringOptions&) {
    out << value;
}
void ToStringImpl(std::ostream& out, unsigned long value, const ToStringOptions&) {
    out << value;
}
void ToStringImpl(std::ostream& out, unsigned long long value, const ToStringOptions&) {
    out << value;
}
void ToStringImpl(std::ostream& out, double value, const ToStringOptions&) {
    out << value;
}
void ToStringImpl(std::ostream& out, bool value, const ToStringOptions&) {
    out << (value ? "true" : "false");
}
void ToStringImpl(std::ostream& out, std::chrono::milliseconds value, const ToStringOptions&) {
    out << value.count() << " ms";
}
void ToStringImpl(std::ostream& out, const ObjectInterface& value, const ToStringOptions& options) {
    out << value.ToStringImpl(options);
}

namespace StringUtils {

namespace {
thread_local size_t current_depth = 0;
}  // namespace

size_t GetCurrentDepth() {
    return current_depth;
}
void SetCurrentDepth(size_t depth) {
    current_depth = depth;
}

std::string Quotify(const std::string& text) {
    std::string result;
    result.reserve(text.size() + 2);
    result.push_back('"');
    for (char c : text) {
        if (c == '"' || c == '\\') {
            result.push_back('\\');
        }
        result.push_back(c);
    }
    result.push_back('"');
    return result;
}

std::vector<std::string> Split(const std::string& text, const std::string& delimiter) {
    std::vector<std::string> tokens;
    if (delimiter.empty()) {
        tokens.push_back(text);
        return tokens;
    }
    size_t start = 0;
    while (true) {
        size_t found = text.find(delimiter, start);
        if (found == std::string::npos) {
            tokens.push_back(text.substr(start));
            return tokens;
        }
        tokens.push_back(text.substr(start, found - start));
        start = found + delimiter.size();
    }
}

std::string FormatString(const char* format) {
    return format ? std::string(format) : std::string();
}

}  // namespace StringUtils

namespace StringUtilsInternal {

namespace {

bool IsConversion(char c) {
    return std::strchr("sdiufFeEgGxXcp@", c) != nullptr && c != '\0';
}
bool IsModifier(char c) {
    return std::strchr("-0123456789.lhzjtLq", c) != nullptr && c != '\0';
}

}  // namespace

std::string PolymorphicFormatString(const ToStringOptions& options, const char* format,
                                    const PolymorphicFormatArgs& args) {
    if (format == nullptr) {
        return std::string();
    }
    std::ostringstream out;
    size_t next = 0;
    const char* p = format;
    while (*p != '\0') {
        const char* percent = std::strchr(p, '%');
        if (percent == nullptr) {
            out << p;
            break;
        }
        out.write(p, percent - p);
        if (percent[1] == '%') {
            out << '%';
            p = percent + 2;
            continue;
        }
        const char* q = percent + 1;
        while (IsModifier(*q)) {
            ++q;
        }
        if (IsConversion(*q)) {
            args.CallToString(next++, out, options);
            p = q + 1;
        } else {
            out << '%';
            p = percent + 1;
        }
    }
    return out.str();
}

}  // namespace StringUtilsInternal
}  // namespace VelmoraMobile
