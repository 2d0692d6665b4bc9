// The data store file: garbage bytes where the data stores are kept, then a store opened on it
// through the runtime, read and written.
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "FuzzSupport.h"
#include "runtime/services/LocalStorageServiceInterface.h"
#include "runtime/services/PlatformServices.h"
#include "runtime/services/storage/SqliteLocalStorageService.h"

using namespace VelmoraMobile;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = (VelmoraFuzz::QuietLogs(), true);
    (void)quiet;
    static const std::string dir = VelmoraFuzz::ScratchDir() + "/stores";
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
    std::filesystem::create_directories(dir);
    VelmoraFuzz::WriteFile(dir + "/" + SqliteLocalStorageService::FILE_NAME, VelmoraFuzz::Text(data, size));
    PlatformServices services(dir);
    std::shared_ptr<DataStoreInterface> store =
        services.GetLocalStorageService()->GetDataStore("com.velmora.module.identity");
    if (!store) {
        return 0;
    }
    store->GetString("VELMORAMOBILE_PERSISTED_MID", "");
    store->GetLong("VELMORAMOBILE_VISITORID_TTL", 0);
    store->Contains("VELMORAMOBILE_VISITORID_IDS");
    // Whatever the file held, a store that opened keeps what is written to it.
    store->SetString("fuzz.key", "value");
    if (store->GetString("fuzz.key", "") != "value") {
        std::abort();
    }
    return 0;
}
