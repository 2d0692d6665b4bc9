// The configuration file: read by the configuration extension on its queue.
#include "FuzzHub.h"
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = (VelmoraFuzz::QuietLogs(), true);
    (void)quiet;
    static VelmoraFuzz::FuzzHub host(false);
    static const std::string path = VelmoraFuzz::ScratchDir() + "/config.json";
    VelmoraFuzz::WriteFile(path, VelmoraFuzz::Text(data, size));
    host.configuration->ConfigureWithFile(path);
    VelmoraFuzz::Drain(*host.configuration);
    return 0;
}
