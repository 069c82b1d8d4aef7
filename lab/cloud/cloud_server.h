// cloud_server.h - the simulated cloud: an HTTPS server on a loopback port that validates every request as a real cloud
// would and answers according to its mood. Any thread may call it.
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

// How valid requests are answered. Invalid requests always get 4xx {"status":0,...}.
enum class Mood {
    Accept,   // {"status":1}
    Refuse,   // {"status":0}
    Error,    // HTTP 500 with a body
    Empty,    // HTTP 200 without a body
    Garbage,  // HTTP 200 with a body that is not JSON
    Stall,    // no answer until the mood changes
    Close     // closes the connection in the middle of the response
};

// The answer to a registration.
struct RegistrationAnswer {
    int status = 1;
    bool reset = false;
    bool claimState = true;
    std::string syncTime;  // HH:MM:SS in UTC; empty for null
};

class CloudServer {
 public:
    // Generates the certificates, writes the authority's to `caBundle` and starts listening. `serial` is the router's
    // serial number. Throws std::runtime_error.
    CloudServer(Timeline& timeline, CloudRecord& record, std::string serial, const std::string& caBundle);
    CloudServer(const CloudServer&) = delete;
    CloudServer& operator=(const CloudServer&) = delete;
    ~CloudServer();

    int port() const { return port_; }

    // The base URL to store for the agent, ending in a slash. `host` must be one of the certificate's names.
    std::string baseUrl(const std::string& host) const;

    // up() listens on the same port again; down() refuses connections. Both return once the change is in effect.
    void up();
    void down();
    bool isUp() const;

    // Sets the mood of the next `times` answers, then returns to Accept; 0 sets it permanently. Stalled requests are
    // answered in the new mood.
    void behave(Mood mood, int times = 0);
    // Delays every answer by `delay`.
    void slow(std::chrono::milliseconds delay);
    void registration(const RegistrationAnswer& answer);
    RegistrationAnswer registration() const;

    // Returns a one-line summary for the user: up or down, mood, delay.
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

    std::mutex listenerMutex_;  // serialises up() and down(); never locked by a request
    std::unique_ptr<Listener> listener_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool up_ = false;
    Mood mood_ = Mood::Accept;
    int moodLeft_ = 0;  // answers left in this mood; 0 for no limit
    std::chrono::milliseconds delay_{0};
    RegistrationAnswer registration_;
};

// The mood's name on the command line.
const char* nameOf(Mood mood);

}  // namespace lab
