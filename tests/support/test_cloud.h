// test_cloud.h - a real HTTPS server in the cloud's place: it records every request and answers as it was told; and
// whom the agent trusts. Any thread.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "certificates.h"
#include "wait.h"

namespace dro_test {

// A new authority and a server's certificate from it for qa, dev, stag and api.dro.localhost and for no other host.
lab::ServerIdentity make_identity();

// The process's identity, made on the first call. Any thread.
const lab::ServerIdentity& identity();

// Makes the authority of `identity` the only one that the agent trusts, in one step; none at all switches its check
// off. Writes to the last of the places where the agent looks.
void trust(const lab::ServerIdentity& identity);
void remove_ca_bundle();

struct Answer {
    enum class Kind {
        text,    // `status` and `body`; the body may be empty
        hangUp,  // closes the connection in the middle of the answer
        reset,   // the same, with a reset
        stall,   // no answer until release(); then as `text`
    };
    Kind kind = Kind::text;
    std::string body = R"({"status":1})";
    int status = 200;
};
inline Answer text_answer(std::string body, int status = 200) {
    return {Answer::Kind::text, std::move(body), status};
}
inline const Answer kAccepted;
inline const Answer kRefused = text_answer(R"({"status":0})");
inline const Answer kEmpty = text_answer("");  // to the agent: no answer
inline const Answer kHangUp{Answer::Kind::hangUp};
inline const Answer kReset{Answer::Kind::reset};
inline const Answer kStall{Answer::Kind::stall};

struct Request {
    std::string path;  // as "/transactionAck/"
    std::multimap<std::string, std::string> headers;
    std::string body;
    int remotePort = 0;    // differs from connection to connection
    bool resumed = false;  // the TLS session of an earlier connection
    std::chrono::steady_clock::time_point at;
};

class TestCloud {
 public:
    // Listens on a free loopback port with the certificate of identity(), and makes the process trust it.
    TestCloud();
    // Releases what is stalled and stops.
    ~TestCloud();

    // Stops listening, and listens at the same port again. While it is down connections are refused.
    void down();
    void up(const lab::ServerIdentity& with = identity());

    // "https://HOST:PORT/".
    std::string base_url(const std::string& host = "qa.dro.localhost") const;

    // What every request without a script gets; at first kAccepted.
    void answer_all(Answer answer);
    // Answers for the next requests to `path` (as "transactionAck/"), in this order; then as answer_all says.
    void script(const std::string& path, std::vector<Answer> answers);
    // Lets stalled requests go, and those to come until the next script.
    void release();

    // Requests so far, in the order of their arrival; only those to `path` unless it is empty.
    std::vector<Request> requests(const std::string& path = "") const { return wait_for(0, path); }
    // Waits until there are `count` of them, then as above. Fewer come back when time ran out: compare the size.
    std::vector<Request> wait_for(std::size_t count, const std::string& path = "",
                                  std::chrono::milliseconds patience = kPatience) const;
    // Forgets the requests and scripts so far.
    void forget();

 private:
    struct Server;
    std::unique_ptr<Server> server_;
};

}  // namespace dro_test
