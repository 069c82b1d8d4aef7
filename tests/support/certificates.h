// certificates.h - an authority of this process's own and the server certificates that it signs.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace dro_test {

struct OpenSslFree {
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
using Certificate = std::unique_ptr<X509, OpenSslFree>;
using Key = std::unique_ptr<EVP_PKEY, OpenSslFree>;

// Good for a day, for qa, dev, stag and api.dro.localhost and for no other host.
struct ServerIdentity {
    Certificate authority;
    Certificate server;
    Key key;  // the server's
};

// Throws std::runtime_error when OpenSSL refuses.
ServerIdentity make_identity();

// The process's identity, made on the first call. Any thread.
const ServerIdentity& identity();

// Where the agent looks last for trusted certificates: the one place that tests write to.
const char* ca_bundle_path();

// Makes the authority of `identity` the only one trusted, in one step. An empty bundle trusts nobody; none at all
// switches the agent's check off.
void trust(const ServerIdentity& identity);
void remove_ca_bundle();

}  // namespace dro_test
