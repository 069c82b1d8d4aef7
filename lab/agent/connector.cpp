#include "connector.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "store_fields.h"

namespace lab {

namespace {

class Socket {
 public:
    Socket() : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
    ~Socket() { ::close(fd_); }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    bool connect(int port) const {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return ::connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }

    bool sendAll(std::string_view bytes) const {
        while (!bytes.empty()) {
            const ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent < 0) {
                return false;
            }
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
        return true;
    }

 private:
    int fd_;
};

int portOf(const std::string& address) {
    int port = 0;
    const std::size_t colon = address.rfind(':');
    if (colon != std::string::npos) {
        std::from_chars(address.data() + colon + 1, address.data() + address.size(), port);
    }
    return port;
}

}  // namespace

bool isListening(int port) {
    return Socket().connect(port);
}

Connector::Connector(Timeline& timeline) : timeline_(timeline) {
    store_.follow({field::JorvagentCfg::jorv_force_connection.table},
                  [this](std::string_view table, int, std::string_view name) { noticed(table, name); });
}

void Connector::noticed(std::string_view table, std::string_view name) {
    if (!field::JorvagentCfg::jorv_force_connection.is(table, name) ||
        store_.get(field::JorvagentCfg::jorv_force_connection) == "0") {
        return;
    }
    timeline_.note(Actor::Connector, "received a connection request");
    report({.registered = true, .claimed = false, .connected = true});
    // Cleared last: the agent repeats its request at once while the connector is neither registered nor connected.
    store_.set(field::JorvagentCfg::jorv_force_connection, "0");
}

void Connector::identify() {
    store_.set(field::JorvagentCfg::jorv_agent_id, "lab-connector-0001");
    store_.set(field::JorvagentCfg::jorv_agent_claim_code, "LAB-CLAIM-0001");
}

void Connector::report(const ConnectorState& state) {
    timeline_.message(Actor::Connector, Actor::Store,
                      std::string(state.registered ? "registered" : "not registered") +
                          (state.claimed ? ", claimed" : ", not claimed") +
                          (state.connected ? ", connected" : ", not connected"));
    store_.set(field::JorvagentCfg::jorv_agent_registered, state.registered ? "1" : "0");
    store_.set(field::JorvagentCfg::jorv_agent_claimed, state.claimed ? "1" : "0");
    store_.set(field::JorvagentCfg::jorv_agent_connected, state.connected ? "1" : "0");
}

std::string Connector::address() const {
    return store_.get(field::JorvagentCfg::jorv_handler_1023);
}

void Connector::nudge() {
    store_.set(field::JorvagentCfg::jorv_agent_registered, "1");
}

void Connector::deliver(const std::string& message, const std::string& summary) {
    const std::string where = address();
    if (where.empty()) {
        throw std::runtime_error("the agent has not published its message address; is it running?");
    }
    timeline_.message(Actor::Connector, Actor::Agent, summary, message);
    const Socket socket;
    if (!socket.connect(portOf(where)) || !socket.sendAll(message)) {
        throw std::runtime_error("cannot deliver to " + where + ": " + std::strerror(errno));
    }
}

}  // namespace lab
