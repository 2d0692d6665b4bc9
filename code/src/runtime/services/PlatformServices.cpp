#include "runtime/services/PlatformServices.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "runtime/services/DatabaseService.h"
#include "runtime/services/SystemInfoService.h"
#include "runtime/services/crypto/OpenSslCryptoService.h"
#include "runtime/services/json/NlohmannJsonUtilityService.h"
#include "runtime/services/network/CurlNetworkService.h"
#include "runtime/services/storage/SqliteLocalStorageService.h"
#include "runtime/values/Log.h"

namespace VelmoraMobile {

namespace {

const char* const kLogTag = "PlatformServices";

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::string HomeDirectory() {
    std::string home = Environment("HOME");
    if (!home.empty()) {
        return home;
    }
    struct passwd* entry = getpwuid(getuid());
    return entry != nullptr && entry->pw_dir != nullptr ? entry->pw_dir : ".";
}

std::string CreateDirectory(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error) {
        Log::Error(kLogTag, "Cannot create the data folder (%s): %s", path, error.message());
    }
    return path;
}

}  // namespace

std::string PlatformServices::ResolveDataDirectory(const std::string& explicit_dir) {
    if (!explicit_dir.empty()) {
        return explicit_dir;
    }
    std::string from_environment = Environment("VELMORA_DATA_DIR");
    if (!from_environment.empty()) {
        return from_environment;
    }
    std::string xdg = Environment("XDG_DATA_HOME");
    if (!xdg.empty()) {
        return xdg + "/velmora";
    }
    return HomeDirectory() + "/.local/share/velmora";
}

PlatformServices::PlatformServices(const std::string& data_dir)
    : data_dir_(CreateDirectory(ResolveDataDirectory(data_dir))),
      network_(std::make_shared<CurlNetworkService>()),
      local_storage_(std::make_shared<SqliteLocalStorageService>(data_dir_)),
      system_info_(std::make_shared<SystemInfoService>(data_dir_)),
      json_(std::make_shared<NlohmannJsonUtilityService>()),
      database_(std::make_shared<DatabaseService>(data_dir_)),
      crypto_(std::make_shared<OpenSslCryptoService>()) {}

std::shared_ptr<NetworkServiceInterface> PlatformServices::GetNetworkService() {
    std::lock_guard<std::mutex> lock(mutex_);
    return network_;
}

std::shared_ptr<LocalStorageServiceInterface> PlatformServices::GetLocalStorageService() {
    std::lock_guard<std::mutex> lock(mutex_);
    return local_storage_;
}

std::shared_ptr<SystemInfoServiceInterface> PlatformServices::GetSystemInfoService() {
    std::lock_guard<std::mutex> lock(mutex_);
    return system_info_;
}

std::shared_ptr<JsonUtilityServiceInterface> PlatformServices::GetJsonUtilityService() {
    std::lock_guard<std::mutex> lock(mutex_);
    return json_;
}

std::shared_ptr<DatabaseServiceInterface> PlatformServices::GetDatabaseService() {
    std::lock_guard<std::mutex> lock(mutex_);
    return database_;
}

std::shared_ptr<CryptoServiceInterface> PlatformServices::GetCryptoService() {
    std::lock_guard<std::mutex> lock(mutex_);
    return crypto_;
}

void PlatformServices::SetNetworkService(std::shared_ptr<NetworkServiceInterface> service) {
    std::lock_guard<std::mutex> lock(mutex_);
    network_.swap(service);
}

void PlatformServices::SetLocalStorageService(std::shared_ptr<LocalStorageServiceInterface> service) {
    std::lock_guard<std::mutex> lock(mutex_);
    local_storage_.swap(service);
}

void PlatformServices::SetSystemInfoService(std::shared_ptr<SystemInfoServiceInterface> service) {
    std::lock_guard<std::mutex> lock(mutex_);
    system_info_.swap(service);
}

void PlatformServices::SetJsonUtilityService(std::shared_ptr<JsonUtilityServiceInterface> service) {
    std::lock_guard<std::mutex> lock(mutex_);
    json_.swap(service);
}

void PlatformServices::SetDatabaseService(std::shared_ptr<DatabaseServiceInterface> service) {
    std::lock_guard<std::mutex> lock(mutex_);
    database_.swap(service);
}

void PlatformServices::SetCryptoService(std::shared_ptr<CryptoServiceInterface> service) {
    std::lock_guard<std::mutex> lock(mutex_);
    crypto_.swap(service);
}

}  // namespace VelmoraMobile
