// file_watch.h - file descriptors, temporary files and inotify watches by path.
#pragma once

#include <atomic>
#include <cstdint>
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

// Watches a file and its folder for events that may replace the file. Throws std::system_error.
void watchPlace(const FileDescriptor& watches, const std::string& path);

// Events after which a path may lead to a different file: removed, replaced or moved.
extern const std::uint32_t kFileGone;

// Detects whether the file at a path may have been replaced, by events on the file and its folder. Any thread.
class FileWatch {
 public:
    // Starts to watch. When the kernel has no more watches, touched() always returns true.
    explicit FileWatch(const std::string& path);

    // Returns true from the first such event on, with a delay of up to one millisecond.
    bool touched();

 private:
    FileDescriptor watches_;
    std::atomic<bool> touched_{false};
    std::atomic<std::int64_t> nextLook_{0};  // steady clock, nanoseconds
};

}  // namespace hab
