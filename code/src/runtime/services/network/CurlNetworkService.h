#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "runtime/services/NetworkServiceInterface.h"
#include "runtime/services/network/AsyncRequestWorker.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// HTTP(S) client on libcurl. Each calling thread has its own curl handle, so connections to
/// a server are reused between requests of that thread. TLS peers and host names are verified;
/// the CA bundle named by VELMORA_CA_FILE (read at construction) is used when set.
/// Every operation may be called from any thread at once.
class CurlNetworkService : public Object, public virtual NetworkServiceInterface {
public:
    /// Largest response body accepted; a bigger one fails the request.
    static constexpr size_t MAX_RESPONSE_BYTES = 16 * 1024 * 1024;
    /// Longest URL sent; a longer one is refused (logged) before any connection is made.
    static constexpr size_t MAX_URL_BYTES = 512 * 1024;

    /// Uses VELMORA_CA_FILE when set.
    CurlNetworkService();
    /// Uses `ca_file` ("" for the system's bundle only) and ignores the environment.
    explicit CurlNetworkService(const std::string& ca_file);
    /// StopAsyncRequests(AsyncRequestWorker::DEFAULT_STOP_DEADLINE).
    ~CurlNetworkService() override;

    /// Lets queued asynchronous requests go out until `deadline`, then drops the rest (logged);
    /// a request still in flight then ends by its own timeouts on its thread. Later
    /// ConnectUrlAsync calls are dropped. False when something was dropped or left running.
    bool StopAsyncRequests(std::chrono::milliseconds deadline);

    /// GET (body ignored) or POST (body sent). Blocks for at most connect plus read timeout
    /// (each at least one second). The connection phase is bounded by the connect timeout and
    /// a stalled transfer by the read timeout. Empty (logged at Debug) when no complete HTTP
    /// response came about: refused, timed out, dropped, TLS refused, bad URL, oversized body;
    /// a URL over MAX_URL_BYTES or with a NUL byte is refused with a Warning.
    /// Headers whose name or value could break the request (CR, LF, ":" in the name) are
    /// skipped and logged.
    std::shared_ptr<HttpConnectionInterface> ConnectUrl(const std::string& url, const HttpCommand& command,
                                                        const std::string& connect_payload,
                                                        const std::map<std::string, std::string>& headers,
                                                        std::chrono::seconds connect_timeout,
                                                        std::chrono::seconds read_timeout) override;

    /// Returns at once; the request runs on a small worker pool, which then calls `callback`
    /// (if any) with the result of ConnectUrl.
    void ConnectUrlAsync(const std::string& url, const HttpCommand& command, const std::string& connect_payload,
                         const std::map<std::string, std::string>& headers, std::chrono::seconds connect_timeout,
                         std::chrono::seconds read_timeout,
                         const std::function<void(const std::shared_ptr<HttpConnectionInterface>&)>& callback) override;

private:
    static std::shared_ptr<HttpConnectionInterface> Perform(const std::string& ca_file, const std::string& url,
                                                            HttpCommand command, const std::string& payload,
                                                            const std::map<std::string, std::string>& headers,
                                                            std::chrono::seconds connect_timeout,
                                                            std::chrono::seconds read_timeout);

    const std::string ca_file_;
    AsyncRequestWorker worker_;
};

}  // namespace VelmoraMobile
