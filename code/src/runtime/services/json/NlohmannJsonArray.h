#pragma once

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "runtime/services/JsonArray.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// A read-only view of one JSON array inside a parsed document; keeps the document alive.
/// Immutable, so any thread may read it.
class NlohmannJsonArray : public Object, public virtual JsonArray {
public:
    /// `node` must be an array inside `document`.
    NlohmannJsonArray(std::shared_ptr<const nlohmann::json> document, const nlohmann::json* node);

    /// The string at `index`; "" when out of range or not a string.
    std::string GetString(int32_t index) const override;
    int32_t Length() const override;
    std::string ToJsonString() const override;

private:
    std::shared_ptr<const nlohmann::json> document_;
    const nlohmann::json* node_;
};

}  // namespace VelmoraMobile
