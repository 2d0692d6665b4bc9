#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "runtime/services/JsonArray.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// A read-only JSON object. A missing key, or a key of another kind, gives the fallback.
class JsonObject : public virtual ObjectInterface {
public:
    virtual std::shared_ptr<JsonArray> GetJsonArray(const std::string& key) const = 0;
    virtual int32_t GetInt(const std::string& key, int32_t fallback) const = 0;
    virtual int64_t GetLong(const std::string& key, int64_t fallback) const = 0;
    virtual std::string GetString(const std::string& key, const std::string& fallback) const = 0;
    virtual bool GetBool(const std::string& key, bool fallback) const = 0;
    virtual std::shared_ptr<JsonObject> GetJsonObject(const std::string& key) const = 0;
    virtual bool Has(const std::string& key) const = 0;
    virtual std::vector<std::string> Keys() const = 0;
    virtual int32_t Length() const = 0;
    virtual std::string ToJsonString() const = 0;
};

}  // namespace VelmoraMobile
