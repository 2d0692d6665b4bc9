#include "runtime/services/DatabaseService.h"

#include "runtime/values/Log.h"

namespace VelmoraMobile {

DatabaseService::DatabaseService(const std::string& data_dir) : data_dir_(data_dir) {}

std::string DatabaseService::GetDatabasePath(const std::string& name) const {
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos ||
        name.find('\0') != std::string::npos) {
        Log::Warning("DatabaseService", "Refusing database name (%s)", name);
        return "";
    }
    return data_dir_ + "/" + name;
}

}  // namespace VelmoraMobile
