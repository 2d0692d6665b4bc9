#pragma once

#include <locale>
#include <string>

#include "runtime/services/SystemInfoServiceInterface.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// Facts about this machine. Immutable after construction but for the locale, which is read
/// from the environment at each call. Callable from any thread (as long as nobody changes the
/// environment at the same time).
class SystemInfoService : public Object, public virtual SystemInfoServiceInterface {
public:
    explicit SystemInfoService(const std::string& data_dir);

    /// The first non-empty of LC_ALL, LC_MESSAGES and LANG. "en_US.UTF-8" gives a locale that
    /// carries the name "en_US" in a LocaleNameFacet (the real locale's facets when it is
    /// installed, else the classic ones); C, POSIX or nothing set give the classic locale.
    std::locale GetSystemLocale() const override;
    std::string GetApplicationCacheDir() const override;
    /// The running program's short name.
    std::string GetApplicationName() const override;
    /// The library's version.
    std::string GetApplicationVersion() const override;
    /// The kernel's name, e.g. "Linux".
    std::string GetOperatingSystemName() const override;

private:
    std::string data_dir_;
    std::string application_name_;
    std::string operating_system_name_;
};

}  // namespace VelmoraMobile
