#include "file_watch.h"

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <system_error>

namespace hab {

namespace {

constexpr std::int64_t kLookEvery = 1'000'000;  // nanoseconds
constexpr std::int64_t kDoubt = 100'000'000;

std::int64_t now() {
    return std::chrono::steady_clock::now().time_since_epoch().count();
}

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

void watchPlace(const FileDescriptor& watches, const std::string& path, std::uint32_t events) {
    watchFile(watches, path, kFileGone | events);
    watchFile(watches, path.substr(0, path.find_last_of('/') + 1), IN_DELETE_SELF | IN_MOVE_SELF);
}

FileWatch::FileWatch(std::string path) : path_(std::move(path)) {
    watch();
}

void FileWatch::look() {
    lookAt(now());
}

void FileWatch::lookLately() {
    const std::int64_t time = now();
    if (time >= nextLook_.load(std::memory_order_relaxed)) {
        lookAt(time);
    }
}

void FileWatch::lookAt(std::int64_t now) {
    const std::lock_guard lock(mutex_);
    nextLook_.store(now + kLookEvery, std::memory_order_relaxed);
    std::uint32_t seen = 0;
    if (!watches_) {
        watch();
        seen = ~0U;
    }
    while (eachEvent(watches_, [&seen](const inotify_event& event) { seen |= event.mask; })) {
    }
    if ((seen & (IN_CLOSE_WRITE | IN_Q_OVERFLOW)) != 0) {
        rewrites_.fetch_add(1, std::memory_order_relaxed);
    }
    if ((seen & ~static_cast<std::uint32_t>(IN_CLOSE_WRITE)) != 0) {
        doubtEnds_ = now + kDoubt;
    }
    touched_.store(now < doubtEnds_, std::memory_order_relaxed);
}

void FileWatch::watch() {
    try {
        FileDescriptor watches = newWatches();
        watchPlace(watches, path_, IN_CLOSE_WRITE);
        watches_ = std::move(watches);
    } catch (const std::exception&) {  // the next look tries again
    }
}

}  // namespace hab
