// file_watch.h - kernel watches on files by their paths; they cost nothing while nothing happens.
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
