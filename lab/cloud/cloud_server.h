// cloud_server.h - the simulated cloud: an HTTPS server on a loopback port that checks every request as a real one
// would and answers as it was told. Any thread may call it.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "certificates.h"
#include "cloud_record.h"
#include "timeline.h"

namespace httplib {
struct Request;
struct Response;
class SSLServer;
}  // namespace httplib

namespace lab {

// How requests that pass the checks are answered. Requests that do not are always answered 4xx {"status":0,...}.
enum class Mood {
    Accept,   // {"status":1}
    Refuse,   // {"status":0}
    Error,    // HTTP 500 with a body
    Empty,    // HTTP 200 without a body
    Garbage,  // HTTP 200 with a body that is no JSON
    Stall,    // no answer until the mood changes
    Close     // hangs up in the middle of the answer
};

// What a registration is answered.
struct RegistrationAnswer {
    int status = 1;
    bool reset = false;
    bool claimState = true;
    std::string syncTime;  // HH:MM:SS in UTC; empty for null
};

class CloudServer {
 public:
    // Makes the certificates, writes the authority's to `caBundle` and listens. `serial` is the router's serial number.
    // Throws std::runtime_error.
    CloudServer(Timeline& timeline, CloudRecord& record, std::string serial, const std::string& caBundle);
    CloudServer(const CloudServer&) = delete;
    CloudServer& operator=(const CloudServer&) = delete;
    ~CloudServer();

    int port() const { return port_; }

    // The address to write into the store, for a host name of the certificate; it ends in a slash.
    std::string baseUrl(const std::string& host) const;

    // Listens on the port again, or refuses connections. Both return when it is so.
    void up();
    void down();
    bool isUp() const;

    // The mood of the next `times` answers; 0 means of all from now on. A stalled request is answered in the new mood.
    void behave(Mood mood, int times = 0);
    // Waits so long before every answer.
    void slow(std::chrono::milliseconds delay);
    void registration(const RegistrationAnswer& answer);
    RegistrationAnswer registration() const;

    // One line for a person: up or down, mood, delay.
    std::string describe() const;

 private:
    struct Listener;

    void handle(const httplib::Request& request, httplib::Response& response);
    Mood takeMood();
    Mood waitToAnswer(Mood mood);
    void answer(const CloudRequest& request, Mood mood, httplib::Response& response) const;
    void startListening();
    void setUp(bool listening);

    Timeline& timeline_;
    CloudRecord& record_;
    const std::string serial_;
    const ServerIdentity identity_;
    int port_ = 0;

    std::atomic<std::uint64_t> exchanges_ = 0;

    std::mutex listenerMutex_;  // serialises up and down; never taken by a request
    std::unique_ptr<Listener> listener_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool up_ = false;
    Mood mood_ = Mood::Accept;
    int moodLeft_ = 0;  // answers for which the mood still holds; 0 for all
    std::chrono::milliseconds delay_{0};
    RegistrationAnswer registration_;
};

// The command line's word for a mood and back.
const char* nameOf(Mood mood);

}  // namespace lab
