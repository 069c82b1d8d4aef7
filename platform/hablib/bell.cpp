#include "bell.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <system_error>
#include <vector>

namespace hab {

namespace {

std::string bellPath(const std::string& path, std::int64_t table) {
    return path + ".bell" + (table == kBellForAll ? "" : "." + std::to_string(table));
}

}  // namespace

FileDescriptor holdBell(const std::string& path, std::int64_t table) {
    constexpr int kHow = O_WRONLY | O_CLOEXEC | O_NOFOLLOW;
    const std::string name = bellPath(path, table);
    FileDescriptor bell(open(name.c_str(), kHow));
    if (!bell && errno == ENOENT) {
        bell = FileDescriptor(open(name.c_str(), kHow | O_CREAT, 0600));
        // Root's would shut the store's owner out.
        struct stat store {};
        if (geteuid() == 0 && stat(path.c_str(), &store) == 0) {
            [[maybe_unused]] const int ignored = fchown(bell.get(), store.st_uid, store.st_gid);
        }
    }
    return bell;
}

BellWatch::BellWatch(const std::string& path) : path_(path), watch_(newWatches()) {
    watchFile(watch_, path_, kFileGone);
    watchBell(kBellForAll);
}

void BellWatch::add(std::int64_t table) {
    const std::lock_guard lock(mutex_);
    watchBell(table);
}

void BellWatch::watchBell(std::int64_t table) {
    if (const FileDescriptor bell = holdBell(path_, table); !bell) {
        throw std::system_error(errno, std::generic_category(), "cannot make " + bellPath(path_, table));
    }
    tables_.emplace(watchFile(watch_, bellPath(path_, table), IN_CLOSE_WRITE | kFileGone), table);
}

bool BellWatch::drain() {
    bool storeTouched = false;
    std::vector<int> gone;
    alignas(inotify_event) std::array<char, 4096> events{};
    const std::lock_guard lock(mutex_);
    // Once: what found no room keeps the watch readable.
    const ssize_t size = read(watch_.get(), events.data(), events.size());
    for (ssize_t at = 0; at < size;) {
        inotify_event event{};
        std::memcpy(&event, &events[static_cast<std::size_t>(at)], sizeof event);
        at += static_cast<ssize_t>(sizeof event + event.len);
        if (!tables_.contains(event.wd)) {
            storeTouched = true;
        } else if ((event.mask & (kFileGone | IN_IGNORED)) != 0) {
            gone.push_back(event.wd);
        }
    }
    for (const int watch : gone) {
        // Somebody removed the bell: writers make a new one, which is another file to watch.
        if (const auto bell = tables_.extract(watch)) {
            inotify_rm_watch(watch_.get(), watch);
            watchBell(bell.mapped());
        }
    }
    return storeTouched;
}

}  // namespace hab
