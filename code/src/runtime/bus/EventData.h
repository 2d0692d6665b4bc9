#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "runtime/values/DebugInfo.h"
#include "runtime/values/Expected.h"
#include "runtime/values/Object.h"
#include "runtime/values/SdkError.h"
#include "runtime/values/Variant.h"

namespace VelmoraMobile {

/// The payload of an event or a shared state: a string-keyed map of Variant values, shared by
/// reference. It has no lock of its own: fill it on one thread before it is handed to an event
/// or a shared state, and only read it afterwards; reads from many threads at once are safe.
///
/// Every reader reports false (or gives the fallback) when the key is missing or holds another
/// kind of value, and leaves `out` untouched then.
class EventData : public Object {
public:
    EventData() = default;
    /// A copy is its own: what is written to it afterwards the original does not see, and the
    /// other way round. A copy of data whose entries are shared (ShareEntries) shares them too,
    /// and copies them only at its first write.
    EventData(const EventData& other);
    EventData& operator=(const EventData& other);

    /// Moves the entries into a block that copies of this data share, read-only, so that a
    /// record handed out many times is copied without copying its entries. On the thread that
    /// fills the data, before it is handed out; writes afterwards still work (copy-on-write).
    void ShareEntries();

    bool ContainsKey(const std::string& key) const;
    bool IsEmpty() const;

    bool GetString(const std::string& key, std::string& out) const;
    bool GetInteger(const std::string& key, int32_t& out) const;
    bool GetLong(const std::string& key, int64_t& out) const;
    bool GetBoolean(const std::string& key, bool& out) const;
    bool GetStringMap(const std::string& key, std::map<std::string, std::string>& out) const;
    bool GetVariant(const std::string& key, std::shared_ptr<Variant>& out) const;
    bool GetVariantMap(const std::string& key, Variant::VariantMap& out) const;

    bool OptBoolean(const std::string& key, bool fallback) const;
    int32_t OptInteger(const std::string& key, int32_t fallback) const;
    int64_t OptLong(const std::string& key, int64_t fallback) const;
    std::string OptString(const std::string& key, const std::string& fallback) const;

    /// The list under `key` read back through T's default serializer; "event_data.no_such_key"
    /// when the key is missing, otherwise whatever Variant::GetTypedVector<T>() gives.
    template <typename T>
    Expected<std::vector<std::shared_ptr<T>>> GetTypedVector(const std::string& key) const;

    void PutBoolean(const std::string& key, bool value);
    void PutInteger(const std::string& key, int32_t value);
    void PutLong(const std::string& key, int64_t value);
    void PutString(const std::string& key, const std::string& value);
    void PutStringMap(const std::string& key, const std::map<std::string, std::string>& value);
    /// A null pointer is stored as a Variant of the null kind.
    void PutVariant(const std::string& key, const std::shared_ptr<Variant>& value);
    void PutVariantMap(const std::string& key, const Variant::VariantMap& value);

    /// Every entry, for callers that walk the whole payload.
    const Variant::VariantMap& GetEntries() const { return Entries(); }

    std::string ToStringImpl(const ToStringOptions& options) const override;

private:
    const Variant* Find(const std::string& key) const;
    const Variant::VariantMap& Entries() const { return shared_ ? *shared_ : entries_; }
    /// The entries to write to; shared ones are copied first.
    Variant::VariantMap& OwnEntries();

    Variant::VariantMap entries_;
    // When set, the entries (entries_ is empty then); never written through.
    std::shared_ptr<const Variant::VariantMap> shared_;
};

template <typename T>
Expected<std::vector<std::shared_ptr<T>>> EventData::GetTypedVector(const std::string& key) const {
    std::shared_ptr<Variant> variant;
    if (!GetVariant(key, variant)) {
        return SdkError("event_data.no_such_key", "key error", DebugInfo());
    }
    return variant->template GetTypedVector<T>();
}

}  // namespace VelmoraMobile
