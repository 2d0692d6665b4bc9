#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// A persistent flat map of typed values. A write is durable when the call returns.
/// Safe for calls from several threads at once. A getter of a missing key (or of a key
/// holding another type) gives the default.
class DataStoreInterface : public virtual ObjectInterface {
public:
    virtual void SetString(const std::string& key, const std::string& value) = 0;
    virtual std::string GetString(const std::string& key, const std::string& default_value) = 0;
    virtual void SetLong(const std::string& key, int64_t value) = 0;
    virtual int64_t GetLong(const std::string& key, int64_t default_value) = 0;
    virtual void SetBoolean(const std::string& key, bool value) = 0;
    virtual bool GetBoolean(const std::string& key, bool default_value) = 0;
    virtual bool Contains(const std::string& key) = 0;
    virtual void Remove(const std::string& key) = 0;
    virtual void RemoveAll() = 0;
    /// Runs `writes`, calls of this store's setters and removers made on this thread, as one
    /// unit: they are durable together when this returns (not each when its own call returns),
    /// at the cost of one commit. By default they simply run one after the other.
    virtual void WriteTogether(const std::function<void()>& writes) { writes(); }
};

}  // namespace VelmoraMobile
