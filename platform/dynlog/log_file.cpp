#include "log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace dynlog {

namespace {

constexpr off_t kFileSize = off_t{4} << 20U;
constexpr int kOldFiles = 2;
constexpr std::chrono::milliseconds kFirstPause{100};
constexpr std::chrono::milliseconds kLongestPause{2'000};

bool transient(int error) {
    constexpr std::array kErrors{EMFILE, ENFILE, ENOMEM, ENOSPC};
    return std::find(kErrors.begin(), kErrors.end(), error) != kErrors.end();
}

// The path of the current file (0) or of an older one.
std::string numbered(const std::string& path, int number) {
    if (number == 0) {
        return path;
    }
    const std::size_t name = path.rfind('/') + 1;
    const std::size_t dot = path.rfind('.');
    const std::size_t end = dot == std::string::npos || dot <= name ? path.size() : dot;
    return path.substr(0, end) + "." + std::to_string(number) + path.substr(end);
}

}  // namespace

LogFile::LogFile(std::string path, host::StderrLines& errors, std::string (*report)(std::uint64_t lost))
    : path_(std::move(path)), errors_(errors), report_(report) {}

LogFile::~LogFile() {
    if (lost_ > 0) {
        complain(std::to_string(lost_) + " lines were lost");
    }
    close();
}

int LogFile::open() {
    const int error = reopen();
    if (!transient(error)) {
        return error;
    }
    fail(error);
    return 0;
}

void LogFile::write(std::string_view line) {
    if (pause_.count() > 0 && Clock::now() < retryAt_) {
        ++lost_;
        return;
    }
    const int error = lost_ == 0 ? append(line) : append(report_(lost_).append(line));
    if (error == 0) {
        lost_ = 0;
        pause_ = std::chrono::milliseconds(0);
    } else {
        ++lost_;
        fail(error);
    }
}

// Does nothing when the file is open. An existing file's mode is reduced to 0600.
int LogFile::reopen() {
    if (file_ >= 0) {
        return 0;
    }
    // O_NONBLOCK: a FIFO or terminal without a reader must not block either.
    file_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0600);
    if (file_ < 0) {
        return errno;
    }
    struct stat status {};
    fstat(file_, &status);
    regular_ = S_ISREG(status.st_mode);
    size_ = 0;
    if (regular_) {
        size_ = status.st_size;
        fchmod(file_, 0600);
    }
    return 0;
}

// Closes the file first: its descriptor may be the last one that the process can have.
int LogFile::rotate() {
    close();
    for (int number = kOldFiles; number > 0; --number) {
        if (std::rename(numbered(path_, number - 1).c_str(), numbered(path_, number).c_str()) != 0 && errno != ENOENT) {
            return errno;
        }
    }
    return reopen();
}

int LogFile::append(std::string_view text) {
    const auto length = static_cast<off_t>(text.size());
    int error = reopen();
    if (error == 0 && size_ > 0 && size_ + length > kFileSize) {
        error = rotate();
    }
    if (error != 0) {
        return error;
    }
    const ssize_t written = ::write(file_, text.data(), text.size());
    if (written == length) {
        size_ += regular_ ? length : 0;
        return 0;
    }
    error = written < 0 ? errno : ENOSPC;
    if (written > 0 && regular_ && ftruncate(file_, size_) != 0) {
        size_ += written;  // the line stays cut
    }
    return error;
}

void LogFile::close() {
    if (file_ >= 0) {
        ::close(std::exchange(file_, -1));
    }
}

void LogFile::fail(int error) {
    if (pause_.count() == 0) {
        complain(std::string(std::strerror(error)) + "; lines are lost until the file can be written");
    }
    pause_ = std::clamp(2 * pause_, kFirstPause, kLongestPause);
    retryAt_ = Clock::now() + pause_;
}

void LogFile::complain(const std::string& text) {
    errors_.write("habdynlog: " + path_ + ": " + text + "\n");
}

}  // namespace dynlog
