#pragma once
// What the sandbox serves HTTPS with: a throwaway certificate authority made at start, and
// a server certificate it signs for loopback (IP 127.0.0.1 and ::1, DNS localhost). The
// authority's certificate is written to a temporary PEM file for clients to trust, so they
// keep verifying; the file is removed with this object.
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <vector>

namespace vxcloud::sandbox {

class ServerCertificate {
public:
    // Makes the authority and the certificate for `names` ("127.0.0.1", "localhost", ...),
    // and writes the authority's PEM file. Null, with the reason, when OpenSSL or the file
    // system refuses.
    static std::unique_ptr<ServerCertificate> create(const std::vector<std::string>& names, std::string& error);
    ~ServerCertificate();
    ServerCertificate(const ServerCertificate&) = delete;
    ServerCertificate& operator=(const ServerCertificate&) = delete;

    X509* certificate() const { return certificate_.get(); }
    EVP_PKEY* key() const { return key_.get(); }
    const std::string& caFile() const { return caFile_; }

private:
    ServerCertificate() = default;

    std::unique_ptr<X509, decltype(&X509_free)> certificate_{nullptr, X509_free};
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key_{nullptr, EVP_PKEY_free};
    std::string caFile_;
};

}  // namespace vxcloud::sandbox
