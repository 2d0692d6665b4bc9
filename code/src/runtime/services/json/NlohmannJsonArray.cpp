#include "runtime/services/json/NlohmannJsonArray.h"

#include <limits>
#include <nlohmann/json.hpp>

namespace VelmoraMobile {

NlohmannJsonArray::NlohmannJsonArray(std::shared_ptr<const nlohmann::json> document, const nlohmann::json* node)
    : document_(std::move(document)), node_(node) {}

std::string NlohmannJsonArray::GetString(int32_t index) const {
    if (index < 0 || static_cast<size_t>(index) >= node_->size()) {
        return "";
    }
    const nlohmann::json& element = (*node_)[static_cast<size_t>(index)];
    return element.is_string() ? element.get_ref<const std::string&>() : "";
}

int32_t NlohmannJsonArray::Length() const {
    size_t size = node_->size();
    return size > static_cast<size_t>(std::numeric_limits<int32_t>::max()) ? std::numeric_limits<int32_t>::max()
                                                                           : static_cast<int32_t>(size);
}

std::string NlohmannJsonArray::ToJsonString() const {
    return node_->dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace VelmoraMobile
