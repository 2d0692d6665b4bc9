#pragma once

#include <memory>
#include <string>

#include "runtime/services/JsonUtilityServiceInterface.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// JSON parsing on nlohmann-json. Stateless; callable from any thread.
class NlohmannJsonUtilityService : public Object, public virtual JsonUtilityServiceInterface {
public:
    /// The parsed object; an empty pointer for text that is not JSON or not a JSON object.
    /// Never throws.
    std::shared_ptr<JsonObject> ParseJson(const std::string& text) override;
};

}  // namespace VelmoraMobile
