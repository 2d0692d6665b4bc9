#pragma once

#include <memory>

#include "runtime/services/CryptoServiceInterface.h"
#include "runtime/services/DatabaseServiceInterface.h"
#include "runtime/services/JsonUtilityServiceInterface.h"
#include "runtime/services/LocalStorageServiceInterface.h"
#include "runtime/services/NetworkServiceInterface.h"
#include "runtime/services/SystemInfoServiceInterface.h"
#include "runtime/values/Object.h"

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
