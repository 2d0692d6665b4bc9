#include "runtime/services/json/NlohmannJsonUtilityService.h"

#include <nlohmann/json.hpp>

#include "runtime/services/json/BoundedJson.h"
#include "runtime/services/json/NlohmannJsonObject.h"

namespace VelmoraMobile {

std::shared_ptr<JsonObject> NlohmannJsonUtilityService::ParseJson(const std::string& text) {
    // No exceptions: a parse error gives a "discarded" value.
    auto document = std::make_shared<nlohmann::json>(BoundedJson::Parse(text));
    if (!document->is_object()) {
        return nullptr;
    }
    const nlohmann::json* root = document.get();
    return std::make_shared<NlohmannJsonObject>(std::move(document), root);
}

}  // namespace VelmoraMobile
