// identity.h - who the router is that tests, fuzz programs and benchmarks start from. Any thread.
#pragma once

#include "test_store.h"

namespace dro_test {

inline constexpr const char* kSerial = "FSN0123456789";

// Writes it, with every log level on; the cloud's address is still to be set.
void set_identity(TestStore& store);

}  // namespace dro_test
