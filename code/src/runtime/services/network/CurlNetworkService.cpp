#include "runtime/services/network/CurlNetworkService.h"

#include <curl/curl.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <mutex>

#include "runtime/services/network/CurlHttpConnection.h"
#include "runtime/values/Log.h"

namespace VelmoraMobile {

namespace {

const char* const kLogTag = "CurlNetworkService";
const size_t kLoggedUrlLength = 256;
const int64_t kMaxTimeoutSeconds = 24 * 60 * 60;

void GlobalInitOnce() {
    static std::once_flag once;
    std::call_once(once, []() { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

// One easy handle per thread: curl_easy_reset keeps its connection cache, so a thread that
// talks to the same server again reuses the connection (and the TLS session).
struct ThreadHandle {
    CURL* handle = nullptr;
    ~ThreadHandle() {
        if (handle != nullptr) {
            curl_easy_cleanup(handle);
        }
    }
};

CURL* HandleOfThisThread() {
    thread_local ThreadHandle holder;
    if (holder.handle == nullptr) {
        holder.handle = curl_easy_init();
    } else {
        curl_easy_reset(holder.handle);
    }
    return holder.handle;
}

std::string UrlForLog(const std::string& url) {
    if (url.size() <= kLoggedUrlLength) {
        return url;
    }
    return url.substr(0, kLoggedUrlLength) + "... (" + std::to_string(url.size()) + " bytes)";
}

int64_t ClampSeconds(std::chrono::seconds value) {
    return std::min<int64_t>(std::max<int64_t>(value.count(), 1), kMaxTimeoutSeconds);
}

bool IsSafeHeader(const std::string& name, const std::string& value) {
    if (name.empty() || name.find_first_of(":\r\n") != std::string::npos) {
        return false;
    }
    return value.find_first_of("\r\n") == std::string::npos && value.find('\0') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

struct Response {
    std::string body;
    std::string message;
    std::map<std::string, std::string> headers;
    bool too_large = false;
};

size_t WriteBody(char* data, size_t size, size_t count, void* user) {
    auto* response = static_cast<Response*>(user);
    size_t bytes = size * count;
    if (response->body.size() + bytes > CurlNetworkService::MAX_RESPONSE_BYTES) {
        response->too_large = true;
        return 0;  // makes curl fail the transfer
    }
    response->body.append(data, bytes);
    return bytes;
}

std::string Trim(const std::string& text) {
    size_t begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string::npos) {
        return "";
    }
    size_t end = text.find_last_not_of(" \t\r\n");
    return text.substr(begin, end - begin + 1);
}

size_t ReadHeader(char* data, size_t size, size_t count, void* user) {
    auto* response = static_cast<Response*>(user);
    size_t bytes = size * count;
    std::string line(data, bytes);
    if (line.compare(0, 5, "HTTP/") == 0) {
        // A new status line (after "100 Continue", say): the headers before belong to another response.
        response->headers.clear();
        size_t first_space = line.find(' ');
        size_t second_space = first_space == std::string::npos ? std::string::npos : line.find(' ', first_space + 1);
        response->message = second_space == std::string::npos ? "" : Trim(line.substr(second_space + 1));
        return bytes;
    }
    size_t colon = line.find(':');
    if (colon != std::string::npos) {
        std::string name = Trim(line.substr(0, colon));
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        response->headers[name] = Trim(line.substr(colon + 1));
    }
    return bytes;
}

struct HeaderList {
    curl_slist* list = nullptr;
    ~HeaderList() { curl_slist_free_all(list); }
};

}  // namespace

CurlNetworkService::CurlNetworkService()
    : CurlNetworkService([]() {
          const char* ca_file = std::getenv("VELMORA_CA_FILE");
          return std::string(ca_file != nullptr ? ca_file : "");
      }()) {}

CurlNetworkService::CurlNetworkService(const std::string& ca_file) : ca_file_(ca_file) {
    GlobalInitOnce();
}

CurlNetworkService::~CurlNetworkService() = default;

bool CurlNetworkService::StopAsyncRequests(std::chrono::milliseconds deadline) {
    return worker_.Stop(deadline);
}

std::shared_ptr<HttpConnectionInterface> CurlNetworkService::ConnectUrl(
    const std::string& url, const HttpCommand& command, const std::string& connect_payload,
    const std::map<std::string, std::string>& headers, std::chrono::seconds connect_timeout,
    std::chrono::seconds read_timeout) {
    return Perform(ca_file_, url, command, connect_payload, headers, connect_timeout, read_timeout);
}

void CurlNetworkService::ConnectUrlAsync(
    const std::string& url, const HttpCommand& command, const std::string& connect_payload,
    const std::map<std::string, std::string>& headers, std::chrono::seconds connect_timeout,
    std::chrono::seconds read_timeout,
    const std::function<void(const std::shared_ptr<HttpConnectionInterface>&)>& callback) {
    // The task copies everything it needs and never touches this object, which may be gone
    // by the time a queued request runs.
    worker_.Post([ca_file = ca_file_, url, command = command, connect_payload, headers, connect_timeout, read_timeout,
                  callback]() {
        std::shared_ptr<HttpConnectionInterface> connection =
            Perform(ca_file, url, command, connect_payload, headers, connect_timeout, read_timeout);
        if (callback) {
            callback(connection);
        }
    });
}

std::shared_ptr<HttpConnectionInterface> CurlNetworkService::Perform(const std::string& ca_file, const std::string& url,
                                                                     HttpCommand command, const std::string& payload,
                                                                     const std::map<std::string, std::string>& headers,
                                                                     std::chrono::seconds connect_timeout,
                                                                     std::chrono::seconds read_timeout) {
    if (url.size() > MAX_URL_BYTES) {
        Log::Warning(kLogTag, "Refusing to send a URL of %d bytes (limit %d)", url.size(), MAX_URL_BYTES);
        return nullptr;
    }
    CURL* curl = HandleOfThisThread();
    if (curl == nullptr) {
        Log::Error(kLogTag, "Cannot create a curl handle");
        return nullptr;
    }
    if (url.find('\0') != std::string::npos || curl_easy_setopt(curl, CURLOPT_URL, url.c_str()) != CURLE_OK) {
        if (Log::Precheck(LoggingMode::WARNING_LOG)) {
            Log::Warning(kLogTag, "Refusing to send the URL (%s)", UrlForLog(url));
        }
        return nullptr;
    }
    int64_t connect_seconds = ClampSeconds(connect_timeout);
    int64_t read_seconds = ClampSeconds(read_timeout);
    Response response;
    char error[CURL_ERROR_SIZE] = {0};
    HeaderList header_list;
    for (const auto& header : headers) {
        if (!IsSafeHeader(header.first, header.second)) {
            Log::Warning(kLogTag, "Skipping a request header that would break the request (%s)", header.first);
            continue;
        }
        // "Name;" is curl's way to send a header with an empty value.
        std::string line = header.second.empty() ? header.first + ";" : header.first + ": " + header.second;
        curl_slist* extended = curl_slist_append(header_list.list, line.c_str());
        if (extended == nullptr) {
            Log::Error(kLogTag, "Out of memory for request headers");
            return nullptr;
        }
        header_list.list = extended;
    }

    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(connect_seconds * 1000));
    // The whole exchange never takes longer than both timeouts together, and a transfer that
    // stalls (under one byte a second) for the read timeout is given up earlier.
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>((connect_seconds + read_seconds) * 1000));
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, static_cast<long>(read_seconds));
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 2L);
    if (!ca_file.empty()) {
        curl_easy_setopt(curl, CURLOPT_CAINFO, ca_file.c_str());
    }
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, header_list.list);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, WriteBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &response);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, ReadHeader);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &response);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, error);
    if (command == HttpCommand::POST) {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(payload.size()));
        curl_easy_setopt(curl, CURLOPT_COPYPOSTFIELDS, payload.c_str());
    } else {
        curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
    }

    CURLcode result = curl_easy_perform(curl);
    // The handle outlives this call: drop the pointers into this frame.
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, nullptr);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, nullptr);
    if (result != CURLE_OK) {
        if (Log::Precheck(LoggingMode::DEBUG_LOG)) {
            std::string reason = response.too_large ? "response body too large"
                                                    : (error[0] != '\0' ? error : curl_easy_strerror(result));
            Log::Debug(kLogTag, "Request to (%s) failed: %s", UrlForLog(url), reason);
        }
        return nullptr;
    }
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    if (status <= 0) {
        if (Log::Precheck(LoggingMode::DEBUG_LOG)) {
            Log::Debug(kLogTag, "Request to (%s) got no HTTP status", UrlForLog(url));
        }
        return nullptr;
    }
    return std::make_shared<CurlHttpConnection>(static_cast<int32_t>(status), std::move(response.message),
                                                std::move(response.body), std::move(response.headers));
}

}  // namespace VelmoraMobile
