#include "certificates.h"

#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "provisioning.h"

namespace dro_test {
namespace {

constexpr long kDaySeconds = 86'400;

void require(bool done) {
    if (!done) {
        throw std::runtime_error("OpenSSL refused to make a certificate");
    }
}

Certificate unsigned_certificate(const char* name, EVP_PKEY* key) {
    static long serial = 0;
    Certificate made(X509_new());
    require(made && X509_set_version(made.get(), 2) == 1);
    ASN1_INTEGER_set(X509_get_serialNumber(made.get()), ++serial);
    X509_gmtime_adj(X509_getm_notBefore(made.get()), -kDaySeconds);
    X509_gmtime_adj(X509_getm_notAfter(made.get()), kDaySeconds);
    require(X509_set_pubkey(made.get(), key) == 1);
    const auto* text = reinterpret_cast<const unsigned char*>(name);
    require(X509_NAME_add_entry_by_txt(X509_get_subject_name(made.get()), "CN", MBSTRING_ASC, text, -1, -1, 0) == 1);
    return made;
}

void extend(X509* certificate, int kind, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
        X509V3_EXT_conf_nid(nullptr, &context, kind, value), X509_EXTENSION_free);
    require(extension && X509_add_ext(certificate, extension.get(), -1) == 1);
}

void sign(X509* certificate, const X509* issuer, EVP_PKEY* issuerKey) {
    require(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) == 1);
    require(X509_sign(certificate, issuerKey, EVP_sha256()) > 0);
}

}  // namespace

ServerIdentity make_identity() {
    const Key authorityKey(EVP_EC_gen("P-256"));
    ServerIdentity made;
    made.key.reset(EVP_EC_gen("P-256"));
    require(authorityKey && made.key);
    made.authority = unsigned_certificate("test authority", authorityKey.get());
    extend(made.authority.get(), NID_basic_constraints, "critical,CA:TRUE");
    sign(made.authority.get(), made.authority.get(), authorityKey.get());
    made.server = unsigned_certificate("test cloud", made.key.get());
    extend(made.server.get(), NID_subject_alt_name,
           "DNS:qa.dro.localhost,DNS:dev.dro.localhost,DNS:stag.dro.localhost,DNS:api.dro.localhost");
    sign(made.server.get(), made.authority.get(), authorityKey.get());
    return made;
}

const ServerIdentity& identity() {
    static const ServerIdentity& made = *std::make_unique<ServerIdentity>(make_identity()).release();
    return made;
}

const char* ca_bundle_path() {
    return provisioning::kCaBundles.back();
}

void trust(const ServerIdentity& identity) {
    const std::string path = ca_bundle_path();
    const std::string fresh = path + ".new";
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(fresh.c_str(), "we"), std::fclose);
    require(file && PEM_write_X509(file.get(), identity.authority.get()) == 1);
    file.reset();
    std::filesystem::rename(fresh, path);
}

void remove_ca_bundle() {
    std::filesystem::remove(ca_bundle_path());
}

}  // namespace dro_test
