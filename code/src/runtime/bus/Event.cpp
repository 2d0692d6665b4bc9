#include "runtime/bus/Event.h"

#include <sstream>
#include <utility>

#include "runtime/values/StringUtils.h"

namespace VelmoraMobile {

Event::Event(Passkey, const std::string* name, std::string own_name, const std::shared_ptr<EventType>& type,
             const std::shared_ptr<EventSource>& source, const std::shared_ptr<EventData>& data, std::string pair_id,
             int64_t timestamp_ms)
    : own_name_(std::move(own_name)),
      name_(name != nullptr ? name : &own_name_),
      type_(type),
      source_(source),
      data_(data ? data : std::make_shared<EventData>()),
      pair_id_(std::move(pair_id)),
      timestamp_ms_(timestamp_ms) {}

std::string Event::ToStringImpl(const ToStringOptions& options) const {
    std::ostringstream out;
    out << "Event{name: " << *name_ << ", number: " << GetEventNumber() << ", type: ";
    StringUtils::ToString(out, type_, options);
    out << ", source: ";
    StringUtils::ToString(out, source_, options);
    out << ", pairId: " << pair_id_ << ", data: ";
    StringUtils::ToString(out, data_, options);
    out << "}";
    return out.str();
}

}  // namespace VelmoraMobile
