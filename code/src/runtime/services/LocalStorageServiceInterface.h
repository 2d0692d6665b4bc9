#pragma once

#include <memory>
#include <string>

#include "runtime/services/DataStoreInterface.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// Hands out named data stores; stores of different names never mix. Thread-safe.
class LocalStorageServiceInterface : public virtual ObjectInterface {
public:
    /// Empty only when the store cannot be opened.
    virtual std::shared_ptr<DataStoreInterface> GetDataStore(const std::string& name) = 0;
};

}  // namespace VelmoraMobile
