#include "runtime/bus/EventData.h"

#include <utility>

#include "runtime/values/StringUtils.h"

namespace VelmoraMobile {

const Variant* EventData::Find(const std::string& key) const {
    auto found = Entries().find(key);
    return found == Entries().end() ? nullptr : found->second.get();
}

bool EventData::ContainsKey(const std::string& key) const {
    return Entries().count(key) != 0;
}

bool EventData::IsEmpty() const {
    return Entries().empty();
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
    auto found = Entries().find(key);
    if (found == Entries().end()) {
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
    OwnEntries()[key] = Variant::FromBoolean(value);
}

void EventData::PutInteger(const std::string& key, int32_t value) {
    OwnEntries()[key] = Variant::FromInteger(value);
}

void EventData::PutLong(const std::string& key, int64_t value) {
    OwnEntries()[key] = Variant::FromLong(value);
}

void EventData::PutString(const std::string& key, const std::string& value) {
    OwnEntries()[key] = Variant::FromString(value);
}

void EventData::PutStringMap(const std::string& key, const std::map<std::string, std::string>& value) {
    OwnEntries()[key] = Variant::FromStringMap(value);
}

void EventData::PutVariant(const std::string& key, const std::shared_ptr<Variant>& value) {
    OwnEntries()[key] = value ? value : Variant::FromNull();
}

void EventData::PutVariantMap(const std::string& key, const Variant::VariantMap& value) {
    OwnEntries()[key] = Variant::FromVariantMap(value);
}

std::string EventData::ToStringImpl(const ToStringOptions& options) const {
    return StringUtils::ToString(Entries(), options);
}

EventData::EventData(const EventData& other)
    : Object(other), entries_(other.shared_ ? Variant::VariantMap() : other.entries_), shared_(other.shared_) {}

EventData& EventData::operator=(const EventData& other) {
    if (this != &other) {
        entries_ = other.shared_ ? Variant::VariantMap() : other.entries_;
        shared_ = other.shared_;
    }
    return *this;
}

void EventData::ShareEntries() {
    if (!shared_) {
        shared_ = std::make_shared<const Variant::VariantMap>(std::move(entries_));
        entries_.clear();
    }
}

Variant::VariantMap& EventData::OwnEntries() {
    if (shared_) {
        entries_ = *shared_;
        shared_.reset();
    }
    return entries_;
}

}  // namespace VelmoraMobile
