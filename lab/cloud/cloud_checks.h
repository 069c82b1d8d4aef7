// cloud_checks.h - the checks that a cloud applies to every request. Pure functions for any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "json.h"

namespace lab {

struct Received {
    std::string method;
    std::string path;
    std::string host;  // from the Host header, without the port
    std::string contentType;
    std::string apiKey;
    std::string body;
};

// The router's identity and the current time, as the cloud knows them.
struct Expected {
    std::string serial;
    std::int64_t now = 0;  // seconds since the epoch
};

struct Fault {
    int status = 0;  // HTTP status of the response
    std::string why;
};

// NOLINTNEXTLINE(bugprone-exception-escape): its JSON throws only when memory runs out
struct Checked {
    Json json;                   // discarded when the body is not JSON
    std::optional<Fault> fault;  // the first failed check, in the order of a real server
};

Checked checkRequest(const Received& received, const Expected& expected);

// The token of a request: SHA-256 of serial:stamp:secret cut at 63 characters, as 64 lower-case hexadecimal digits.
std::string expectedToken(const std::string& serial, const std::string& stamp);

}  // namespace lab
