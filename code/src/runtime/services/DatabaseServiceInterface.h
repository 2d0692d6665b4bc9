#pragma once

#include <string>

#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// Where database files live. Thread-safe.
class DatabaseServiceInterface : public virtual ObjectInterface {
public:
    /// Full path of the database file `name` inside the data folder.
    virtual std::string GetDatabasePath(const std::string& name) const = 0;
};

}  // namespace VelmoraMobile
