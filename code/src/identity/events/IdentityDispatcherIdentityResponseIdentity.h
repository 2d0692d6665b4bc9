#pragma once

#include <memory>
#include <string>

#include "identity/module/Identity.h"
#include "runtime/bus/EventData.h"
#include "runtime/bus/ModuleEventDispatcher.h"

namespace VelmoraMobile {

/// Sends the module's identity responses (IDENTITY / RESPONSE_IDENTITY) under the name the
/// caller gives. Made by Identity::OnRegistered and kept in
/// Identity::identity_response_dispatcher; stateless, so any thread may call it (the module's
/// tasks and the hit queue's worker do).
class IdentityDispatcherIdentityResponseIdentity : public ModuleEventDispatcher<Identity> {
public:
    IdentityDispatcherIdentityResponseIdentity() = default;
    ~IdentityDispatcherIdentityResponseIdentity() override = default;

    /// The response carries `pair_id` (empty: a response for everybody and no requester) and no
    /// event number of its own.
    virtual void DispatchIdentityResponse(const std::string& event_name, const std::shared_ptr<EventData>& data,
                                          const std::string& pair_id);
};

}  // namespace VelmoraMobile
