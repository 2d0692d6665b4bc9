#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace VelmoraMobile {

/// Assembles a URL: scheme, host, path elements, then a query made of the parameter map (in
/// key order, keys and values percent-encoded) followed by the AddQuery texts in the order
/// added, all joined by "&". A plain value object; use one instance per thread.
class UrlBuilder {
public:
    /// How AddQuery treats its text.
    enum EncodeType : int32_t {
        /// Raw "key=value&key=value" text: each key and value is percent-encoded here.
        ENCODE = 0,
        /// Text that is already encoded: it goes into the query as it stands.
        ALREADY_ENCODED = 1,
    };

    UrlBuilder() = default;

    /// true gives "https", false "http" (the default).
    UrlBuilder& EnableSsl(bool enable);
    /// Host, optionally with ":port". No scheme, no path.
    UrlBuilder& SetHost(const std::string& host);
    /// Appends path elements; "a/b" adds two. Each element is percent-encoded.
    UrlBuilder& AddPath(const std::string& path);
    /// Merges entries into the parameter map; a key given again takes the new value.
    UrlBuilder& AddQueryParameters(const std::map<std::string, std::string>& parameters);
    /// Appends a query text; an empty text adds nothing.
    UrlBuilder& AddQuery(const std::string& text, EncodeType type);

    /// The URL, or "" (with a log line) when the host is empty or not a plain host name.
    std::string Build() const;

private:
    bool ssl_ = false;
    std::string host_;
    std::vector<std::string> path_;
    std::map<std::string, std::string> parameters_;
    std::vector<std::string> queries_;
};

}  // namespace VelmoraMobile
