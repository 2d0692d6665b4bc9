#pragma once

#include <memory>

#include "identity/module/Identity.h"
#include "runtime/bus/Event.h"
#include "runtime/bus/ModuleEventListener.h"

namespace VelmoraMobile {

/// Hears HUB / BOOTED: starts the module's boot work.
///
/// Made and owned by the module's listener table (Identity::OnRegistered); holds the module
/// weakly. Hear runs on the hub's delivery thread and only hands the event on to a member that
/// adds a task.
class IdentityListenerBootedEvent : public ModuleEventListener<Identity> {
public:
    IdentityListenerBootedEvent() = default;
    ~IdentityListenerBootedEvent() override = default;

    void Hear(const std::shared_ptr<Event>& event) override;
};

}  // namespace VelmoraMobile
