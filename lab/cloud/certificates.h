// certificates.h - a certificate authority of the lab's own and a server certificate that it signed, made on the spot.
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
    Certificate authority;  // its key is thrown away once the server's certificate is signed
    Certificate server;
    Key serverKey;
};

inline constexpr long kDaySeconds = 24L * 60 * 60;

// Makes both (EC keys, valid since a day), the server's for `hosts` and until `serverSeconds` from now, which may be
// past. Throws std::runtime_error.
ServerIdentity makeServerIdentity(const std::vector<std::string>& hosts, long serverSeconds = kDaySeconds);

// Writes the certificate as PEM, in one step that a reader never sees half of; makes the folder when it is missing.
// Throws std::runtime_error with the path.
void writeBundle(const std::string& path, const X509* authority);

}  // namespace lab
