#include "runtime/services/network/CurlHttpConnection.h"

#include <algorithm>
#include <cctype>

namespace VelmoraMobile {

CurlHttpConnection::CurlHttpConnection(int32_t status, std::string message, std::string body,
                                       std::map<std::string, std::string> headers)
    : status_(status), message_(std::move(message)), body_(std::move(body)), headers_(std::move(headers)) {}

std::string CurlHttpConnection::GetResponse() {
    return body_;
}

int32_t CurlHttpConnection::GetResponseCode() {
    return status_;
}

std::string CurlHttpConnection::GetResponseMessage() {
    return message_;
}

std::string CurlHttpConnection::GetResponsePropertyValue(const std::string& key) {
    std::string lower = key;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    auto it = headers_.find(lower);
    return it == headers_.end() ? "" : it->second;
}

void CurlHttpConnection::Close() {}

}  // namespace VelmoraMobile
