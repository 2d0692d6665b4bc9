#pragma once

#include <memory>

#include "identity/module/Identity.h"
#include "runtime/bus/EventData.h"
#include "runtime/bus/ModuleEventDispatcher.h"

namespace VelmoraMobile {

/// Sends configuration updates to the configuration extension, "Configuration Update From
/// Identity Module" (CONFIGURATION / REQUEST_CONTENT), e.g. the server's global opt-out.
/// Made by Identity::OnRegistered and kept in Identity::configuration_dispatcher; stateless,
/// so any thread may call it (in practice the hit queue's worker).
class IdentityDispatcherConfigurationRequestContent : public ModuleEventDispatcher<Identity> {
public:
    IdentityDispatcherConfigurationRequestContent() = default;
    ~IdentityDispatcherConfigurationRequestContent() override = default;

    /// Dispatches `data` as it is.
    virtual void DispatchConfigUpdateRequest(const std::shared_ptr<EventData>& data);
};

}  // namespace VelmoraMobile
