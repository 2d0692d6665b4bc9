// The stored visitor-id string: read back at every start from the identity data store.
#include <cstdlib>
#include <memory>

#include "FuzzSupport.h"
#include "identity/module/Identity.h"

using namespace VelmoraMobile;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = (VelmoraFuzz::QuietLogs(), true);
    (void)quiet;
    // The conversions are pure: a module outside any hub does.
    static const auto identity = std::make_shared<Identity>();
    auto ids = identity->ConvertVisitorIDsStringToVisitorIdObjects(VelmoraFuzz::Text(data, size));
    // What was read is written back and reads again to as many ids: nothing read is lost on save.
    const std::string saved = identity->ConvertVisitorIdObjectsVisitorIDsString(ids);
    if (identity->ConvertVisitorIDsStringToVisitorIdObjects(saved).size() != ids.size()) {
        std::abort();
    }
    return 0;
}
