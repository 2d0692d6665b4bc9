#include "runtime/services/helpers/UrlBuilder.h"

#include "runtime/services/helpers/UrlEncoder.h"
#include "runtime/values/Log.h"
#include "runtime/values/StringUtils.h"

namespace VelmoraMobile {

namespace {

const char* const kLogTag = "UrlBuilder";

// Characters that would let a host value smuggle in a path, query, fragment or user part.
bool IsUsableHost(const std::string& host) {
    if (host.empty()) {
        return false;
    }
    for (char ch : host) {
        auto c = static_cast<unsigned char>(ch);
        if (c <= ' ' || c == 0x7F || ch == '/' || ch == '?' || ch == '#' || ch == '@' || ch == '\\') {
            return false;
        }
    }
    return true;
}

std::string EncodeQueryText(const std::string& text) {
    std::string encoded;
    bool first_pair = true;
    for (const std::string& pair : StringUtils::Split(text, "&")) {
        if (!first_pair) {
            encoded.push_back('&');
        }
        first_pair = false;
        size_t equals = pair.find('=');
        if (equals == std::string::npos) {
            encoded += UrlEncoder::Encode(pair);
        } else {
            encoded += UrlEncoder::Encode(pair.substr(0, equals));
            encoded.push_back('=');
            encoded += UrlEncoder::Encode(pair.substr(equals + 1));
        }
    }
    return encoded;
}

}  // namespace

UrlBuilder& UrlBuilder::EnableSsl(bool enable) {
    ssl_ = enable;
    return *this;
}

UrlBuilder& UrlBuilder::SetHost(const std::string& host) {
    host_ = host;
    return *this;
}

UrlBuilder& UrlBuilder::AddPath(const std::string& path) {
    for (const std::string& element : StringUtils::Split(path, "/")) {
        if (!element.empty()) {
            path_.push_back(UrlEncoder::Encode(element));
        }
    }
    return *this;
}

UrlBuilder& UrlBuilder::AddQueryParameters(const std::map<std::string, std::string>& parameters) {
    for (const auto& entry : parameters) {
        parameters_[entry.first] = entry.second;
    }
    return *this;
}

UrlBuilder& UrlBuilder::AddQuery(const std::string& text, EncodeType type) {
    if (!text.empty()) {
        queries_.push_back(type == ALREADY_ENCODED ? text : EncodeQueryText(text));
    }
    return *this;
}

std::string UrlBuilder::Build() const {
    if (!IsUsableHost(host_)) {
        Log::Debug(kLogTag, "Cannot build a URL with the host (%s)", host_);
        return "";
    }
    std::string url = ssl_ ? "https://" : "http://";
    url += host_;
    for (const std::string& element : path_) {
        url.push_back('/');
        url += element;
    }
    char separator = '?';
    for (const auto& entry : parameters_) {
        url.push_back(separator);
        separator = '&';
        url += UrlEncoder::Encode(entry.first);
        url.push_back('=');
        url += UrlEncoder::Encode(entry.second);
    }
    for (const std::string& query : queries_) {
        url.push_back(separator);
        separator = '&';
        url += query;
    }
    return url;
}

}  // namespace VelmoraMobile
