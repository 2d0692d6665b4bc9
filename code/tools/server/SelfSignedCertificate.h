#pragma once

#include <string>

namespace VelmoraTestServer {

/// A fresh key and self-signed certificate for CN 127.0.0.1 (subjectAltName IP:127.0.0.1 and
/// DNS:localhost), written as PEM files into a new temp folder that is removed on destruction.
/// The certificate is its own CA, so a client trusts it by taking `CertFile()` as its CA file.
class SelfSignedCertificate {
public:
    /// Throws std::runtime_error when OpenSSL or the file system fails.
    SelfSignedCertificate();
    ~SelfSignedCertificate();
    SelfSignedCertificate(const SelfSignedCertificate&) = delete;
    SelfSignedCertificate& operator=(const SelfSignedCertificate&) = delete;

    const std::string& CertFile() const { return cert_file_; }
    const std::string& KeyFile() const { return key_file_; }

private:
    std::string folder_;
    std::string cert_file_;
    std::string key_file_;
};

}  // namespace VelmoraTestServer
