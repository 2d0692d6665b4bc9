#include "runtime/services/SystemInfoService.h"

#include <sys/utsname.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>

#include "runtime/services/LocaleNameFacet.h"
#include "runtime/services/helpers/NetworkConnectionUtil.h"

#ifndef VELMORA_VERSION
#define VELMORA_VERSION "0.0.0"
#endif

namespace VelmoraMobile {

namespace {

std::string FirstLocaleVariable() {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value != nullptr && *value != '\0') {
            return value;
        }
    }
    return "";
}

}  // namespace

SystemInfoService::SystemInfoService(const std::string& data_dir)
    : data_dir_(data_dir), application_name_(program_invocation_short_name) {
    struct utsname info {};
    operating_system_name_ = uname(&info) == 0 ? info.sysname : "Linux";
}

std::locale SystemInfoService::GetSystemLocale() const {
    std::string full_name = FirstLocaleVariable();
    std::string name = NetworkConnectionUtil::NormalizeLocaleName(full_name);
    if (name.empty()) {
        return std::locale::classic();
    }
    std::locale base = std::locale::classic();
    try {
        base = std::locale(full_name.c_str());
    } catch (const std::runtime_error&) {
        // Not installed here: the classic facets do, the name is what callers need.
    }
    return LocaleNameFacet::Attach(base, name);
}

std::string SystemInfoService::GetApplicationCacheDir() const {
    return data_dir_;
}

std::string SystemInfoService::GetApplicationName() const {
    return application_name_;
}

std::string SystemInfoService::GetApplicationVersion() const {
    return VELMORA_VERSION;
}

std::string SystemInfoService::GetOperatingSystemName() const {
    return operating_system_name_;
}

}  // namespace VelmoraMobile
