#pragma once

#include <cstdint>
#include <string>

#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// A finished HTTP exchange. Immutable once handed out; safe to read from any thread.
class HttpConnectionInterface : public virtual ObjectInterface {
public:
    virtual std::string GetResponse() = 0;
    /// The HTTP status; the same number on every call.
    virtual int32_t GetResponseCode() = 0;
    /// Human text of the status line, "" when none.
    virtual std::string GetResponseMessage() = 0;
    virtual std::string GetResponsePropertyValue(const std::string& key) = 0;
    virtual void Close() = 0;
};

}  // namespace VelmoraMobile
