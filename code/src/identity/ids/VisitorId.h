#pragma once

#include <memory>
#include <string>

#include "identity/ids/VisitorIdAuthenticationState.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// One customer id: a value in an id space, with an authentication state. Always held by a
/// shared pointer; lists share records, so a change made through one list shows in all.
/// A plain record: no lock, so the owner's thread (the identity task queue) alone writes it.
class VisitorId : public Object {
public:
    /// Cleans `id_type` with ContextData::CleanKey; the other arguments are kept as given,
    /// an empty id or origin and an out-of-range state included.
    /// Throws SdkError "std.logic_error.invalid_argument" when the cleaned type is empty.
    VisitorId(std::string id_origin, const std::string& id_type, std::string id,
              VisitorIdAuthenticationState authentication_state);

    /// Same entry: equal (case-sensitive) id_type; value, origin and state are ignored.
    /// A null `other` is never equal.
    bool Equals(const std::shared_ptr<VisitorId>& other) const;

    std::string id_origin;
    /// Cleaned, never empty.
    std::string id_type;
    std::string id;
    VisitorIdAuthenticationState authentication_state{VisitorIdAuthenticationState::UNKNOWN};

private:
    // Object's identity comparison stays reachable through a base reference only, so that
    // vid.Equals(*other) cannot silently compare addresses instead of id types.
    using Object::Equals;
};

}  // namespace VelmoraMobile
