#include "libJorvhdlr.h"

#include <hablib.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "jorv_receiver.h"

namespace jorv {
namespace {

constexpr int kMostReceivers = 50;
constexpr std::size_t kNameSize = 128;

struct Link {
    int exitRead = -1;
    int notifySocket = -1;
    MessageCallback notifyCallback = nullptr;
    int eventSocket = -1;
    MessageCallback eventCallback = nullptr;
    int exitWrite = -1;
    pthread_t listener{};
};

Link g_link;
std::atomic<hab_session*> g_session{nullptr};  // the link's own session; notices may use it while the link closes

void close_socket(int& descriptor) {
    if (descriptor >= 0) {
        close(descriptor);
    }
    descriptor = -1;
}

void close_session() {
    if (hab_session* session = g_session.exchange(nullptr)) {
        hab_destroy(session);
    }
}

void jorvagentChgNtf(const char* /*table*/, int /*row*/, const char* /*field*/, void* context) {
    hab_session* session = g_session;
    uint32_t connected = 0;
    uint32_t claimed = 0;
    uint32_t registered = 0;
    int status = hab_get_uint(session, "JorvagentCfg", 0, "jorv_agent_connected", &connected);
    status |= hab_get_uint(session, "JorvagentCfg", 0, "jorv_agent_claimed", &claimed);
    status |= hab_get_uint(session, "JorvagentCfg", 0, "jorv_agent_registered", &registered);
    // 444 is a constant that tools search this log for, not the current line.
    jorvLog(DEBUG, "at line %d and func %s : Value of err is %d\n", 444, "jorvagentChgNtf", status);
    if (status != HAB_OK) {
        jorvLog(ERROR, "Couldn't notify because of hab errors\n");
        return;
    }
    jorvLog(DEBUG, "%s %d, %d, %d\n", "jorvagentChgNtf", static_cast<int>(registered), static_cast<int>(claimed),
            static_cast<int>(connected));
    const auto callback = reinterpret_cast<StatusCallback>(context);
    callback(static_cast<int>(registered), static_cast<int>(claimed), static_cast<int>(connected));
}

int open_listening(int port, int& socketOut) {
    socketOut = Jorv_Handler_InitNetwrksock(port);
    if (socketOut < 0) {
        jorvLog(ERROR, "Jorv_Handler_InitNetwrksock failed for port %d\n", port);
        socketOut = -1;
        return -1;
    }
    return 0;
}

int publish(hab_session* session, const char* fieldFormat, const char* name, int port) {
    if (port <= 0) {
        return HAB_OK;
    }
    std::array<char, kNameSize> field{};
    std::array<char, kNameSize> value{};
    std::snprintf(field.data(), field.size(), fieldFormat, name);
    std::snprintf(value.data(), value.size(), "localhost:%d", port);
    return hab_set_ascii(session, "JorvagentCfg", 0, field.data(), value.data());
}

int watch_status(hab_session* session, StatusCallback callback) {
    const int status = hab_subscribe(session, "JorvagentCfg", 1);
    return status != HAB_OK ? status : hab_subscribe_cb(session, jorvagentChgNtf, reinterpret_cast<void*>(callback));
}

// Returns null on success, else the text of the failure. On failure no session remains open.
const char* store_step(const char* name, int notifyPort, int eventPort, StatusCallback statusCallback) {
    g_session = hab_init();
    if (g_session == nullptr) {
        return "hab_init";
    }
    int status = publish(g_session, "jorv_handler_%s", name, notifyPort);
    if (status == HAB_OK) {
        status = publish(g_session, "jorv_handler_event_sink_%s", name, eventPort);
    }
    if (status == HAB_OK && statusCallback != nullptr) {
        status = watch_status(g_session, statusCallback);
    }
    if (status != HAB_OK || statusCallback == nullptr) {
        close_session();
    }
    return status != HAB_OK ? hab_error_string(status) : nullptr;
}

int open_exit_channel(Link& link) {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        jorvLog(ERROR, "socketpair failed \n");
        return -1;
    }
    link.exitRead = ends[0];
    link.exitWrite = ends[1];
    return 0;
}

// A listener call that can fail temporarily, for lack of descriptors or memory. Logs the first failure and the
// recovery.
class Retried {
 public:
    explicit Retried(const char* call) : call_(call) {}

