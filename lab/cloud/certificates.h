// certificates.h - generates the lab's certificate authority and the server certificate signed by it. Any thread.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <vector>

namespace lab {

struct KeyFree {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct CertificateFree {
    void operator()(X509* certificate) const { X509_free(certificate); }
};
using Key = std::unique_ptr<EVP_PKEY, KeyFree>;
using Certificate = std::unique_ptr<X509, CertificateFree>;

struct ServerIdentity {
    Certificate authority;  // its private key is discarded after signing
    Certificate server;
    Key serverKey;
};

inline constexpr long kDaySeconds = 24L * 60 * 60;

// Generates both with EC keys, valid from one day ago. The server certificate covers `hosts` and expires
// `serverSeconds` from now; a negative number makes it already expired. Throws std::runtime_error.
ServerIdentity makeServerIdentity(const std::vector<std::string>& hosts, long serverSeconds = kDaySeconds);

// Writes the certificate as PEM, atomically, and creates a missing folder. Throws std::runtime_error with the path.
void writeBundle(const std::string& path, const X509* authority);

}  // namespace lab
