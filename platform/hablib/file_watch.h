// file_watch.h - file descriptors, temporary files and inotify watches by path.
#pragma once

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>

namespace hab {

// Owns a file descriptor; -1 when empty.
class FileDescriptor {
 public:
    FileDescriptor() = default;
    explicit FileDescriptor(int number) : number_(number) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~FileDescriptor();

    int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }

 private:
    int number_ = -1;
};

// An empty file with a unique name beside `path`, mode 0600. The destructor removes that name; the file survives when
// it has been linked to another.
class Draft {
 public:
    explicit Draft(const std::string& path);
    ~Draft();
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;

    // False when the file could not be created; errno has the cause.
    explicit operator bool() const { return !name_.empty(); }
    const std::string& name() const { return name_; }
    int get() const { return file_.get(); }
    // Closes the descriptor; the file stays.
    void close() { file_ = FileDescriptor(); }

 private:
    std::string name_;
    FileDescriptor file_;
};

// Creates a set of watches. Throws std::system_error when the kernel has no more.
FileDescriptor newWatches();
// Watches `path` for inotify `events` and returns the watch number. Throws std::system_error.
int watchFile(const FileDescriptor& watches, const std::string& path, std::uint32_t events);

// Watches a file for the `events`, and the file and its folder for events that may replace the file. Throws
// std::system_error.
void watchPlace(const FileDescriptor& watches, const std::string& path, std::uint32_t events);

// Events after which a path may lead to a different file: removed, replaced or moved.
extern const std::uint32_t kFileGone;

// Reads pending events and visits each. One read only: events that do not fit leave the descriptor readable. Returns
// false when there was none.
template <class Visit>
bool eachEvent(const FileDescriptor& watches, Visit visit) {
    alignas(inotify_event) std::array<char, 4096> events;
    const ssize_t size = read(watches.get(), events.data(), events.size());
    for (ssize_t at = 0; at < size;) {
        inotify_event event{};
        std::memcpy(&event, &events[static_cast<std::size_t>(at)], sizeof event);
        at += static_cast<ssize_t>(sizeof event + event.len);
        visit(event);
    }
    return size > 0;
}

// Detects by events on a file and its folder that the file may have been replaced or overwritten. Any thread.
class FileWatch {
 public:
    explicit FileWatch(std::string path);

    // Reads the pending events. Without watches, assumes an event and tries to set the watches.
    void look();
    // As look(), at most once a millisecond: the system call would add a tenth to the cost of a read.
    void lookLately();

    // True when the path may lead to a different file: after an event, for a tenth of a second. The kernel may report
    // the event shortly before the path changes.
    bool touched() const { return touched_.load(std::memory_order_relaxed); }
    // Counts the events after which the file's content may have changed without SQLite's knowledge. Programs that copy
    // a file over this one cause such an event, but also those that only close it.
    std::uint64_t rewrites() const { return rewrites_.load(std::memory_order_relaxed); }

 private:
    void lookAt(std::int64_t now);
    void watch();

    const std::string path_;
    std::mutex mutex_;
    FileDescriptor watches_;
    std::int64_t doubtEnds_ = 0;  // steady clock, nanoseconds
    std::atomic<bool> touched_{false};
    std::atomic<std::uint64_t> rewrites_{0};
    std::atomic<std::int64_t> nextLook_{0};  // steady clock, nanoseconds
};

}  // namespace hab
