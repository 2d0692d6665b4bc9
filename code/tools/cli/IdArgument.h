#pragma once

#include <string>

#include "identity/ids/VisitorIdAuthenticationState.h"

namespace VelmoraCli {

/// One customer id of `sync`: "TYPE=ID[:STATE]".
struct IdArgument {
    std::string type;
    std::string id;
    VelmoraMobile::VisitorIdAuthenticationState state{VelmoraMobile::VisitorIdAuthenticationState::UNKNOWN};
};

/// Parses "TYPE=ID[:STATE]". STATE is the text after the last ':' when it is a number or a state
/// name (unknown, authenticated, loggedout); a number must be 0, 1 or 2. Any other text after a
/// ':' belongs to the id. Gives "" and fills `out`, or a message naming the problem.
std::string ParseIdArgument(const std::string& text, IdArgument& out);

}  // namespace VelmoraCli
