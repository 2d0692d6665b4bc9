#pragma once

#include <memory>

#include "identity/module/Identity.h"
#include "runtime/bus/Event.h"
#include "runtime/bus/EventData.h"
#include "runtime/bus/ModuleEventListener.h"

namespace VelmoraMobile {

/// Hears HUB / SHARED_STATE and wakes the module's event queue when, and only when, the
/// configuration's shared state has changed: queued identity events wait for that state.
///
/// Made and owned by the module's listener table (Identity::OnRegistered); holds the module
/// weakly. Hear runs on the hub's delivery thread and only adds a task.
class IdentityListenerHubSharedState : public ModuleEventListener<Identity> {
public:
    IdentityListenerHubSharedState() = default;
    ~IdentityListenerHubSharedState() override = default;

    void Hear(const std::shared_ptr<Event>& event) override;

    /// False (with a log line) when `data` is null, the module is gone, or "stateowner" holds
    /// no string.
    bool ShouldProcessEvent(const std::shared_ptr<EventData>& data);
};

}  // namespace VelmoraMobile
