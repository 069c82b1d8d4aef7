// dro_utils_escape.h - JSON string escaping. Any thread.
#pragma once

#include <cstddef>

namespace dro {

// Escapes `length` bytes of `source` for a JSON string into `destination`, which holds at least 2 * length + 1 bytes.
// Drops control bytes without a short escape, and byte 0x96. Returns 0, or -1 for a null pointer or a length of 0.
int escapeJSON(const char* source, char* destination, std::size_t length);

}  // namespace dro
