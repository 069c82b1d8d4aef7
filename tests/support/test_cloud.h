// test_cloud.h - a real HTTPS server as the cloud: it records every request and sends scripted answers. Also sets the
// certificates that the agent trusts. Any thread.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "certificates.h"
#include "wait.h"

namespace dro_test {

// Generates an authority and a server certificate for qa, dev, stag and api.dro.localhost and no other host.
lab::ServerIdentity make_identity();

// The process-wide identity, generated on first use. Any thread.
const lab::ServerIdentity& identity();

// Atomically makes the authority of `identity` the only one that the agent trusts, by writing the last of its bundle
// paths, ca_bundle(). Without any bundle the agent does not verify certificates.
void trust(const lab::ServerIdentity& identity);
std::string ca_bundle();
void remove_ca_bundle();

struct Answer {
    enum class Kind {
        text,    // HTTP `status` and `body`; the body may be empty
        hangUp,  // closes the connection in the middle of the response
        reset,   // same, with a TCP reset
        stall,   // no answer until release(), then as `text`
        raw,     // the bytes of `body` instead of an HTTP response, then closes the connection
    };
    Kind kind = Kind::text;
    std::string body = R"({"status":1})";
    int status = 200;
};
inline Answer text_answer(std::string body, int status = 200) {
    return {Answer::Kind::text, std::move(body), status};
}
inline Answer raw_answer(std::string bytes) {
    return {Answer::Kind::raw, std::move(bytes)};
}
inline const Answer kAccepted;
inline const Answer kRefused = text_answer(R"({"status":0})");
inline const Answer kEmpty = text_answer("");  // counts as no answer for the agent
inline const Answer kHangUp{Answer::Kind::hangUp};
inline const Answer kReset{Answer::Kind::reset};
inline const Answer kStall{Answer::Kind::stall};

struct Request {
    std::string path;  // for example "/transactionAck/"
    std::multimap<std::string, std::string> headers;
    std::string body;
    int remotePort = 0;    // different for each connection
    bool resumed = false;  // whether the TLS session of an earlier connection was resumed
    std::chrono::steady_clock::time_point at;
};

class TestCloud {
 public:
    // Listens on a free loopback port with the certificate of identity(), and makes the agent trust it. Selects HTTP/2
    // when offered, which it does not support: a client that offers it receives no answer.
    TestCloud();
    // Releases stalled requests and stops.
    ~TestCloud();

    // down() stops listening; up() listens on the same port again. In between, connections are refused.
    void down();
    void up(const lab::ServerIdentity& with = identity());

    // "https://HOST:PORT/".
    std::string base_url(const std::string& host = "qa.dro.localhost") const;

    // The answer to every request without a script; initially kAccepted.
    void answer_all(Answer answer);
    // The answers to the next requests to `path` (such as "transactionAck/"), in order. Afterwards answer_all applies.
    void script(const std::string& path, std::vector<Answer> answers);
    // Answers stalled requests, and lets no request stall until the next script.
    void release();

    // The requests so far in order of arrival, only those to `path` unless it is empty.
    std::vector<Request> requests(const std::string& path = "") const { return wait_for(0, path); }
    // Waits until there are `count` requests and returns them as above. Returns fewer on timeout, so check the size.
    std::vector<Request> wait_for(std::size_t count, const std::string& path = "",
                                  std::chrono::milliseconds patience = kPatience) const;
    // Discards all requests and scripts so far.
    void forget();

 private:
    struct Server;
    std::unique_ptr<Server> server_;
};

}  // namespace dro_test
