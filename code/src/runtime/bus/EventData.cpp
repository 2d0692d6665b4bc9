#include "runtime/bus/EventData.h"

#include "runtime/values/StringUtils.h"

namespace VelmoraMobile {

const Variant* EventData::Find(const std::string& key) const {
    auto found = entries_.find(key);
    return found == entries_.end() ? nullptr : found->second.get();
}

bool EventData::ContainsKey(const std::string& key) const {
    return entries_.count(key) != 0;
}

bool EventData::IsEmpty() const {
    return entries_.empty();
}

bool EventData::GetString(const std::string& key, std::string& out) const {
    const Variant* value = Find(key);
    return value != nullptr && value->GetString(out);
}

bool EventData::GetInteger(const std::string& key, int32_t& out) const {
    const Variant* value = Find(key);
    return value != nullptr && value->GetInteger(out);
}

bool EventData::GetLong(const std::string& key, int64_t& out) const {
    const Variant* value = Find(key);
    return value != nullptr && value->GetLong(out);
}

bool EventData::GetBoolean(const std::string& key, bool& out) const {
    const Variant* value = Find(key);
    return value != nullptr && value->GetBoolean(out);
}

bool EventData::GetStringMap(const std::string& key, std::map<std::string, std::string>& out) const {
    const Variant* value = Find(key);
    return value != nullptr && value->GetStringMap(out);
}

bool EventData::GetVariant(const std::string& key, std::shared_ptr<Variant>& out) const {
    auto found = entries_.find(key);
    if (found == entries_.end()) {
        return false;
    }
    out = found->second ? found->second : Variant::FromNull();
    return true;
}

bool EventData::GetVariantMap(const std::string& key, Variant::VariantMap& out) const {
    const Variant* value = Find(key);
    return value != nullptr && value->GetVariantMap(out);
}

bool EventData::OptBoolean(const std::string& key, bool fallback) const {
    GetBoolean(key, fallback);
    return fallback;
}

int32_t EventData::OptInteger(const std::string& key, int32_t fallback) const {
    GetInteger(key, fallback);
    return fallback;
}

int64_t EventData::OptLong(const std::string& key, int64_t fallback) const {
    GetLong(key, fallback);
    return fallback;
}

std::string EventData::OptString(const std::string& key, const std::string& fallback) const {
    std::string value = fallback;
    GetString(key, value);
    return value;
}

void EventData::PutBoolean(const std::string& key, bool value) {
    entries_[key] = Variant::FromBoolean(value);
}

void EventData::PutInteger(const std::string& key, int32_t value) {
    entries_[key] = Variant::FromInteger(value);
}

void EventData::PutLong(const std::string& key, int64_t value) {
    entries_[key] = Variant::FromLong(value);
}

void EventData::PutString(const std::string& key, const std::string& value) {
    entries_[key] = Variant::FromString(value);
}

void EventData::PutStringMap(const std::string& key, const std::map<std::string, std::string>& value) {
    entries_[key] = Variant::FromStringMap(value);
}

void EventData::PutVariant(const std::string& key, const std::shared_ptr<Variant>& value) {
    entries_[key] = value ? value : Variant::FromNull();
}

void EventData::PutVariantMap(const std::string& key, const Variant::VariantMap& value) {
    entries_[key] = Variant::FromVariantMap(value);
}

std::string EventData::ToStringImpl(const ToStringOptions& options) const {
    return StringUtils::ToString(entries_, options);
}

}  // namespace VelmoraMobile
