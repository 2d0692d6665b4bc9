#pragma once

#include <cstdint>

namespace VelmoraMobile {

/// HTTP status codes the runtime and its callers compare against.
struct HttpConnectionConstants {
    static constexpr int32_t HTTP_OK = 200;
    static constexpr int32_t HTTP_REQUEST_TIMEOUT = 408;
    static constexpr int32_t HTTP_TOO_MANY_REQUESTS = 429;
    static constexpr int32_t HTTP_BAD_GATEWAY = 502;
    static constexpr int32_t HTTP_SERVICE_UNAVAILABLE = 503;
    static constexpr int32_t HTTP_GATEWAY_TIMEOUT = 504;
};

}  // namespace VelmoraMobile
