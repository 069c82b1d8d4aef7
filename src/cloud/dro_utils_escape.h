// dro_utils_escape.h - text made fit for a JSON text. Any thread.
#pragma once

#include <cstddef>

namespace dro {

// Escapes `length` bytes of `source` for a JSON text into `destination`, which holds at least 2 * length + 1 bytes.
// Control bytes without a short escape are dropped, and so is byte 0x96. Returns 0, or -1 for a null text or a length
// of 0.
int escapeJSON(const char* source, char* destination, std::size_t length);

}  // namespace dro
