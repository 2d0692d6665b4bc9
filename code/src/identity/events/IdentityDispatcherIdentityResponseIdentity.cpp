#include "identity/events/IdentityDispatcherIdentityResponseIdentity.h"

#include "runtime/bus/EventBuilder.h"

namespace VelmoraMobile {

void IdentityDispatcherIdentityResponseIdentity::DispatchIdentityResponse(const std::string& event_name,
                                                                          const std::shared_ptr<EventData>& data,
                                                                          const std::string& pair_id) {
    Dispatch(EventBuilder(event_name, EventType::IDENTITY, EventSource::RESPONSE_IDENTITY)
                 .SetPairID(pair_id)
                 .SetData(data)
                 .Build());
}

}  // namespace VelmoraMobile
