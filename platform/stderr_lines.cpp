#include "stderr_lines.h"

#include <fcntl.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>

namespace host {

namespace {

constexpr int kOutput = STDERR_FILENO;

bool writable() {
    pollfd output{kOutput, POLLOUT, 0};
    return poll(&output, 1, 0) > 0;
}

// A pipe stores bytes in pages. On average, unread lines fill at least half of each page between the first and the
// last.
bool pipeTakes(std::size_t size) {
    if (size <= PIPE_BUF) {
        return true;  // atomic
    }
    int unread = 0;
    const auto capacity = static_cast<std::size_t>(fcntl(kOutput, F_GETPIPE_SZ));
    if (ioctl(kOutput, FIONREAD, &unread) != 0) {
        return false;
    }
    const std::size_t occupied =
        unread == 0 ? 0 : 2 * (static_cast<std::size_t>(unread) + static_cast<std::size_t>(sysconf(_SC_PAGESIZE)));
    return occupied + size <= capacity;
}

// A socket's buffer also contains the kernel's own data, at most as much as the text itself. A short line is one
// packet.
bool socketTakes(std::size_t size) {
    int unsent = 0;
    int capacity = 0;
    socklen_t length = sizeof capacity;
    return size <= PIPE_BUF || (ioctl(kOutput, SIOCOUTQ, &unsent) == 0 &&
                                getsockopt(kOutput, SOL_SOCKET, SO_SNDBUF, &capacity, &length) == 0 &&
                                static_cast<std::size_t>(unsent) + 2 * size <= static_cast<std::size_t>(capacity));
}

ssize_t writeFile(std::string_view text) {
    std::size_t done = 0;
    ssize_t last = 1;
    while (done < text.size() && last > 0) {
        last = ::write(kOutput, text.data() + done, text.size() - done);
        done += last > 0 ? static_cast<std::size_t>(last) : 0;
    }
    return static_cast<ssize_t>(done);
}

}  // namespace

StderrLines::Target StderrLines::target() {
    struct stat output {};
    if (fstat(kOutput, &output) == 0 && S_ISFIFO(output.st_mode)) {
        return Target::pipe;
    }
    return S_ISSOCK(output.st_mode) ? Target::socket : isatty(kOutput) == 1 ? Target::terminal : Target::plain;
}

// Returns the number of bytes written: usually all or 0. The description is not made non-blocking, because other
// processes may share it.
ssize_t StderrLines::writeNow(std::string_view text) const {
    const Target known = target_;
    switch (known == Target::unknown ? target() : known) {
        case Target::socket:
            return socketTakes(text.size()) ? send(kOutput, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL) : 0;
        case Target::pipe:
            return pipeTakes(text.size()) && writable() ? ::write(kOutput, text.data(), text.size()) : 0;
        case Target::terminal:
            return writable() ? ::write(kOutput, text.data(), text.size()) : 0;
        default:
            return writeFile(text);
    }
}

bool StderrLines::put(std::string_view text) {
    const ssize_t written = writeNow(text);
    const bool whole = written == static_cast<ssize_t>(text.size());
    cut_ = whole ? false : cut_ || written > 0;
    return whole;
}

void StderrLines::reportLostLocked() {
    if (lost_ > 0 && put((cut_ ? "\n" : "") + report_(lost_))) {
        lost_ = 0;
    }
}

void StderrLines::write(std::string_view line) {
    const std::lock_guard lock(mutex_);
    reportLostLocked();
    if (lost_ > 0 || !put(line)) {
        ++lost_;
    }
}

void StderrLines::reportLost() {
    const std::lock_guard lock(mutex_);
    reportLostLocked();
}

}  // namespace host
