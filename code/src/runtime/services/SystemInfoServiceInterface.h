#pragma once

#include <locale>
#include <string>

#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// Facts about the device. Thread-safe.
class SystemInfoServiceInterface : public virtual ObjectInterface {
public:
    /// The user's locale from LC_ALL, LC_MESSAGES or LANG ("en_US.UTF-8" gives name "en_US").
    virtual std::locale GetSystemLocale() const = 0;
    /// The platform's folder for application data (the data folder).
    virtual std::string GetApplicationCacheDir() const = 0;
    virtual std::string GetApplicationName() const = 0;
    virtual std::string GetApplicationVersion() const = 0;
    virtual std::string GetOperatingSystemName() const = 0;
};

}  // namespace VelmoraMobile
