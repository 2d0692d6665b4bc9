#include "tools/server/SelfSignedCertificate.h"

#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <vector>

namespace VelmoraTestServer {
namespace {

struct PkeyFree {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct X509Free {
    void operator()(X509* cert) const { X509_free(cert); }
};
struct FileClose {
    void operator()(FILE* file) const { std::fclose(file); }
};

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error("self-signed certificate: " + what);
}

void AddExtension(X509* cert, int nid, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, cert, cert, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
    if (extension == nullptr) Fail(std::string("cannot make extension ") + value);
    const int added = X509_add_ext(cert, extension, -1);
    X509_EXTENSION_free(extension);
    if (added != 1) Fail(std::string("cannot add extension ") + value);
}

std::unique_ptr<X509, X509Free> MakeCertificate(EVP_PKEY* key) {
    std::unique_ptr<X509, X509Free> cert(X509_new());
    if (!cert) Fail("X509_new");
    X509_set_version(cert.get(), 2);

    // A random serial, so that a client never mixes two runs' certificates up.
    unsigned char serial_bytes[16];
    if (RAND_bytes(serial_bytes, sizeof serial_bytes) != 1) Fail("RAND_bytes");
    serial_bytes[0] &= 0x7f;
    BIGNUM* serial = BN_bin2bn(serial_bytes, sizeof serial_bytes, nullptr);
    if (serial == nullptr || BN_to_ASN1_INTEGER(serial, X509_get_serialNumber(cert.get())) == nullptr) {
        BN_free(serial);
        Fail("serial");
    }
    BN_free(serial);

    // Valid from an hour ago, against clock skew between the server and a client's check.
    X509_gmtime_adj(X509_getm_notBefore(cert.get()), -3600);
    X509_gmtime_adj(X509_getm_notAfter(cert.get()), 30L * 24 * 3600);

    X509_NAME* name = X509_get_subject_name(cert.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("127.0.0.1"), -1, -1,
                               0);
    X509_set_issuer_name(cert.get(), name);
    if (X509_set_pubkey(cert.get(), key) != 1) Fail("X509_set_pubkey");

    AddExtension(cert.get(), NID_basic_constraints, "critical,CA:TRUE");
    AddExtension(cert.get(), NID_key_usage, "critical,digitalSignature,keyCertSign");
    AddExtension(cert.get(), NID_ext_key_usage, "serverAuth");
    AddExtension(cert.get(), NID_subject_key_identifier, "hash");
    AddExtension(cert.get(), NID_subject_alt_name, "IP:127.0.0.1,DNS:localhost");

    if (X509_sign(cert.get(), key, EVP_sha256()) == 0) Fail("X509_sign");
    return cert;
}

std::string MakeTempFolder() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/velmora-identity-XXXXXX";
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (mkdtemp(buffer.data()) == nullptr) Fail("cannot create a temp folder");
    return buffer.data();
}

template <typename Write>
void WritePem(const std::string& path, Write write) {
    std::unique_ptr<FILE, FileClose> file(std::fopen(path.c_str(), "w"));
    if (!file) Fail("cannot write " + path);
    if (write(file.get()) != 1) Fail("cannot encode " + path);
}

}  // namespace

SelfSignedCertificate::SelfSignedCertificate() {
    // P-256 is quick to make, so every server start can afford its own key.
    std::unique_ptr<EVP_PKEY, PkeyFree> key(EVP_EC_gen("P-256"));
    if (!key) Fail("EC key generation");
    auto cert = MakeCertificate(key.get());

    folder_ = MakeTempFolder();
    cert_file_ = folder_ + "/cert.pem";
    key_file_ = folder_ + "/key.pem";
    try {
        WritePem(cert_file_, [&](FILE* file) { return PEM_write_X509(file, cert.get()); });
        WritePem(key_file_, [&](FILE* file) {
            return PEM_write_PrivateKey(file, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
        });
    } catch (...) {
        unlink(cert_file_.c_str());
        unlink(key_file_.c_str());
        rmdir(folder_.c_str());
        throw;
    }
}

SelfSignedCertificate::~SelfSignedCertificate() {
    unlink(cert_file_.c_str());
    unlink(key_file_.c_str());
    rmdir(folder_.c_str());
}

}  // namespace VelmoraTestServer
