#include "runtime/services/json/NlohmannJsonObject.h"

#include <limits>
#include <nlohmann/json.hpp>

#include "runtime/services/json/NlohmannJsonArray.h"

namespace VelmoraMobile {

NlohmannJsonObject::NlohmannJsonObject(std::shared_ptr<const nlohmann::json> document, const nlohmann::json* node)
    : document_(std::move(document)), node_(node) {}

const nlohmann::json* NlohmannJsonObject::Find(const std::string& key) const {
    auto it = node_->find(key);
    return it == node_->end() ? nullptr : &*it;
}

std::shared_ptr<JsonArray> NlohmannJsonObject::GetJsonArray(const std::string& key) const {
    const nlohmann::json* value = Find(key);
    if (value == nullptr || !value->is_array()) {
        return nullptr;
    }
    return std::make_shared<NlohmannJsonArray>(document_, value);
}

int32_t NlohmannJsonObject::GetInt(const std::string& key, int32_t fallback) const {
    int64_t value = GetLong(key, std::numeric_limits<int64_t>::min());
    if (value < std::numeric_limits<int32_t>::min() || value > std::numeric_limits<int32_t>::max()) {
        return fallback;
    }
    return static_cast<int32_t>(value);
}

int64_t NlohmannJsonObject::GetLong(const std::string& key, int64_t fallback) const {
    const nlohmann::json* value = Find(key);
    if (value == nullptr) {
        return fallback;
    }
    if (value->is_number_unsigned()) {
        auto number = value->get<uint64_t>();
        return number > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) ? fallback
                                                                                   : static_cast<int64_t>(number);
    }
    if (value->is_number_integer()) {
        return value->get<int64_t>();
    }
    return fallback;
}

std::string NlohmannJsonObject::GetString(const std::string& key, const std::string& fallback) const {
    const nlohmann::json* value = Find(key);
    if (value == nullptr || !value->is_string()) {
        return fallback;
    }
    return value->get_ref<const std::string&>();
}

bool NlohmannJsonObject::GetBool(const std::string& key, bool fallback) const {
    const nlohmann::json* value = Find(key);
    if (value == nullptr || !value->is_boolean()) {
        return fallback;
    }
    return value->get<bool>();
}

std::shared_ptr<JsonObject> NlohmannJsonObject::GetJsonObject(const std::string& key) const {
    const nlohmann::json* value = Find(key);
    if (value == nullptr || !value->is_object()) {
        return nullptr;
    }
    return std::make_shared<NlohmannJsonObject>(document_, value);
}

bool NlohmannJsonObject::Has(const std::string& key) const {
    return Find(key) != nullptr;
}

std::vector<std::string> NlohmannJsonObject::Keys() const {
    std::vector<std::string> keys;
    keys.reserve(node_->size());
    for (auto it = node_->begin(); it != node_->end(); ++it) {
        keys.push_back(it.key());
    }
    return keys;
}

int32_t NlohmannJsonObject::Length() const {
    size_t size = node_->size();
    return size > static_cast<size_t>(std::numeric_limits<int32_t>::max()) ? std::numeric_limits<int32_t>::max()
                                                                           : static_cast<int32_t>(size);
}

std::string NlohmannJsonObject::ToJsonString() const {
    return node_->dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace VelmoraMobile
