#include "runtime/values/Variant.h"

#include <mutex>
#include <sstream>
#include <utility>

#include "runtime/values/StringUtils.h"

namespace VelmoraMobile {

struct Variant::DeferredVector {
    std::once_flag made;
    std::function<VariantVector()> make;
    VariantVector elements;
};

Variant::Variant() = default;

std::shared_ptr<Variant> Variant::FromNull() {
    static const std::shared_ptr<Variant> null_variant = std::make_shared<Variant>();
    return null_variant;
}

std::shared_ptr<Variant> Variant::FromString(const std::string& value) {
    auto v = std::make_shared<Variant>();
    v->kind_ = VariantKind::STRING;
    v->value_ = value;
    return v;
}

std::shared_ptr<Variant> Variant::FromInteger(int32_t value) {
    auto v = std::make_shared<Variant>();
    v->kind_ = VariantKind::INTEGER;
    v->value_ = static_cast<int64_t>(value);
    return v;
}

std::shared_ptr<Variant> Variant::FromLong(int64_t value) {
    auto v = std::make_shared<Variant>();
    v->kind_ = VariantKind::LONG;
    v->value_ = static_cast<int64_t>(value);
    return v;
}

std::shared_ptr<Variant> Variant::FromBoolean(bool value) {
    auto v = std::make_shared<Variant>();
    v->kind_ = VariantKind::BOOLEAN;
    v->value_ = int64_t{value ? 1 : 0};
    return v;
}

std::shared_ptr<Variant> Variant::FromDouble(double value) {
    auto v = std::make_shared<Variant>();
    v->kind_ = VariantKind::DOUBLE;
    v->value_ = value;
    return v;
}

std::shared_ptr<Variant> Variant::FromVariantVector(const VariantVector& value) {
    auto v = std::make_shared<Variant>();
    v->kind_ = VariantKind::VECTOR;
    v->value_ = value;
    return v;
}

std::shared_ptr<Variant> Variant::FromVariantVector(VariantVector&& value) {
    auto v = std::make_shared<Variant>();
    v->kind_ = VariantKind::VECTOR;
    v->value_ = std::move(value);
    return v;
}

std::shared_ptr<Variant> Variant::FromDeferredVector(std::function<VariantVector()> make) {
    auto deferred = std::make_shared<DeferredVector>();
    deferred->make = std::move(make);
    auto v = std::make_shared<Variant>();
    v->kind_ = VariantKind::VECTOR;
    v->value_ = std::move(deferred);
    return v;
}

std::shared_ptr<Variant> Variant::FromVariantMap(const VariantMap& value) {
    auto v = std::make_shared<Variant>();
    v->kind_ = VariantKind::MAP;
    v->value_ = value;
    return v;
}

std::shared_ptr<Variant> Variant::FromVariantMap(VariantMap&& value) {
    auto v = std::make_shared<Variant>();
    v->kind_ = VariantKind::MAP;
    v->value_ = std::move(value);
    return v;
}

std::shared_ptr<Variant> Variant::FromStringMap(const std::map<std::string, std::string>& value) {
    VariantMap map;
    for (const auto& entry : value) {
        map.emplace(entry.first, FromString(entry.second));
    }
    return FromVariantMap(std::move(map));
}

VariantKind Variant::GetKind() const {
    return kind_;
}

bool Variant::GetString(std::string& out) const {
    if (kind_ != VariantKind::STRING) return false;
    out = std::get<std::string>(value_);
    return true;
}

bool Variant::GetInteger(int32_t& out) const {
    if (kind_ != VariantKind::INTEGER) return false;
    out = static_cast<int32_t>(std::get<int64_t>(value_));
    return true;
}

bool Variant::GetLong(int64_t& out) const {
    if (kind_ != VariantKind::LONG) return false;
    out = std::get<int64_t>(value_);
    return true;
}

bool Variant::GetBoolean(bool& out) const {
    if (kind_ != VariantKind::BOOLEAN) return false;
    out = std::get<int64_t>(value_) != 0;
    return true;
}

bool Variant::GetDouble(double& out) const {
    if (kind_ != VariantKind::DOUBLE) return false;
    out = std::get<double>(value_);
    return true;
}

const Variant::VariantVector& Variant::Elements() const {
    if (const auto* deferred = std::get_if<std::shared_ptr<DeferredVector>>(&value_)) {
        DeferredVector& list = **deferred;
        // Readers on several threads: one makes the elements, the others wait for them.
        std::call_once(list.made, [&list] {
            list.elements = list.make();
            list.make = nullptr;  // releases what the producer held
        });
        return list.elements;
    }
    return std::get<VariantVector>(value_);
}

bool Variant::GetVariantVector(VariantVector& out) const {
    if (kind_ != VariantKind::VECTOR) return false;
    out = Elements();
    return true;
}

bool Variant::GetVariantMap(VariantMap& out) const {
    if (kind_ != VariantKind::MAP) return false;
    out = std::get<VariantMap>(value_);
    return true;
}

bool Variant::GetStringMap(std::map<std::string, std::string>& out) const {
    if (kind_ != VariantKind::MAP) return false;
    std::map<std::string, std::string> result;
    for (const auto& entry : std::get<VariantMap>(value_)) {
        if (!entry.second || !entry.second->GetString(result[entry.first])) {
            return false;
        }
    }
    out.swap(result);
    return true;
}

std::string Variant::ToStringImpl(const ToStringOptions& options) const {
    std::ostringstream out;
    switch (kind_) {
        case VariantKind::NULL_KIND: out << "null"; break;
        case VariantKind::STRING: out << StringUtils::Quotify(std::get<std::string>(value_)); break;
        case VariantKind::INTEGER:
        case VariantKind::LONG: out << std::get<int64_t>(value_); break;
        case VariantKind::BOOLEAN: out << (std::get<int64_t>(value_) ? "true" : "false"); break;
        case VariantKind::DOUBLE: out << std::get<double>(value_); break;
        case VariantKind::VECTOR: StringUtils::ToString(out, Elements(), options); break;
        case VariantKind::MAP: StringUtils::ToString(out, std::get<VariantMap>(value_), options); break;
    }
    return out.str();
}

}  // namespace VelmoraMobile
