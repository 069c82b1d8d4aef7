#include "floor/bare_link.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>

namespace bench {

int listen_on(std::uint16_t port, int waiting) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(descriptor, waiting) != 0) {
        _exit(1);
    }
    return descriptor;
}

std::string take_message(int connection) {
    std::string message;
    std::array<char, 65536> step;
    for (ssize_t count = 1; count > 0;) {
        count = read(connection, step.data(), step.size());
        message.append(step.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    close(connection);
    return message;
}

}  // namespace bench
