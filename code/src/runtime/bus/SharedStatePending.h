#pragma once

#include <memory>

#include "runtime/bus/EventData.h"

namespace VelmoraMobile {

/// The answer of a shared state lookup while that state is known to be coming but not there yet,
/// and the data to pass when announcing such a state. Tell it from a real state by pointer
/// equality. Never changed; any thread may read it.
extern const std::shared_ptr<EventData> SHARED_STATE_PENDING;

}  // namespace VelmoraMobile
