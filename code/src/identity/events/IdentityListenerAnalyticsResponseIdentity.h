#pragma once

#include <memory>

#include "identity/module/Identity.h"
#include "runtime/bus/Event.h"
#include "runtime/bus/ModuleEventListener.h"

namespace VelmoraMobile {

/// Hears ANALYTICS / RESPONSE_IDENTITY: the analytics id of the analytics extension.
///
/// Made and owned by the module's listener table (Identity::OnRegistered); holds the module
/// weakly. Hear runs on the hub's delivery thread and only hands the event on to a member that
/// adds a task.
class IdentityListenerAnalyticsResponseIdentity : public ModuleEventListener<Identity> {
public:
    IdentityListenerAnalyticsResponseIdentity() = default;
    ~IdentityListenerAnalyticsResponseIdentity() override = default;

    void Hear(const std::shared_ptr<Event>& event) override;
};

}  // namespace VelmoraMobile
