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

void BellWatch::drain() {
    bool bellTouched = false;
    alignas(inotify_event) std::array<char, 4096> events{};
    ssize_t size = 0;
    while ((size = read(watch_.get(), events.data(), events.size())) > 0) {
        for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
            inotify_event event{};
            std::memcpy(&event, &events[at], sizeof event);
            at += sizeof event + event.len;
            bellTouched = bellTouched || (event.wd == bellWatch_ && (event.mask & (kFileGone | IN_IGNORED)) != 0);
        }
    }
    if (bellTouched) {
        // Somebody removed the bell: writers make a new one, which is another file to watch.
        inotify_rm_watch(watch_.get(), bellWatch_);
        watchBell();
    }
}

}  // namespace hab
