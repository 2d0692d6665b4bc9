#include "identity/events/IdentityDispatcherAnalyticsRequestContent.h"

#include "identity/module/IdentityConstants.h"
#include "runtime/bus/EventBuilder.h"
#include "runtime/values/Log.h"

namespace VelmoraMobile {

void IdentityDispatcherAnalyticsRequestContent::DispatchAnalyticsEventWithEventData(
    const std::shared_ptr<EventData>& data) {
    if (!data) {
        Log::Trace(Identity::LOG_PREFIX.c_str(), "Cannot dispatch null analytics data");
        return;
    }
    data->PutBoolean(IdentityConstants::EventDataKeys::Analytics::TRACK_INTERNAL, true);
    Dispatch(EventBuilder("AnalyticsForIdentityRequest", EventType::ANALYTICS, EventSource::REQUEST_CONTENT)
                 .SetData(data)
                 .Build());
}

}  // namespace VelmoraMobile
