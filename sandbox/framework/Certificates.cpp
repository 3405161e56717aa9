#include "framework/Certificates.h"

#include <openssl/bn.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace vxcloud::sandbox {
namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;

constexpr long kValiditySeconds = 30L * 24 * 3600;

Key newKey() { return Key(EVP_EC_gen("P-256"), EVP_PKEY_free); }

bool addExtension(X509* certificate, X509* issuer, int nid, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str());
    if (!extension) return false;
    const bool added = X509_add_ext(certificate, extension, -1) == 1;
    X509_EXTENSION_free(extension);
    return added;
}

// A certificate for `key` named `commonName`, signed by `issuer` (itself when null).
Certificate issue(EVP_PKEY* key, const std::string& commonName, X509* issuer, EVP_PKEY* issuerKey,
                  const std::vector<std::pair<int, std::string>>& extensions) {
    Certificate certificate(X509_new(), X509_free);
    if (!certificate) return certificate;
    X509* cert = certificate.get();
    unsigned char serial[16];
    std::unique_ptr<BIGNUM, decltype(&BN_free)> number(nullptr, BN_free);
    if (RAND_bytes(serial, sizeof serial) == 1) {
        serial[0] &= 0x7F;  // positive
        number.reset(BN_bin2bn(serial, sizeof serial, nullptr));
    }
    X509_NAME* name = X509_get_subject_name(cert);
    const bool ok =
        number && X509_set_version(cert, 2) == 1 && BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(cert)) &&
        X509_gmtime_adj(X509_getm_notBefore(cert), -3600) && X509_gmtime_adj(X509_getm_notAfter(cert), kValiditySeconds) &&
        X509_set_pubkey(cert, key) == 1 &&
        X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("vxcloud-sandbox"),
                                   -1, -1, 0) == 1 &&
        X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                                   reinterpret_cast<const unsigned char*>(commonName.c_str()), -1, -1, 0) == 1 &&
        X509_set_issuer_name(cert, issuer ? X509_get_subject_name(issuer) : name) == 1;
    if (!ok) return Certificate(nullptr, X509_free);
    for (const auto& [nid, value] : extensions) {
        if (!addExtension(cert, issuer ? issuer : cert, nid, value)) return Certificate(nullptr, X509_free);
    }
    if (X509_sign(cert, issuerKey ? issuerKey : key, EVP_sha256()) <= 0) return Certificate(nullptr, X509_free);
    return certificate;
}

// Writes the PEM of `certificate` to a new owner-only temporary file; its path, or empty.
std::string writeTemporaryPem(X509* certificate) {
    std::error_code ignored;
    std::string path = (std::filesystem::temp_directory_path(ignored) / "vxcloud-sandbox-ca-XXXXXX.pem").string();
    const int fd = ::mkstemps(path.data(), 4);
    if (fd < 0) return {};
    std::FILE* file = ::fdopen(fd, "w");
    if (!file) {
        ::close(fd);
        ::unlink(path.c_str());
        return {};
    }
    const bool written = PEM_write_X509(file, certificate) == 1;
    if (std::fclose(file) != 0 || !written) {
        ::unlink(path.c_str());
        return {};
    }
    return path;
}

}  // namespace

std::unique_ptr<ServerCertificate> ServerCertificate::create(const std::vector<std::string>& names,
                                                             std::string& error) {
    Key caKey = newKey();
    Key serverKey = newKey();
    if (!caKey || !serverKey) {
        error = "cannot make keys for the sandbox's certificate";
        return nullptr;
    }
    const Certificate authority =
        issue(caKey.get(), "vxcloud-sandbox throwaway CA", nullptr, nullptr,
              {{NID_basic_constraints, "critical,CA:TRUE,pathlen:0"},
               {NID_key_usage, "critical,keyCertSign,cRLSign"},
               {NID_subject_key_identifier, "hash"}});
    std::string altNames;
    for (const auto& name : names) {
        const bool ip = name.find_first_not_of("0123456789.") == std::string::npos || name.find(':') != std::string::npos;
        altNames += (altNames.empty() ? "" : ",") + std::string(ip ? "IP:" : "DNS:") + name;
    }
    Certificate server = authority ? issue(serverKey.get(), names.empty() ? "localhost" : names.front(),
                                           authority.get(), caKey.get(),
                                           {{NID_basic_constraints, "critical,CA:FALSE"},
                                            {NID_key_usage, "critical,digitalSignature"},
                                            {NID_ext_key_usage, "serverAuth"},
                                            {NID_subject_alt_name, altNames},
                                            {NID_authority_key_identifier, "keyid"}})
                                   : Certificate(nullptr, X509_free);
    if (!server) {
        error = "cannot make the sandbox's certificate";
        return nullptr;
    }
    std::unique_ptr<ServerCertificate> out(new ServerCertificate());
    out->caFile_ = writeTemporaryPem(authority.get());
    if (out->caFile_.empty()) {
        error = "cannot write the sandbox's CA file to the temporary folder";
        return nullptr;
    }
    out->certificate_ = std::move(server);
    out->key_ = std::move(serverKey);
    return out;
}

ServerCertificate::~ServerCertificate() {
    if (!caFile_.empty()) ::unlink(caFile_.c_str());
}

}  // namespace vxcloud::sandbox
