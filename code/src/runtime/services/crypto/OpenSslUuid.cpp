#include "runtime/services/crypto/OpenSslUuid.h"

#include <openssl/rand.h>

#include <random>

#include "runtime/values/Log.h"

namespace VelmoraMobile {

void OpenSslUuid::GenerateUuid(uint8_t (&out)[16]) {
    if (RAND_bytes(out, sizeof(out)) != 1) {
        Log::Error("OpenSslUuid", "RAND_bytes failed; using the system random device for the UUID");
        std::random_device device;
        for (uint8_t& byte : out) {
            byte = static_cast<uint8_t>(device());
        }
    }
    out[6] = static_cast<uint8_t>((out[6] & 0x0F) | 0x40);
    out[8] = static_cast<uint8_t>((out[8] & 0x3F) | 0x80);
}

}  // namespace VelmoraMobile
