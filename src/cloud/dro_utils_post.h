// dro_utils_post.h - the transfer of one signed request. Any thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace dro {

// A deployment's rules for requests.
struct RequestRules {
    std::chrono::milliseconds limit;        // per transfer, 0 for none
    bool needsCaBundle;                     // without a readable bundle, nothing is sent
    std::size_t largestAnswer;              // bytes; a longer answer fails the transfer; 0: no limit
    std::chrono::milliseconds sessionLife;  // of a TLS session from its full handshake; 0: no resumption
};

// The current rules, initially as provisioned. May be changed only before any thread starts.
RequestRules& request_rules();

// Posts the JSON text `body` to `url` over HTTPS on a new connection and blocks until the answer is complete. With
// another scheme, or none, nothing is sent. Connecting is limited to 3 s, the whole transfer only by request_rules(),
// the parts of the answer as in dro_utils_answer.h. A stop request ends the wait. Returns the length of the answer's
// body, whatever its HTTP status, and stores the body in `response`. Returns 0 when there is none (no transfer, a
// failed one, or an empty body) and leaves `response` unchanged. `httpStatus`, if not null, receives the HTTP status
// code, 0 when none arrived.
std::size_t curl_post(const char* url, const char* body, std::optional<std::string>& response,
                      long* httpStatus = nullptr);

}  // namespace dro
