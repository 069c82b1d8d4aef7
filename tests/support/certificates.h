// certificates.h - whom the agent trusts, and the cloud's certificate.
#pragma once

#include "lab/certificates.h"

namespace dro_test {

// A new authority and a server's certificate from it for qa, dev, stag and api.dro.localhost and for no other host.
lab::ServerIdentity make_identity();

// The process's identity, made on the first call. Any thread.
const lab::ServerIdentity& identity();

// Makes the authority of `identity` the only one that the agent trusts, in one step; none at all switches its check
// off. Writes to the last of the places where the agent looks.
void trust(const lab::ServerIdentity& identity);
void remove_ca_bundle();

}  // namespace dro_test
