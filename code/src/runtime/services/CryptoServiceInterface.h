#pragma once

#include <memory>
#include <string>

#include "runtime/services/UuidInterface.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// Crypto. Thread-safe.
class CryptoServiceInterface : public virtual ObjectInterface {
public:
    /// May be empty.
    virtual std::shared_ptr<UuidInterface> GetUuidInterface() = 0;
    /// SHA-256 of `input`, lower-case hex. Never changes between versions.
    virtual std::string GetDigest(const std::string& input) = 0;
};

}  // namespace VelmoraMobile
