// dro_utils_token.h - the token that authenticates a request of this router. Any thread.
#pragma once

#include <cstddef>

#include "dro_text.h"

namespace dro {

// Creates the time stamp and the token of one request: lower-case hexadecimal SHA-256 (FIPS 180-4) of
// "serial:timestamp:secret", truncated to 63 characters before hashing. The sizes include the NUL; output is truncated
// to fit. Returns 0, or -1 when a size is 0.
int get_token(const char* serial, char* timestamp, char* token, std::size_t timestampSize, std::size_t tokenSize);

// A new token and time stamp for this router.
struct RequestToken {
    FixedText<16> timestamp;
    FixedText<128> token;
    FixedText<16> serial;
};
RequestToken make_request_token();

// The start of a signed request's body: the opening brace and three members, without a trailing comma.
using SignedStart = FixedText<256>;
SignedStart signed_start(const RequestToken& request);

}  // namespace dro
