// dro_utils_post.h - the transfer of one request, whose body its sender has signed. Any thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace dro {

// What a deployment settles about its requests.
struct RequestRules {
    std::chrono::milliseconds limit;        // of a whole transfer, 0 for none
    bool needsCaBundle;                     // without one, nothing is sent
    std::size_t largestAnswer;              // in bytes; a longer one is a failed transfer; 0: no limit
    std::chrono::milliseconds sessionLife;  // how long a TLS session is resumed after its full handshake, 0 for never
};

// The rules in force, as provisioned. Changed, if at all, before any thread starts.
RequestRules& request_rules();

// Posts the JSON text `body` to `url` over HTTPS, on a connection of its own, and waits for the answer as long as the
// server takes unless request_rules() says otherwise; the connection is bounded (3 s), and a stop of the process ends
// the wait. Returns the length of the answer's body, whatever its HTTP status, and puts it into `response`; 0 when
// there is none (no transfer, or an empty body), which leaves `response` as it was. `httpStatus`, if given, receives
// the HTTP status code, 0 when none arrived.
std::size_t curl_post(const char* url, const char* body, std::optional<std::string>& response,
                      long* httpStatus = nullptr);

}  // namespace dro
