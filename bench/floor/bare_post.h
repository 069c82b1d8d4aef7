// bare_post.h - the agent's request with plain libcurl: a fresh handle and connection, and the same headers. Any
// thread.
#pragma once

#include <string>
#include <utility>

namespace bench {

// What one connection sent and received, without headers of the network.
struct Wire {
    double sent = 0;
    double received = 0;
    double segmentsSent = 0;
    double segmentsReceived = 0;
};

class BarePost {
 public:
    // Trusts the certificates in the file `bundle`.
    BarePost(std::string url, std::string bundle) : url_(std::move(url)), bundle_(std::move(bundle)) {}

    // Posts `body` and waits for the answer. Throws std::runtime_error when none comes.
    void send(const std::string& body) const;

    // The same, told as bytes; an empty body ends with the handshake.
    Wire measure(const std::string& body) const;

 private:
    void perform(const std::string& body, Wire* wire) const;

    std::string url_;
    std::string bundle_;
};

// An acknowledgement as large as the agent's.
std::string ack_body(const std::string& uuid);

}  // namespace bench
