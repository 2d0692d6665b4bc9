#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "runtime/bus/EventData.h"
#include "runtime/bus/EventSource.h"
#include "runtime/bus/EventType.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// One event on the bus, made by EventBuilder and passed as shared_ptr<Event>. Immutable once
/// dispatched: every getter may be called from any thread. The hub gives the event its number
/// when it is first dispatched, unless the builder set one.
class Event : public Object {
public:
    /// The name given to the builder, for humans.
    const std::string& GetName() const { return *name_; }
    /// Never null: an event built without data carries an empty EventData.
    const std::shared_ptr<EventData>& GetData() const { return data_; }
    /// The place of the event in the hub's order, and the version under which shared states are
    /// created and looked up for it. 0 until the event is dispatched, unless the builder set it.
    int32_t GetEventNumber() const { return event_number_.load(std::memory_order_relaxed); }
    const std::shared_ptr<EventType>& GetEventType() const { return type_; }
    const std::shared_ptr<EventSource>& GetEventSource() const { return source_; }
    /// The id a response to this event carries to reach the requester's one-time listener:
    /// unique per built event unless the builder was given one.
    const std::string& GetResponsePairID() const { return pair_id_; }
    /// When the event was built, in milliseconds since the Unix epoch.
    int64_t GetTimestamp() const { return timestamp_ms_; }

    std::string ToStringImpl(const ToStringOptions& options) const override;

    /// Only EventBuilder can make one, so that an event is built in a single allocation.
    class Passkey {
        friend class EventBuilder;
        Passkey() {}
    };
    /// `name` is an interned name that lives as long as the process, or null when `own_name`
    /// holds the name instead.
    Event(Passkey, const std::string* name, std::string own_name, const std::shared_ptr<EventType>& type,
          const std::shared_ptr<EventSource>& source, const std::shared_ptr<EventData>& data, std::string pair_id,
          int64_t timestamp_ms);
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

private:
    friend class EventBuilder;
    friend class EventHub;

    const std::string own_name_;
    const std::string* const name_;
    const std::shared_ptr<EventType> type_;
    const std::shared_ptr<EventSource> source_;
    const std::shared_ptr<EventData> data_;
    const std::string pair_id_;
    const int64_t timestamp_ms_;
    // Written by the builder, or by the hub under its lock at the first dispatch.
    bool has_event_number_{false};
    std::atomic<int32_t> event_number_{0};
};

}  // namespace VelmoraMobile