    // Returns the pause before the next attempt.
    std::chrono::milliseconds failed(int error) {
        if (failures_++ == 0) {
            jorvLog(ERROR, "%s fails and is retried: %s\n", call_, std::strerror(error));
            pause_ = timings().firstRetry;
        }
        return std::exchange(pause_, std::min(2 * pause_, timings().longestRetry));
    }
    void succeeded() {
        if (failures_ > 0) {
            jorvLog(INFO, "%s works again, failures: %d\n", call_, std::exchange(failures_, 0));
        }
    }

 private:
    const char* call_;
    int failures_ = 0;
    std::chrono::milliseconds pause_{0};
};

// Returns the pause before the next attempt, 0 unless accept failed.
std::chrono::milliseconds accept_on(const pollfd& ready, MessageCallback callback, Retried& accept) {
    if (ready.revents == 0) {
        return {};
    }
    int error = 0;
    if (jorvHandleSock(ready.fd, callback, &error) < 0) {
        jorvPerror("Failed to initialize cloud notification thread\n");
        std::fflush(nullptr);
        _exit(1);  // no destructors: other threads are still running
    }
    if (error != 0) {
        return accept.failed(error);
    }
    accept.succeeded();
    return {};
}

// Reads from the exit channel. Returns true after a byte or an error, false at end of file or on a time-out.
bool exit_asked(int descriptor) {
    char command = 0;
    const ssize_t count = read(descriptor, &command, 1);
    return count > 0 || (count < 0 && errno != EAGAIN && errno != EINTR);
}

// Pauses in a read, because poll itself may be failing. Returns true when the link is closed during the pause.
bool exit_asked_within(int descriptor, std::chrono::milliseconds pause) {
    if (pause.count() == 0) {
        return false;
    }
    limit_reads(descriptor, pause);
    return exit_asked(descriptor);
}

int poll_all(std::array<pollfd, 3>& watched, int timeoutMs) {
    int ready = 0;
    do {
        ready = poll(watched.data(), watched.size(), timeoutMs);
    } while (ready < 0 && errno == EINTR);
    return ready;
}

void listen_until_exit(const Link& link) {
    Retried polling("poll");
    Retried notifications("accept on the notification port");
    Retried events("accept on the event port");
    for (;;) {
        const int receivers = Jorv_Handler_receivers();
        const bool crowded = receivers > kMostReceivers;
        if (crowded) {
            jorvLog(DEBUG, "Thread Counter over Value = %d\n", receivers);
        }
        // While overloaded, only the exit channel is polled, so closing the link stays prompt. poll ignores -1.
        std::array<pollfd, 3> watched{pollfd{link.exitRead, POLLIN, 0},
                                      pollfd{crowded ? -1 : link.notifySocket, POLLIN, 0},
                                      pollfd{crowded ? -1 : link.eventSocket, POLLIN, 0}};
        std::chrono::milliseconds pause{0};
        if (poll_all(watched, crowded ? static_cast<int>(timings().overloaded.count()) : -1) < 0) {
            const int error = errno;
            jorvPerror("Error Ocurred\n");
            pause = polling.failed(error);
        } else if (polling.succeeded(); watched[0].revents == 0) {
            pause = accept_on(watched[1], link.notifyCallback, notifications);
            pause = std::max(pause, accept_on(watched[2], link.eventCallback, events));
        } else if (exit_asked(link.exitRead)) {
            return;
        }
        if (exit_asked_within(link.exitRead, pause)) {
            return;
        }
    }
}

void* jorvListener(void* argument) {
    auto& link = *static_cast<Link*>(argument);
    jorvLog(DEBUG, "listener thread started\n");
    listen_until_exit(link);
    close_socket(link.notifySocket);
    close_socket(link.eventSocket);
    close_socket(link.exitRead);
    return nullptr;
}

int open_link(const char* name, int notifyPort, MessageCallback notifyCallback, int eventPort,
              MessageCallback eventCallback, StatusCallback statusCallback) {
    if (notifyCallback != nullptr && open_listening(notifyPort, g_link.notifySocket) != 0) {
        return kNotificationSocketFailed;
    }
    if (eventCallback != nullptr && open_listening(eventPort, g_link.eventSocket) != 0) {
        return kEventSocketFailed;
    }
    if (const char* failure = store_step(name, notifyPort, eventPort, statusCallback)) {
        jorvLog(ERROR, "failed init jorvagent (%s)\n", failure);
        return kStoreFailed;
    }
    g_link.notifyCallback = notifyCallback;
    g_link.eventCallback = eventCallback;
    if (notifyCallback == nullptr && eventCallback == nullptr) {
        return 0;
    }
    if (open_exit_channel(g_link) != 0) {
        return kExitChannelFailed;
    }
    errno = start_thread(g_link.listener, jorvListener, &g_link, false);
    if (errno != 0) {
        jorvPerror("Failed to initialize main listener thread\n");
        return kListenerFailed;
    }
    return 0;
}

}  // namespace

