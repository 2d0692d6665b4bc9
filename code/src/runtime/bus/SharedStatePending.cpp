#include "runtime/bus/SharedStatePending.h"

#include "runtime/values/EarlyInit.h"

namespace VelmoraMobile {

const std::shared_ptr<EventData> SHARED_STATE_PENDING VELMORA_RUNTIME_EARLY_INIT = std::make_shared<EventData>();

}  // namespace VelmoraMobile
