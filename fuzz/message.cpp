// A message from the connector, through the receiver, the callback, the envelope and the command's handler. The input's
// texts, in order: "<ANSWER" is the cloud's next answer, "=TABLE.FIELD=VALUE" is a store write by one of the router's
// services, and anything else is a message, after which its monitors' deadlines expire.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <thread>

#include "agent.h"
#include "agent_probe.h"
#include "dro_cdil.h"
#include "dro_circle.h"
#include "dro_main.h"
#include "dro_monitor.h"
#include "input.h"
#include "jorv_receiver.h"
#include "libJorvhdlr.h"

namespace {

constexpr int kMostMessages = 32;  // per input: more are slow and find nothing new

// A Unix socket in place of the link's TCP socket: thousands of connections would exhaust the ports.
int listen_here(sockaddr_un& address, socklen_t& length) {
    const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    address.sun_family = AF_UNIX;
    length = sizeof address.sun_family;  // no path: the kernel assigns an abstract name
    fuzz::require(bind(listening, reinterpret_cast<const sockaddr*>(&address), length) == 0 &&
                  listen(listening, 1) == 0);
    length = sizeof address;
    getsockname(listening, reinterpret_cast<sockaddr*>(&address), &length);
    return listening;
}

// Delivers a message as the connector does, and waits until its receiver has finished.
void deliver(const std::string& message) {
    static sockaddr_un address{};
    static socklen_t length = 0;
    static const int listening = listen_here(address, length);
    const int connector = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    fuzz::require(connect(connector, reinterpret_cast<const sockaddr*>(&address), length) == 0);
    fuzz::require(send(connector, message.data(), message.size(), MSG_NOSIGNAL) ==
                  static_cast<ssize_t>(message.size()));
    close(connector);
    fuzz::require(jorv::jorvHandleSock(listening, dro::JorvAgentNotification_cbHandler) == 0);
    while (jorv::Jorv_Handler_receivers() != 0) {
        std::this_thread::yield();
    }
}

void run_started() {
    for (auto bodies = fuzz::started_threads(); !bodies.empty(); bodies = fuzz::started_threads()) {
        for (const auto& body : bodies) {
            body();
        }
    }
}

// Calls the handlers as the store's notices would. Each one reads its own field.
void notice() {
    for (const auto handler : {dro::cdilTimeout_cbHandler, dro::circleAct_cbHandler, dro::circleProvision_cbHandler,
                               dro::circleToggle_cbHandler, dro::activationStatus_cbHandler,
                               dro::sorbEnableStatus_cbHandler, dro::cdilDebugStatus_cbHandler}) {
        handler(nullptr);
        run_started();
    }
}

void write(const fuzz::Store& store, const std::string& text) {
    const std::size_t dot = text.find('.');
    const std::size_t end = text.find('=');
    if (dot == std::string::npos || end == std::string::npos || dot > end) {
        return;
    }
    const std::string table = text.substr(0, dot);
    const std::string field = text.substr(dot + 1, end - dot - 1);
    hab_host_set_text(store.session(), table.c_str(), 0, field.c_str(), text.c_str() + end + 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::Store& store = fuzz::fresh_agent();
    int messages = 0;
    for (const std::string& text : fuzz::texts(fuzz::bytes(data, size))) {
        if (text.starts_with('<')) {
            fuzz::answer_next(text.substr(1));
        } else if (text.starts_with('=')) {
            write(store, text.substr(1));
        } else if (++messages <= kMostMessages) {
            deliver(text);
            notice();
        }
    }
    fuzz::require(dro_test::active_monitors() == 0);
    return 0;
}
