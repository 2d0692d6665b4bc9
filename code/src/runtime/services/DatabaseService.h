#pragma once

#include <string>

#include "runtime/services/DatabaseServiceInterface.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// Places database files in the data folder. Immutable; callable from any thread.
class DatabaseService : public Object, public virtual DatabaseServiceInterface {
public:
    explicit DatabaseService(const std::string& data_dir);

    /// `data_dir`/`name`. A name that is empty or would leave the folder ("/", "..") gives "" (logged).
    std::string GetDatabasePath(const std::string& name) const override;

private:
    std::string data_dir_;
};

}  // namespace VelmoraMobile
