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
#include <utility>

namespace hab {

namespace {

std::string bellPath(const std::string& path, std::int64_t table) {
    return path + ".bell" + (table == kBellForAll ? "" : "." + std::to_string(table));
}

// Creates the bell under a temporary name first: root's file would lock out the store's owner until fchown.
void makeBell(const std::string& path, const std::string& name) {
    const Draft draft(name);
    if (!draft) {
        return;
    }
    // Failures surface when the bell is opened. If another process has created the bell meanwhile, that one is used.
    [[maybe_unused]] int ignored = 0;
    struct stat store {};
    if (geteuid() == 0 && stat(path.c_str(), &store) == 0) {
        ignored = fchown(draft.get(), store.st_uid, store.st_gid);
    }
    ignored = link(draft.name().c_str(), name.c_str());
}

}  // namespace

FileDescriptor holdBell(const std::string& path, std::int64_t table) {
    constexpr int kHow = O_WRONLY | O_CLOEXEC | O_NOFOLLOW;
    const std::string name = bellPath(path, table);
    FileDescriptor bell(open(name.c_str(), kHow));
    if (!bell && errno == ENOENT) {
        makeBell(path, name);
        bell = FileDescriptor(open(name.c_str(), kHow));
    }
    return bell;
}

BellWatch::BellWatch(const std::string& path) : path_(path), watch_(newWatches()) {
    watchPlace(watch_, path_);
    watchBell(kBellForAll);
}

void BellWatch::add(std::int64_t table) {
    const std::lock_guard lock(mutex_);
    watchBell(table);
}

void BellWatch::watchBell(std::int64_t table) {
    // Closing the bell rings it. It stays open until the watch is set, so commits made before the watch are noticed
    // too.
    const FileDescriptor bell = holdBell(path_, table);
    if (!bell) {
        throw std::system_error(errno, std::generic_category(), "cannot make " + bellPath(path_, table));
    }
    tables_.emplace(watchFile(watch_, bellPath(path_, table), IN_CLOSE_WRITE | kFileGone), table);
}

bool BellWatch::drain() {
    alignas(inotify_event) std::array<char, 4096> events{};
    const std::lock_guard lock(mutex_);
    // One read only: events that do not fit leave the descriptor readable.
    const ssize_t size = read(watch_.get(), events.data(), events.size());
    for (ssize_t at = 0; at < size;) {
        inotify_event event{};
        std::memcpy(&event, &events[static_cast<std::size_t>(at)], sizeof event);
        at += static_cast<ssize_t>(sizeof event + event.len);
        const auto bell = tables_.find(event.wd);
        if (bell == tables_.end()) {
            storeTouched_ = true;
        } else if ((event.mask & IN_IGNORED) != 0) {
            tables_.erase(bell);
        } else if ((event.mask & kFileGone) != 0) {
            gone_.insert(bell->second);
        }
        if ((event.mask & IN_Q_OVERFLOW) != 0) {
            for (const auto& [watch, table] : tables_) {
                gone_.insert(table);
            }
        }
    }
    return storeTouched_;
}

void BellWatch::renew() {
    const std::lock_guard lock(mutex_);
    // The watch on a removed bell remains until its last holder closes it.
    for (const std::int64_t table : std::exchange(gone_, {})) {
        watchBell(table);
    }
}

}  // namespace hab
