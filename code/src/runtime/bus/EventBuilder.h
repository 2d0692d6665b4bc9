#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "runtime/bus/Event.h"
#include "runtime/bus/EventData.h"
#include "runtime/bus/EventSource.h"
#include "runtime/bus/EventType.h"

namespace VelmoraMobile {

/// Builds one Event. A builder is a local value: use it on one thread.
class EventBuilder {
public:
    /// `name` names the event for humans; type and source decide who hears it.
    EventBuilder(const std::string& name, const std::shared_ptr<EventType>& type,
                 const std::shared_ptr<EventSource>& source);
    /// The same, for a literal name: no string is made for it.
    EventBuilder(const char* name, const std::shared_ptr<EventType>& type, const std::shared_ptr<EventSource>& source);

    /// Shared, not copied. Null (the default) gives the event an empty EventData.
    EventBuilder& SetData(const std::shared_ptr<EventData>& data);
    /// Only for an event that takes the place of another in the order: the hub keeps this number.
    EventBuilder& SetEventNumber(int32_t number);
    /// Only on responses: the request's GetResponsePairID(). Without it a fresh random id is made.
    EventBuilder& SetPairID(const std::string& pair_id);

    /// A new event at each call, stamped with the current time.
    std::shared_ptr<Event> Build();

private:
    // The name as kept by the process-wide table, or in own_name_ when the table is full.
    const std::string* name_{nullptr};
    std::string own_name_;
    std::shared_ptr<EventType> type_;
    std::shared_ptr<EventSource> source_;
    std::shared_ptr<EventData> data_;
    bool has_event_number_{false};
    int32_t event_number_{0};
    bool has_pair_id_{false};
    // The first Build moves pair_id_ into its event; later ones copy it from that event.
    std::string pair_id_;
    std::shared_ptr<Event> first_paired_;
};

}  // namespace VelmoraMobile
