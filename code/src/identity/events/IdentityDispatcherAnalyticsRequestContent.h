#pragma once

#include <memory>

#include "identity/module/Identity.h"
#include "runtime/bus/EventData.h"
#include "runtime/bus/ModuleEventDispatcher.h"

namespace VelmoraMobile {

/// Sends the module's internal analytics requests, "AnalyticsForIdentityRequest"
/// (ANALYTICS / REQUEST_CONTENT). Made by Identity::OnRegistered and kept in
/// Identity::analytics_dispatcher; stateless, so any thread may call it.
class IdentityDispatcherAnalyticsRequestContent : public ModuleEventDispatcher<Identity> {
public:
    IdentityDispatcherAnalyticsRequestContent() = default;
    ~IdentityDispatcherAnalyticsRequestContent() override = default;

    /// Marks `data` as an internal hit (it writes into the caller's object) and dispatches it.
    /// Null data is logged and dropped.
    virtual void DispatchAnalyticsEventWithEventData(const std::shared_ptr<EventData>& data);
};

}  // namespace VelmoraMobile
