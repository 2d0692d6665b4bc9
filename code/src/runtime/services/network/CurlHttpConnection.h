#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "runtime/services/HttpConnectionInterface.h"
#include "runtime/values/Object.h"

namespace VelmoraMobile {

/// A finished HTTP exchange as read by CurlNetworkService. Immutable; any thread may read it.
class CurlHttpConnection : public Object, public virtual HttpConnectionInterface {
public:
    /// `headers` keys in lower case.
    CurlHttpConnection(int32_t status, std::string message, std::string body,
                       std::map<std::string, std::string> headers);

    std::string GetResponse() override;
    int32_t GetResponseCode() override;
    /// Reason phrase of the status line ("OK"); "" when the server sent none.
    std::string GetResponseMessage() override;
    /// Response header `key` (any case); "" when absent. A repeated header gives its last value.
    std::string GetResponsePropertyValue(const std::string& key) override;
    /// Nothing to release: the response has been read in full already.
    void Close() override;

private:
    int32_t status_;
    std::string message_;
    std::string body_;
    std::map<std::string, std::string> headers_;
};

}  // namespace VelmoraMobile
