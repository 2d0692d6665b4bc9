#pragma once

#include <string>

namespace VelmoraMobile {

/// Keys that the hub itself writes into event data. Kept in a header of its own, apart from
/// Event.h and EventData.h, so that modules with an EventDataKeys group of their own do not see
/// two of that name unless they ask for this one. Constant: any thread may read it.
namespace EventDataKeys {

/// In a HUB / SHARED_STATE event: the shared state name of the module whose state changed.
extern const std::string STATE_OWNER;

}  // namespace EventDataKeys
}  // namespace VelmoraMobile
