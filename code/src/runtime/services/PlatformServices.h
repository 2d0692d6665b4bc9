#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "runtime/services/PlatformServicesInterface.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// The production services of this machine: libcurl network, SQLite data stores, the
/// environment's locale, nlohmann JSON, OpenSSL crypto and the database folder, all rooted in
/// one data folder. Every accessor and setter may be called from any thread at once.
class PlatformServices : public Object, public virtual PlatformServicesInterface {
public:
    /// Data folder: `data_dir` when not empty, else $VELMORA_DATA_DIR, else
    /// $XDG_DATA_HOME/velmora, else ~/.local/share/velmora. It is created when missing; if
    /// that fails the services still exist and the data stores report the failure.
    explicit PlatformServices(const std::string& data_dir = "");

    std::shared_ptr<NetworkServiceInterface> GetNetworkService() override;
    std::shared_ptr<LocalStorageServiceInterface> GetLocalStorageService() override;
    std::shared_ptr<SystemInfoServiceInterface> GetSystemInfoService() override;
    std::shared_ptr<JsonUtilityServiceInterface> GetJsonUtilityService() override;
    std::shared_ptr<DatabaseServiceInterface> GetDatabaseService() override;
    std::shared_ptr<CryptoServiceInterface> GetCryptoService() override;

    // Replace one service (tests use fakes); nullptr removes it, so its accessor gives empty.
    void SetNetworkService(std::shared_ptr<NetworkServiceInterface> service);
    void SetLocalStorageService(std::shared_ptr<LocalStorageServiceInterface> service);
    void SetSystemInfoService(std::shared_ptr<SystemInfoServiceInterface> service);
    void SetJsonUtilityService(std::shared_ptr<JsonUtilityServiceInterface> service);
    void SetDatabaseService(std::shared_ptr<DatabaseServiceInterface> service);
    void SetCryptoService(std::shared_ptr<CryptoServiceInterface> service);

    const std::string& GetDataDirectory() const { return data_dir_; }

    /// The folder the constructor would choose for `explicit_dir` (without creating it).
    static std::string ResolveDataDirectory(const std::string& explicit_dir);

private:
    const std::string data_dir_;
    mutable std::mutex mutex_;
    std::shared_ptr<NetworkServiceInterface> network_;
    std::shared_ptr<LocalStorageServiceInterface> local_storage_;
    std::shared_ptr<SystemInfoServiceInterface> system_info_;
    std::shared_ptr<JsonUtilityServiceInterface> json_;
    std::shared_ptr<DatabaseServiceInterface> database_;
    std::shared_ptr<CryptoServiceInterface> crypto_;
};

}  // namespace VelmoraMobile
