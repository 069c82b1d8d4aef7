#include "certificates.h"

#include <filesystem>

#include "provisioning.h"

namespace dro_test {

lab::ServerIdentity make_identity() {
    return lab::makeServerIdentity(
        {"qa.dro.localhost", "dev.dro.localhost", "stag.dro.localhost", "api.dro.localhost"});
}

const lab::ServerIdentity& identity() {
    static const lab::ServerIdentity& made = *std::make_unique<lab::ServerIdentity>(make_identity()).release();
    return made;
}

void trust(const lab::ServerIdentity& identity) {
    lab::writeBundle(provisioning::kCaBundles.back(), identity.authority.get());
}

void remove_ca_bundle() {
    std::filesystem::remove(provisioning::kCaBundles.back());
}

}  // namespace dro_test
