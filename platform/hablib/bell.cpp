#include "bell.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <system_error>

namespace hab {

namespace {

std::string bellPath(const std::string& path) {
    return path + ".bell";
}

}  // namespace

FileDescriptor holdBell(const std::string& path) {
    return FileDescriptor(open(bellPath(path).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
}

BellWatch::BellWatch(const std::string& path) : path_(path), watch_(newWatches()) {
    watchFile(watch_, path_, kFileGone);
    watchBell();
}

void BellWatch::watchBell() {
    if (const FileDescriptor bell = holdBell(path_); !bell) {
        throw std::system_error(errno, std::generic_category(), "cannot make " + bellPath(path_));
    }
    bellWatch_ = watchFile(watch_, bellPath(path_), IN_CLOSE_WRITE | kFileGone);
}

bool BellWatch::drain() {
    bool storeTouched = false;
    bool bellTouched = false;
    alignas(inotify_event) std::array<char, 4096> events{};
    // Once: what found no room keeps the watch readable.
    const ssize_t size = read(watch_.get(), events.data(), events.size());
    for (ssize_t at = 0; at < size;) {
        inotify_event event{};
        std::memcpy(&event, &events[static_cast<std::size_t>(at)], sizeof event);
        at += static_cast<ssize_t>(sizeof event + event.len);
        storeTouched = storeTouched || event.wd != bellWatch_;
        bellTouched = bellTouched || (event.wd == bellWatch_ && (event.mask & (kFileGone | IN_IGNORED)) != 0);
    }
    if (bellTouched) {
        // Somebody removed the bell: writers make a new one, which is another file to watch.
        inotify_rm_watch(watch_.get(), bellWatch_);
        watchBell();
    }
    return storeTouched;
}

}  // namespace hab
