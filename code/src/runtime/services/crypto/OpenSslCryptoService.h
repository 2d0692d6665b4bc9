#pragma once

#include <memory>
#include <string>

#include "runtime/services/CryptoServiceInterface.h"
#include "runtime/services/UuidInterface.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// Crypto on OpenSSL. Immutable after construction; callable from any thread.
class OpenSslCryptoService : public Object, public virtual CryptoServiceInterface {
public:
    OpenSslCryptoService();

    /// Always the same OpenSslUuid.
    std::shared_ptr<UuidInterface> GetUuidInterface() override;
    /// SHA-256 of the bytes of `input` as 64 lower-case hex digits. Stored digests are compared
    /// with new ones, so this must never change. "" only if OpenSSL fails (logged).
    std::string GetDigest(const std::string& input) override;

private:
    std::shared_ptr<UuidInterface> uuid_;
};

}  // namespace VelmoraMobile
