#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace VelmoraTest {

/// Sets (or with nullopt unsets) one environment variable for the lifetime of the object and
/// restores the previous state afterwards. Use only while no other thread reads the environment.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const std::optional<std::string>& value) : name_(name) {
        const char* old = std::getenv(name);
        if (old != nullptr) previous_ = old;
        Set(name, value);
    }
    ~ScopedEnvironment() { Set(name_.c_str(), previous_); }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    static void Set(const char* name, const std::optional<std::string>& value) {
        value ? setenv(name, value->c_str(), 1) : unsetenv(name);
    }
    std::string name_;
    std::optional<std::string> previous_;
};

}  // namespace VelmoraTest
