// connector.h - the cloud connector: says in the store who it is and how it stands with the cloud, connects when the
// agent asks it to, and delivers cloud messages to the agent. Any thread may call it.
#pragma once

#include <chrono>
#include <string>

#include "store.h"
#include "timeline.h"

namespace lab {

struct ConnectorState {
    bool registered = false;
    bool claimed = false;
    bool connected = false;
};

class Connector {
 public:
    explicit Connector(Timeline& timeline);
    ~Connector() { store_.follow({}, nullptr); }
    Connector(const Connector&) = delete;
    Connector& operator=(const Connector&) = delete;

    // Writes its identifier and claim code; the agent reads them when it registers the router.
    void identify();
    void report(const ConnectorState& state);
    // Reports "registered" once more, which makes the agent look whether the router is registered with the cloud.
    void nudge();

    // Takes a message to the port that the agent published: connects, writes, closes. Throws std::runtime_error.
    void deliver(const std::string& message, const std::string& summary);

    // Where messages go, as the agent published it; empty before.
    std::string address() const;

 private:
    void noticed(std::string_view table, std::string_view name);

    Timeline& timeline_;
    Store store_;
};

// Whether somebody listens on a loopback port.
bool somebodyListens(int port);

}  // namespace lab
