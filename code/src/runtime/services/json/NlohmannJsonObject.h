#pragma once

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "runtime/services/JsonObject.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// A read-only view of one JSON object inside a parsed document; the document stays alive as
/// long as any view into it. Immutable, so any thread may read it.
class NlohmannJsonObject : public Object, public virtual JsonObject {
public:
    /// `node` must be an object inside `document`.
    NlohmannJsonObject(std::shared_ptr<const nlohmann::json> document, const nlohmann::json* node);

    std::shared_ptr<JsonArray> GetJsonArray(const std::string& key) const override;
    /// An integer that fits in 32 bits; anything else (missing, other kind, out of range) gives the fallback.
    int32_t GetInt(const std::string& key, int32_t fallback) const override;
    int64_t GetLong(const std::string& key, int64_t fallback) const override;
    std::string GetString(const std::string& key, const std::string& fallback) const override;
    bool GetBool(const std::string& key, bool fallback) const override;
    std::shared_ptr<JsonObject> GetJsonObject(const std::string& key) const override;
    bool Has(const std::string& key) const override;
    /// In lexicographic order.
    std::vector<std::string> Keys() const override;
    int32_t Length() const override;
    /// Compact text; bytes that are not UTF-8 come out as U+FFFD.
    std::string ToJsonString() const override;

private:
    /// The member under `key`, or null when missing.
    const nlohmann::json* Find(const std::string& key) const;

    std::shared_ptr<const nlohmann::json> document_;
    const nlohmann::json* node_;
};

}  // namespace VelmoraMobile
