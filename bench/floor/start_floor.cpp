// start_floor [URL BUNDLE] - a minimal program with the agent's libraries: it opens a store session and the log, makes
// one request if given a URL, and listens on the agent's ports until it is killed.
#include <arpa/inet.h>
#include <cJSON.h>
#include <curl/curl.h>
#include <habdynlog.h>
#include <hablib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <exception>

#include "floor/bare_post.h"

namespace {

// Listens on 127.0.0.1:`port` for the life of the process. Exits the process on failure.
void listen_on(std::uint16_t port) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(descriptor, 1) != 0) {
        _exit(1);
    }
}

int run(int argc, char** argv) {
    signal(SIGUSR1, [](int) { _exit(0); });
    curl_global_init(CURL_GLOBAL_DEFAULT);
    hab_session* session = hab_init();
    std::uint32_t value = 0;
    if (session == nullptr || hab_get_uint(session, "DALHConfig", 0, "ProcessID", &value) != HAB_OK ||
        dynlog_lib_init() != 0 || cJSON_Version() == nullptr) {
        return 1;
    }
    set_log_level(0, "floor", "floor");
    if (argc == 3) {
        bench::BarePost(argv[1], argv[2]).send("{}");
    }
    listen_on(4466);
    listen_on(4455);
    for (;;) {
        pause();
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception&) {
        return 1;
    }
}
