#include "file_watch.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <system_error>

namespace hab {

namespace {

// Reads in quick succession share one check: the system call would add a tenth to the cost of each.
constexpr std::chrono::nanoseconds kLookEvery = std::chrono::milliseconds(1);

}  // namespace

const std::uint32_t kFileGone = IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;

FileDescriptor::~FileDescriptor() {
    if (number_ >= 0) {
        close(number_);
    }
}

Draft::Draft(const std::string& path) : name_(path + ".XXXXXX"), file_(mkostemp(name_.data(), O_CLOEXEC)) {
    if (!file_) {
        name_.clear();
    }
}

Draft::~Draft() {
    if (!name_.empty()) {
        unlink(name_.c_str());
    }
}

FileDescriptor newWatches() {
    FileDescriptor watches(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!watches) {
        throw std::system_error(errno, std::generic_category(), "no more watches");
    }
    return watches;
}

int watchFile(const FileDescriptor& watches, const std::string& path, std::uint32_t events) {
    const int watch = inotify_add_watch(watches.get(), path.c_str(), events);
    if (watch < 0) {
        throw std::system_error(errno, std::generic_category(), "cannot watch " + path);
    }
    return watch;
}

void watchPlace(const FileDescriptor& watches, const std::string& path) {
    watchFile(watches, path, kFileGone);
    watchFile(watches, path.substr(0, path.find_last_of('/') + 1), IN_DELETE_SELF | IN_MOVE_SELF);
}

FileWatch::FileWatch(const std::string& path) {
    try {
        watches_ = newWatches();
        watchPlace(watches_, path);
    } catch (const std::system_error&) {
        touched_ = true;
    }
}

bool FileWatch::touched() {
    const std::int64_t now = std::chrono::steady_clock::now().time_since_epoch().count();
    if (touched_ || now < nextLook_.load(std::memory_order_relaxed)) {
        return touched_;
    }
    nextLook_.store(now + kLookEvery.count(), std::memory_order_relaxed);
    alignas(inotify_event) std::array<std::byte, 4096> event;
    if (read(watches_.get(), event.data(), event.size()) >= 0) {
        touched_ = true;  // permanent: of two threads that read, only one receives the event
    }
    return touched_;
}

}  // namespace hab
