// file_watch.h - files: their descriptors, how they come to a name, and kernel watches on them by their paths, which
// cost nothing while nothing happens.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

namespace hab {

// A file descriptor, closed with its owner; -1 for none.
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

// An empty file under a name of its own beside `path`, readable by its owner only; gone at the end unless it was linked
// to another name.
class Draft {
 public:
    explicit Draft(const std::string& path);
    ~Draft();
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;

    // False, with errno set by the making, when it could not be made.
    explicit operator bool() const { return !name_.empty(); }
    const std::string& name() const { return name_; }
    int get() const { return file_.get(); }
    // Lets go of the descriptor; the file stays.
    void close() { file_ = FileDescriptor(); }

 private:
    std::string name_;
    FileDescriptor file_;
};

// A set of watches. Throws std::system_error when the kernel has no more.
FileDescriptor newWatches();
// Watches `path` for `events` (inotify's); the watch's number. Throws std::system_error.
int watchFile(const FileDescriptor& watches, const std::string& path, std::uint32_t events);

// Watches a file and its folder for what may put another in its place. Throws std::system_error.
void watchPlace(const FileDescriptor& watches, const std::string& path);

// What ends a path's leading to its file: removed, replaced or moved.
extern const std::uint32_t kFileGone;

// Tells whether anything has happened to a file or its folder that may have put another in its place. Any thread.
class FileWatch {
 public:
    // Watches from now on; where the kernel has no more watches, touched() is always true.
    explicit FileWatch(const std::string& path);

    // True from the first such thing on, or up to a millisecond later.
    bool touched();

 private:
    FileDescriptor watches_;
    std::atomic<bool> touched_{false};
    std::atomic<std::int64_t> nextLook_{0};  // nanoseconds of the steady clock
};

}  // namespace hab
