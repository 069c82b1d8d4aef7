#include "dro_output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "dro_text.h"

namespace dro {
namespace {

constexpr std::size_t kLongestText = 512;

struct Output {
    int descriptor;
    std::atomic<unsigned> lost{0};  // texts since the last report
};
Output g_stdout{STDOUT_FILENO};
Output g_stderr{STDERR_FILENO};

void open_again(int descriptor) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0 || !(S_ISFIFO(status.st_mode) || isatty(descriptor) == 1)) {
        return;
    }
    FixedText<32> path;
    path.format("/proc/self/fd/%d", descriptor);
    const int own = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (own >= 0) {
        dup2(own, descriptor);
        close(own);
    }
}

bool try_write(int descriptor, std::string_view text) {
    ssize_t written = send(descriptor, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (written < 0 && errno == ENOTSOCK) {
        // The description may still be blocking. A writable pipe accepts PIPE_BUF bytes without blocking. If another
        // writer uses that space first, the write waits for the reader.
        pollfd output{descriptor, POLLOUT, 0};
        written = poll(&output, 1, 0) > 0 ? write(descriptor, text.data(), text.size()) : -1;
    }
    return written == static_cast<ssize_t>(text.size());
}

void print(Output& output, std::string_view text) {
    const int error = errno;
    unsigned lost = output.lost.exchange(0);
    if (lost > 0) {
        FixedText<96> report;
        report.format("droagent: texts lost here, because they could not be written: %u\n", lost);
        lost = try_write(output.descriptor, report.view()) ? 0 : lost;
    }
    if (lost > 0 || !try_write(output.descriptor, text)) {
        output.lost += lost + 1;
    }
    errno = error;
}

}  // namespace

void unblock_output() {
    std::signal(SIGPIPE, SIG_IGN);
    open_again(STDOUT_FILENO);
    open_again(STDERR_FILENO);
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);  // whole lines, also from libraries
}

void print_stdout(std::string_view text) {
    print(g_stdout, text);
}

void print_stderr(std::string_view text) {
    print(g_stderr, text);
}

void print_error(const char* text) {
    FixedText<kLongestText> line;
    line.format("%s: %s\n", text, std::strerror(errno));
    print_stderr(line.view());
}

}  // namespace dro
