// connector.h - the cloud connector: publishes its identity and connection state in the store, connects when the agent
// requests it, and delivers cloud messages to the agent. Any thread may call it.
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

    // Writes the connector's identifier and claim code. The agent reads them when it registers the router.
    void identify();
    void report(const ConnectorState& state);
    // Reports "registered" again, so the agent checks whether the router is registered with the cloud.
    void nudge();

    // Sends a message to the port that the agent has published, on a new connection. Throws std::runtime_error.
    void deliver(const std::string& message, const std::string& summary);

    // The agent's published message address; empty until the agent has published one.
    std::string address() const;

 private:
    void noticed(std::string_view table, std::string_view name);

    Timeline& timeline_;
    Store store_;
};

// Returns true when a loopback port accepts connections.
bool isListening(int port);

}  // namespace lab
