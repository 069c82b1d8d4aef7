// dro_utils_token.h - how a request proves that it comes from this router. Any thread.
#pragma once

#include <cstddef>

#include "dro_text.h"

namespace dro {

// Makes the time stamp and the token of one request: lower-case hexadecimal SHA-256 (FIPS 180-4) of
// "serial:timestamp:secret", that text cut at 63 characters. The sizes count the NUL; a small buffer gets what fits.
// Returns 0, or -1 when a size is 0.
int get_token(const char* serial, char* timestamp, char* token, std::size_t timestampSize, std::size_t tokenSize);

// A fresh token and time stamp for this router.
struct RequestToken {
    FixedText<16> timestamp;
    FixedText<128> token;
    FixedText<16> serial;
};
RequestToken make_request_token();

// How the body of a signed request begins: the brace that the body closes, and three members without a comma behind.
using SignedStart = FixedText<256>;
SignedStart signed_start(const RequestToken& request);

}  // namespace dro
