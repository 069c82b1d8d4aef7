#include "certificates.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include <unistd.h>

namespace lab {

namespace {

constexpr int kX509Version3 = 2;

[[noreturn]] void failed(const std::string& what) {
    std::array<char, 256> reason{};
    ERR_error_string_n(ERR_get_error(), reason.data(), reason.size());
    throw std::runtime_error("cannot make " + what + ": " + reason.data());
}

void addExtension(X509* certificate, X509* issuer, int kind, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
        X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()), X509_EXTENSION_free);
    if (!extension || X509_add_ext(certificate, extension.get(), -1) != 1) {
        failed("a certificate extension");
    }
}

Certificate newCertificate(const char* name, long serial, long seconds, EVP_PKEY* key) {
    Certificate certificate(X509_new());
    if (!certificate) {
        failed("a certificate");
    }
    X509_set_version(certificate.get(), kX509Version3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), serial);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -kDaySeconds);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), seconds);
    X509_set_pubkey(certificate.get(), key);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(name), -1, -1, 0);
    return certificate;
}

void sign(X509* certificate, X509* issuer, EVP_PKEY* issuerKey) {
    X509_set_issuer_name(certificate, X509_get_subject_name(issuer));
    if (X509_sign(certificate, issuerKey, EVP_sha256()) == 0) {
        failed("a signature");
    }
}

}  // namespace

ServerIdentity makeServerIdentity(const std::vector<std::string>& hosts, long serverSeconds) {
    const Key authorityKey(EVP_EC_gen("P-256"));
    ServerIdentity identity;
    identity.serverKey.reset(EVP_EC_gen("P-256"));
    if (!authorityKey || !identity.serverKey) {
        failed("a key");
    }
    identity.authority = newCertificate("drolab certificate authority", 1, kDaySeconds, authorityKey.get());
    X509* authority = identity.authority.get();
    addExtension(authority, authority, NID_basic_constraints, "critical,CA:TRUE");
    addExtension(authority, authority, NID_key_usage, "critical,keyCertSign");
    addExtension(authority, authority, NID_subject_key_identifier, "hash");
    sign(authority, authority, authorityKey.get());

    identity.server = newCertificate("drolab cloud", 2, serverSeconds, identity.serverKey.get());
    std::string names;
    for (const auto& host : hosts) {
        names += (names.empty() ? "DNS:" : ",DNS:") + host;
    }
    addExtension(identity.server.get(), authority, NID_subject_alt_name, names);
    addExtension(identity.server.get(), authority, NID_ext_key_usage, "serverAuth");
    sign(identity.server.get(), authority, authorityKey.get());
    return identity;
}

void writeBundle(const std::string& path, const X509* authority) {
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    const std::string fresh = path + "." + std::to_string(::getpid());
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(fresh.c_str(), "we"), std::fclose);
    const bool written = file && PEM_write_X509(file.get(), authority) == 1;
    file.reset();
    if (!written || std::rename(fresh.c_str(), path.c_str()) != 0) {
        throw std::runtime_error("cannot write the certificate bundle " + path);
    }
}

}  // namespace lab
