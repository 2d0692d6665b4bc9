#pragma once

#include <cstdint>

#include "runtime/services/UuidInterface.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// Random (version 4) UUIDs from OpenSSL's generator. Stateless; callable from any thread.
class OpenSslUuid : public Object, public virtual UuidInterface {
public:
    /// 16 bytes from RAND_bytes with the version nibble set to 4 and the variant bits to 10.
    /// Should the generator fail, the bytes come from std::random_device instead (logged).
    void GenerateUuid(uint8_t (&out)[16]) override;
};

}  // namespace VelmoraMobile
