// cloud_checks.h - what a cloud asks of every request before it believes it. Pure functions, for any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "json.h"

namespace lab {

struct Received {
    std::string method;
    std::string path;
    std::string host;  // of the Host header, its port removed
    std::string contentType;
    std::string apiKey;
    std::string body;
};

// What the cloud knows about the router and the time.
struct Expected {
    std::string serial;
    std::int64_t now = 0;  // seconds since the epoch
};

struct Fault {
    int status = 0;  // the HTTP status to answer
    std::string why;
};

// NOLINTNEXTLINE(bugprone-exception-escape): its JSON throws only when memory runs out
struct Checked {
    Json json;                   // discarded when the body is none
    std::optional<Fault> fault;  // the first thing that is wrong, in the order that a server would look
};

Checked checkRequest(const Received& received, const Expected& expected);

// The token of a request: SHA-256 of serial:stamp:secret cut at 63 characters, as 64 lower-case hexadecimal digits.
std::string expectedToken(const std::string& serial, const std::string& stamp);

}  // namespace lab
