// watch.h - a session that collects change notices, and a second process whose writes they report.
#pragma once

#include <functional>
#include <vector>

#include "check.h"

namespace habconform {

struct Notice {
    std::size_t place;  // in the watched places
    Clock::time_point at;
};

class Watch {
 public:
    using Handler = std::function<void(hab_session*, const Notice&)>;

    // Starts the second process, opens the session, and subscribes the tables of the places, each twice as the agent
    // does. `handler` runs in the notice handler, before the notice is recorded. It may outlive the watch.
    explicit Watch(Handler handler = nullptr, std::vector<Place> places = sequencePlaces());

    hab_session* session() const { return session_.get(); }
    void endSession() { session_.reset(); }

    // The second process writes `count` numbers to their places in sequencePlaces(). Returns when each write began.
    std::vector<Clock::time_point> write(unsigned first, unsigned count = 1) const;
    static std::size_t placeOf(unsigned number);

    // Waits for `count` recorded notices, while new ones keep arriving. Returns all of them. Throws the handler's
    // failure.
    std::vector<Notice> await(std::size_t count) const;

 private:
    struct Inbox;
    static void onNotice(const char* table, int row, const char* field, void* context);

    int writer_;  // socket of the second process
    Session session_;
    Inbox& inbox_;
};

// Runs in the second process: executes the requests of Watch::write.
int runWriter(int socket);

}  // namespace habconform