int Jorv_Handler_init(const char* name, int notifyPort, MessageCallback notifyCallback, int eventPort,
                      MessageCallback eventCallback, StatusCallback statusCallback) {
    g_link = Link{};
    jorvLog(DEBUG, "Inside JorvHandlerInit Func");
    if (notifyCallback == nullptr && eventCallback == nullptr && statusCallback == nullptr) {
        return kNoCallbacks;
    }
    const int result = open_link(name, notifyPort, notifyCallback, eventPort, eventCallback, statusCallback);
    if (result != 0) {
        close_socket(g_link.notifySocket);
        close_socket(g_link.eventSocket);
        close_socket(g_link.exitRead);
        close_socket(g_link.exitWrite);
        close_session();
        return result;
    }
    jorvLog(DEBUG, "Both the ports are initialized, Initializing Jorv-Agent\n");
    if (statusCallback != nullptr) {
        jorvagentChgNtf("JorvagentCfg", 0, "", reinterpret_cast<void*>(statusCallback));
    }
    return 0;
}

int Jorv_Handler_deInit() {
    const int exitWrite = g_link.exitWrite;
    g_link.exitWrite = -1;
    if (exitWrite >= 0) {
        const char command = 1;
        if (write(exitWrite, &command, 1) != 1) {
            jorvPerror("Failed to write exit cmd");
        }
        close(exitWrite);
        errno = pthread_join(g_link.listener, nullptr);
        if (errno != 0) {
            jorvPerror("Failed to wait for jorvListener thr");
        }
    }
    close_session();
    return 1;
}

int Jorv_Handler_InitNetwrksock(int port) {
    if (port < 0 || port > 65535) {
        errno = ERANGE;
        jorvPerror("requested port: ");
        errno = ERANGE;
        return -4;
    }
    // perror needs the errno of the failed call, which the log line may change.
    const auto complain = [](const char* logFormat, const char* text) {
        const int error = errno;
        jorvLog(ERROR, logFormat, std::strerror(error));
        errno = error;
        jorvPerror(text);
    };
    int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        complain("socket: %s\n", "socket() error while creating notify socket");
        return -1;
    }
    const int on = 1;
    if (setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
        complain("Reuse port Error : %s\n", "SO reuse addr failed");
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        complain("bind: %s\n", "bind() error for notify socket");
        close_socket(descriptor);
        return -2;
    }
    if (listen(descriptor, 1) != 0) {
        complain("listen: %s\n", "listen() error for notify socket");
        close_socket(descriptor);
        return -3;
    }
    jorvLog(DEBUG, "port: %d, sock : %d\n", port, descriptor);
    return descriptor;
}

}  // namespace jorv
