// bare_post.h - the agent's request with plain libcurl: a fresh handle and connection, and the same headers. Any
// thread.
#pragma once

#include <string>
#include <utility>

namespace bench {

// Bytes that one connection sent and received, without TCP and IP headers.
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

    // Posts `body` and waits for the answer. Throws std::runtime_error when there is none.
    void send(const std::string& body) const;

    // The same, and returns the bytes. With an empty body it stops after the handshake.
    Wire measure(const std::string& body) const;

 private:
    void perform(const std::string& body, Wire* wire) const;

    std::string url_;
    std::string bundle_;
};

// An acknowledgement as large as the agent's.
std::string ack_body(const std::string& uuid);

}  // namespace bench
