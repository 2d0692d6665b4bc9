#pragma once

#include <memory>
#include <string>

#include "runtime/services/JsonObject.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// JSON parsing. Thread-safe.
class JsonUtilityServiceInterface : public virtual ObjectInterface {
public:
    /// Text that is no JSON object gives an empty pointer (never throws).
    virtual std::shared_ptr<JsonObject> ParseJson(const std::string& text) = 0;
};

}  // namespace VelmoraMobile
