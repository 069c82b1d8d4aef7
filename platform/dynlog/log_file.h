// log_file.h - the log's file and its rotation. Not thread-safe.
#pragma once

#include <spdlog/sinks/sink.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "stderr_lines.h"

namespace dynlog {

// Appends to PATH, mode 0600. When a line would exceed 4 MiB, the file is renamed to NAME.1.EXTENSION, its predecessor
// to NAME.2.EXTENSION, and a new one is started.
//
// When the file cannot be opened, rotated or written, it is unavailable and lines are lost. A later line tries again,
// after a pause that grows from 0.1 to 2 s. One line on standard error reports that the file is unavailable. One line
// in the file reports the number of lost lines when it is available again.
class LogFile {
 public:
    // `report` returns the line that states the number of lost lines.
    LogFile(std::string path, host::StderrLines& errors, std::string (*report)(std::uint64_t lost));
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;
    // Prints a pending report of lost lines on standard error.
    ~LogFile();

    // Opens the file. Throws spdlog::spdlog_ex when a retry would not help. After other failures (too many open files,
    // no memory, no space) the file is unavailable, as described above.
    void open();

    // Appends `line`, which ends in a newline.
    void write(const std::string& line);

 private:
    using Clock = std::chrono::steady_clock;

    std::unique_ptr<spdlog::sinks::sink> makeSink();
    void put(const std::string& text);
    void fail(const char* cause);

    const std::string path_;
    host::StderrLines& errors_;
    std::string (*const report_)(std::uint64_t lost);
    std::unique_ptr<spdlog::sinks::sink> sink_;  // null while the file is unavailable
    int openError_ = 0;                          // of the last attempt

    std::uint64_t lost_ = 0;
    std::chrono::milliseconds pause_{0};  // 0 while the file is available
    Clock::time_point retryAt_;
};

}  // namespace dynlog
