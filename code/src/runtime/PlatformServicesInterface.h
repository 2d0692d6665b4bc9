#pragma once

#include <memory>

#include "CryptoServiceInterface.h"
#include "DatabaseServiceInterface.h"
#include "JsonUtilityServiceInterface.h"
#include "LocalStorageServiceInterface.h"
#include "NetworkServiceInterface.h"
#include "Object.h"
#include "SystemInfoServiceInterface.h"

namespace VelmoraMobile {

/// The device's services. Each accessor may give an empty pointer (a missing service is
/// an expected state). Callable from any thread.
class PlatformServicesInterface : public virtual ObjectInterface {
public:
    virtual std::shared_ptr<NetworkServiceInterface> GetNetworkService() = 0;
    virtual std::shared_ptr<LocalStorageServiceInterface> GetLocalStorageService() = 0;
    virtual std::shared_ptr<SystemInfoServiceInterface> GetSystemInfoService() = 0;
    virtual std::shared_ptr<JsonUtilityServiceInterface> GetJsonUtilityService() = 0;
    virtual std::shared_ptr<DatabaseServiceInterface> GetDatabaseService() = 0;
    virtual std::shared_ptr<CryptoServiceInterface> GetCryptoService() = 0;
};

}  // namespace VelmoraMobile
