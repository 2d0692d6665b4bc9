#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "runtime/services/HttpConnectionInterface.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

enum class HttpCommand : int32_t { GET = 0, POST = 1 };

/// HTTP client. Every operation may be called from any thread at once.
class NetworkServiceInterface : public virtual ObjectInterface {
public:
    /// Blocks until the response is read or a timeout passed; at most connect plus read
    /// timeout. Empty when no connection came about.
    virtual std::shared_ptr<HttpConnectionInterface> ConnectUrl(const std::string& url, const HttpCommand& command,
                                                                const std::string& connect_payload,
                                                                const std::map<std::string, std::string>& headers,
                                                                std::chrono::seconds connect_timeout,
                                                                std::chrono::seconds read_timeout) = 0;

    /// Returns at once; `callback` runs on a worker with the result of ConnectUrl.
    virtual void ConnectUrlAsync(
        const std::string& url, const HttpCommand& command, const std::string& connect_payload,
        const std::map<std::string, std::string>& headers, std::chrono::seconds connect_timeout,
        std::chrono::seconds read_timeout,
        const std::function<void(const std::shared_ptr<HttpConnectionInterface>&)>& callback) = 0;
};

}  // namespace VelmoraMobile
