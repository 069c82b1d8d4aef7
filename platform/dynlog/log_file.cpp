#include "log_file.h"

#include <fcntl.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace dynlog {

namespace {

constexpr std::size_t kFileSize = std::size_t{4} << 20U;
constexpr std::size_t kOldFiles = 2;
constexpr std::chrono::milliseconds kFirstPause{100};
constexpr std::chrono::milliseconds kLongestPause{2'000};

bool transient(int error) {
    constexpr std::array kErrors{EMFILE, ENFILE, ENOMEM, ENOSPC};
    return std::find(kErrors.begin(), kErrors.end(), error) != kErrors.end();
}

// Creates a missing file with mode 0600. Appends a newline to a line that a failed write has cut. Returns 0 or an error
// number.
int prepare(const std::string& path) {
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0600);
    if (file < 0) {
        return errno;
    }
    char last = '\n';
    const off_t size = lseek(file, 0, SEEK_END);
    const bool cut = size > 0 && pread(file, &last, 1, size - 1) == 1 && last != '\n';
    const int error = cut && write(file, "\n", 1) != 1 ? errno : 0;
    close(file);
    return error;
}

}  // namespace

LogFile::LogFile(std::string path, host::StderrLines& errors, std::string (*report)(std::uint64_t lost))
    : path_(std::move(path)), errors_(errors), report_(report) {}

LogFile::~LogFile() {
    if (lost_ > 0) {
        errors_.write("habdynlog: " + path_ + ": " + std::to_string(lost_) + " lines were lost\n");
    }
}

// The library's sink cannot be used after a failure, so each attempt makes a new one.
std::unique_ptr<spdlog::sinks::sink> LogFile::makeSink() {
    spdlog::file_event_handlers handlers;
    handlers.before_open = [this](const std::string& path) { openError_ = prepare(path); };
    handlers.after_open = [](const std::string& /*path*/, std::FILE* file) { fchmod(fileno(file), 0600); };
    auto sink = std::make_unique<spdlog::sinks::rotating_file_sink_st>(path_, kFileSize, kOldFiles, false, handlers);
    sink->set_formatter(std::make_unique<spdlog::pattern_formatter>("%v", spdlog::pattern_time_type::local, ""));
    return sink;
}

void LogFile::open() {
    try {
        sink_ = makeSink();
    } catch (const spdlog::spdlog_ex& failure) {
        if (!transient(openError_)) {
            throw;
        }
        fail(failure.what());
    }
}

void LogFile::put(const std::string& text) {
    sink_->log({"", spdlog::level::info, text});
    sink_->flush();
}

void LogFile::write(const std::string& line) {
    if (!sink_ && Clock::now() < retryAt_) {
        ++lost_;
        return;
    }
    try {
        if (!sink_) {
            sink_ = makeSink();
        }
        if (lost_ > 0) {
            put(report_(lost_));
            lost_ = 0;
        }
        put(line);
        pause_ = std::chrono::milliseconds(0);
    } catch (const spdlog::spdlog_ex& failure) {
        sink_.reset();
        ++lost_;
        fail(failure.what());
    }
}

void LogFile::fail(const char* cause) {
    if (pause_.count() == 0) {
        errors_.write("habdynlog: " + std::string(cause) + "; lines are lost until the file can be written\n");
    }
    pause_ = std::clamp(2 * pause_, kFirstPause, kLongestPause);
    retryAt_ = Clock::now() + pause_;
}

}  // namespace dynlog
