#pragma once

#include <new>
#include <type_traits>
#include <utility>

#include "runtime/values/DebugInfo.h"
#include "runtime/values/SdkError.h"

namespace VelmoraMobile {

/// A value or an error. Callers test HasValue() before Value(); the accessors throw
/// "std.bad_cast" when the other alternative (or nothing) is held.
template <typename T, typename E = SdkError>
class Expected {
public:
    Expected(const T& value) : engaged_(true), has_value_(true) { new (&storage_.value) T(value); }
    Expected(T&& value) : engaged_(true), has_value_(true) { new (&storage_.value) T(std::move(value)); }
    Expected(const E& error) : engaged_(true), has_value_(false) { new (&storage_.error) E(error); }
    Expected(const Expected& other) : engaged_(other.engaged_), has_value_(other.has_value_) {
        if (engaged_ && has_value_) {
            new (&storage_.value) T(other.storage_.value);
        } else if (engaged_) {
            new (&storage_.error) E(other.storage_.error);
        }
    }
    Expected(Expected&& other) : engaged_(other.engaged_), has_value_(other.has_value_) {
        if (engaged_ && has_value_) {
            new (&storage_.value) T(std::move(other.storage_.value));
        } else if (engaged_) {
            new (&storage_.error) E(other.storage_.error);
        }
    }
    Expected& operator=(const Expected& other) {
        if (this != &other) {
            Destroy();
            engaged_ = other.engaged_;
            has_value_ = other.has_value_;
            if (engaged_ && has_value_) {
                new (&storage_.value) T(other.storage_.value);
            } else if (engaged_) {
                new (&storage_.error) E(other.storage_.error);
            }
        }
        return *this;
    }
    ~Expected() { Destroy(); }

    bool HasValue() const { return engaged_ && has_value_; }

    T& Value() {
        if (!engaged_ || !has_value_) {
            ThrowBadCast(__LINE__, "Value type not available.");
        }
        return storage_.value;
    }

    T ConstValue() const {
        if (!engaged_ || !has_value_) {
            ThrowBadCast(__LINE__, "Value type not available.");
        }
        return storage_.value;
    }

    E Error() const {
        if (!engaged_ || has_value_) {
            ThrowBadCast(__LINE__, "Error type not available.");
        }
        return storage_.error;
    }

    /// Only for tests of the disengaged state: an Expected that holds nothing.
    static Expected Disengaged() { return Expected(DisengagedTag{}); }

private:
    struct DisengagedTag {};
    explicit Expected(DisengagedTag) : engaged_(false), has_value_(false) {}

    [[noreturn]] static void ThrowBadCast(int line, const char* message) {
        throw SdkError("std.bad_cast", message,
                       DebugInfo("Headers/Expected", line, GetCurrentDebugInfoPrivate::GetCurrentStackTrace()));
    }

    void Destroy() {
        if (engaged_ && has_value_) {
            storage_.value.~T();
        } else if (engaged_) {
            storage_.error.~E();
        }
        engaged_ = false;
        has_value_ = false;
    }

    union Storage {
        Storage() {}
        ~Storage() {}
        T value;
        E error;
    } storage_;
    bool engaged_;
    bool has_value_;
};

}  // namespace VelmoraMobile
