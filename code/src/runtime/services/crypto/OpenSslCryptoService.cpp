#include "runtime/services/crypto/OpenSslCryptoService.h"

#include <openssl/evp.h>

#include "runtime/services/crypto/OpenSslUuid.h"
#include "runtime/values/Log.h"

namespace VelmoraMobile {

OpenSslCryptoService::OpenSslCryptoService() : uuid_(std::make_shared<OpenSslUuid>()) {}

std::shared_ptr<UuidInterface> OpenSslCryptoService::GetUuidInterface() {
    return uuid_;
}

std::string OpenSslCryptoService::GetDigest(const std::string& input) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(input.data(), input.size(), digest, &length, EVP_sha256(), nullptr) != 1) {
        Log::Error("OpenSslCryptoService", "SHA-256 digest failed");
        return "";
    }
    static const char kHex[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(length * 2);
    for (unsigned int i = 0; i < length; ++i) {
        hex.push_back(kHex[digest[i] >> 4]);
        hex.push_back(kHex[digest[i] & 0x0F]);
    }
    return hex;
}

}  // namespace VelmoraMobile
