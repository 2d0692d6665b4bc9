// The hit database file: garbage bytes where the identity hits are kept, then the identity hit
// database opened on it through the runtime, a hit queued and the queue ended.
#include <filesystem>
#include <memory>

#include "FuzzSupport.h"
#include "identity/hits/IdentityDatabaseHitSchema.h"
#include "identity/hits/IdentityHitDatabase.h"
#include "identity/module/Identity.h"
#include "runtime/bus/EventBuilder.h"
#include "runtime/services/PlatformServices.h"

using namespace VelmoraMobile;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = (VelmoraFuzz::QuietLogs(), true);
    (void)quiet;
    static const std::string dir = VelmoraFuzz::ScratchDir() + "/hits";
    static const auto identity = std::make_shared<Identity>();
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
    std::filesystem::create_directories(dir);
    VelmoraFuzz::WriteFile(dir + "/" + IdentityDatabaseHitSchema::DATABASE_FILE_NAME, VelmoraFuzz::Text(data, size));
    auto services = std::make_shared<PlatformServices>(dir);
    auto database = IdentityHitDatabase::CreateIdentityDatabase(identity, services, nullptr);
    if (database) {
        auto event = EventBuilder("fuzz", EventType::IDENTITY, EventSource::REQUEST_IDENTITY).Build();
        database->Queue("http://127.0.0.1:9/id?d_ver=2", nullptr, event);
        database->Dispose(std::chrono::seconds(10));
    }
    return 0;
}
