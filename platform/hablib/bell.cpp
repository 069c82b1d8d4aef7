#include "bell.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>

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
    watchPlace(watch_, path_, 0);
    add(kBellForAll);
}

void BellWatch::add(std::int64_t table) {
    const std::lock_guard lock(mutex_);
    Bell bell;
    watchBell(table, bell);
    bells_.insert_or_assign(table, bell);
}

void BellWatch::watchBell(std::int64_t table, Bell& bell) {
    // Closing the bell rings it. It stays open until the watch is set, so commits made before the watch are noticed
    // too.
    const FileDescriptor file = holdBell(path_, table);
    if (!file) {
        throw std::system_error(errno, std::generic_category(), "cannot make " + bellPath(path_, table));
    }
    bell = {watchFile(watch_, bellPath(path_, table), IN_CLOSE_WRITE | kFileGone), false};
}

bool BellWatch::drain() noexcept {
    const std::lock_guard lock(mutex_);
    eachEvent(watch_, [this](const inotify_event& event) {
        bool ofBell = false;
        for (auto& [table, bell] : bells_) {
            if (bell.watch == event.wd || (event.mask & IN_Q_OVERFLOW) != 0) {
                ofBell = true;
                bell.gone = bell.gone || (event.mask & (kFileGone | IN_IGNORED | IN_Q_OVERFLOW)) != 0;
            }
        }
        storeTouched_ = storeTouched_ || !ofBell || (event.mask & IN_Q_OVERFLOW) != 0;
    });
    return storeTouched_;
}

void BellWatch::renew() {
    const std::lock_guard lock(mutex_);
    for (auto& [table, bell] : bells_) {
        if (bell.gone) {
            watchBell(table, bell);  // the watch on the removed file remains until its last holder closes it
        }
    }
}

}  // namespace hab
