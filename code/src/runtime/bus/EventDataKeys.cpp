#include "runtime/bus/EventDataKeys.h"

#include "runtime/values/EarlyInit.h"

namespace VelmoraMobile {
namespace EventDataKeys {

const std::string STATE_OWNER VELMORA_RUNTIME_EARLY_INIT = "stateowner";

}  // namespace EventDataKeys
}  // namespace VelmoraMobile
