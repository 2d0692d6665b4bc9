#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "runtime/values/PolymorphicFormatArgs.h"
#include "runtime/values/ToStringOptions.h"

namespace VelmoraMobile {

class ObjectInterface;

// Text forms of the plain types. Strings are written as they stand: no quotes, never cut,
// since ids and URL parameters are made through the formatter.
void ToStringImpl(std::ostream& out, const std::string& value, const ToStringOptions& options);
void ToStringImpl(std::ostream& out, std::string_view value, const ToStringOptions& options);
void ToStringImpl(std::ostream& out, const char* value, const ToStringOptions& options);
void ToStringImpl(std::ostream& out, int value, const ToStringOptions& options);
void ToStringImpl(std::ostream& out, unsigned int value, const ToStringOptions& options);
void ToStringImpl(std::ostream& out, long value, const ToStringOptions& options);
void ToStringImpl(std::ostream& out, long long value, const ToStringOptions& options);
void ToStringImpl(std::ostream& out, unsigned long value, const ToStringOptions& options);
void ToStringImpl(std::ostream& out, unsigned long long value, const ToStringOptions& options);
void ToStringImpl(std::ostream& out, double value, const ToStringOptions& options);
void ToStringImpl(std::ostream& out, bool value, const ToStringOptions& options);
void ToStringImpl(std::ostream& out, std::chrono::milliseconds value, const ToStringOptions& options);
void ToStringImpl(std::ostream& out, const ObjectInterface& value, const ToStringOptions& options);

template <typename T>
void ToStringImpl(std::ostream& out, const std::shared_ptr<T>& value, const ToStringOptions& options);
template <typename T>
void ToStringImpl(std::ostream& out, const std::vector<T>& value, const ToStringOptions& options);
template <typename K, typename V>
void ToStringImpl(std::ostream& out, const std::map<K, V>& value, const ToStringOptions& options);

namespace StringUtils {

constexpr size_t DEFAULT_MAX_DEPTH = 16;
constexpr size_t DEFAULT_MAX_ELEMENTS = 1000;
constexpr size_t DEFAULT_MAX_STRING_LENGTH = 1000000;

/// Nesting depth of text conversion on the calling thread.
size_t GetCurrentDepth();
void SetCurrentDepth(size_t depth);

/// The text in double quotes; inner quotes and backslashes are escaped.
std::string Quotify(const std::string& text);

/// Splits at every occurrence of the whole `delimiter` string. Empty tokens are kept, so
/// "a&&b" gives {"a", "", "b"} and "" gives {""}. An empty delimiter gives the text whole.
std::vector<std::string> Split(const std::string& text, const std::string& delimiter);

/// The format as it stands: with no arguments no placeholder is touched.
std::string FormatString(const char* format);

/// Writes `value` through its ToStringImpl inside the depth guard; a throwing conversion
/// writes "ERROR" and never escapes.
template <typename T>
void ToString(std::ostream& stream, const T& value, const ToStringOptions& options) {
    size_t depth = GetCurrentDepth();
    if (depth >= options.max_depth) {
        stream << "...";
        return;
    }
    SetCurrentDepth(depth + 1);
    try {
        ToStringImpl(stream, value, options);
    } catch (...) {
        stream << "ERROR";
    }
    SetCurrentDepth(depth);
}

/// A duration in seconds is written as milliseconds.
inline void ToString(std::ostream& stream, const std::chrono::seconds& value, const ToStringOptions& options) {
    ToString(stream, std::chrono::milliseconds(value), options);
}

template <typename T>
std::string ToString(const T& value, const ToStringOptions& options) {
    std::ostringstream stream;
    ToString(stream, value, options);
    return stream.str();
}

template <typename T>
std::string ToString(const T& value) {
    return ToString(value, ToStringOptions());
}

}  // namespace StringUtils

namespace StringUtilsInternal {

template <typename... Ts>
class GenericFormatArgs;

template <>
class GenericFormatArgs<> : public PolymorphicFormatArgs {
public:
    size_t GetSize() const override { return 0; }
    void CallToString(size_t, std::ostream&, const ToStringOptions&) const override {}
};

/// Holds a reference to each argument; lives on the stack of one FormatString call.
template <typename T, typename... Rest>
class GenericFormatArgs<T, Rest...> : public PolymorphicFormatArgs {
public:
    explicit GenericFormatArgs(const T& first, const Rest&... rest) : first_(first), rest_(rest...) {}
    size_t GetSize() const override { return 1 + sizeof...(Rest); }
    void CallToString(size_t index, std::ostream& stream, const ToStringOptions& options) const override {
        if (index == 0) {
            StringUtils::ToString(stream, first_, options);
        } else {
            rest_.CallToString(index - 1, stream, options);
        }
    }

private:
    const T& first_;
    GenericFormatArgs<Rest...> rest_;
};

/// Copies `format`, replacing each placeholder ("%s", "%d", "%@", ...) with the next argument
/// whatever its type. "%%" gives "%"; a "%" before anything else stays as it is.
std::string PolymorphicFormatString(const ToStringOptions& options, const char* format,
                                    const PolymorphicFormatArgs& args);

}  // namespace StringUtilsInternal

namespace StringUtils {

template <typename T, typename... Ts>
std::string FormatString(const char* format, const T& first, const Ts&... rest) {
    ToStringOptions options;
    StringUtilsInternal::GenericFormatArgs<T, Ts...> args(first, rest...);
    return StringUtilsInternal::PolymorphicFormatString(options, format, args);
}

}  // namespace StringUtils

template <typename T>
void ToStringImpl(std::ostream& out, const std::shared_ptr<T>& value, const ToStringOptions& options) {
    if (!value) {
        out << "null";
        return;
    }
    StringUtils::ToString(out, *value, options);
}

template <typename T>
void ToStringImpl(std::ostream& out, const std::vector<T>& value, const ToStringOptions& options) {
    out << "[";
    size_t count = 0;
    for (const auto& element : value) {
        if (count == options.max_elements) {
            out << ", ...";
            break;
        }
        if (count++ > 0) {
            out << ", ";
        }
        StringUtils::ToString(out, element, options);
    }
    out << "]";
}

template <typename K, typename V>
void ToStringImpl(std::ostream& out, const std::map<K, V>& value, const ToStringOptions& options) {
    out << "{";
    size_t count = 0;
    for (const auto& entry : value) {
        if (count == options.max_elements) {
            out << ", ...";
            break;
        }
        if (count++ > 0) {
            out << ", ";
        }
        StringUtils::ToString(out, entry.first, options);
        out << ": ";
        StringUtils::ToString(out, entry.second, options);
    }
    out << "}";
}

}  // namespace VelmoraMobile
