// log_file.h - the log's file and its rotation. Not thread-safe.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "stderr_lines.h"

namespace dynlog {

// Appends to PATH, mode 0600. When a line would exceed 4 MiB, the file is renamed to NAME.1.EXTENSION, its predecessor
// to NAME.2.EXTENSION, and a new one is started. A target that is not a regular file is never rotated.
//
// When the file cannot be opened, rotated or written, lines are lost. The next attempt is made with a later line, after
// a pause that grows from 0.1 to 2 s. Standard error has one line when this begins; the file has one when it ends, with
// the number of lost lines.
class LogFile {
 public:
    // `report` returns the line that states the number of lost lines.
    LogFile(std::string path, host::StderrLines& errors, std::string (*report)(std::uint64_t lost));
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;
    // Reports lines that are still lost on standard error.
    ~LogFile();

    // Opens the file. Returns 0, or the error number of a failure that a retry does not fix. Other failures (too many
    // open files, no memory, no space) begin the state above and return 0.
    int open();

    // Appends `line`, which ends in a newline, as a whole or not at all.
    void write(std::string_view line);

 private:
    using Clock = std::chrono::steady_clock;

    // These return 0 or an error number.
    int reopen();
    int rotate();
    int append(std::string_view text);

    void close();
    void fail(int error);
    void complain(const std::string& text);

    const std::string path_;
    host::StderrLines& errors_;
    std::string (*const report_)(std::uint64_t lost);
    int file_ = -1;
    bool regular_ = false;
    off_t size_ = 0;

    std::uint64_t lost_ = 0;
    std::chrono::milliseconds pause_{0};  // 0 while the file is available
    Clock::time_point retryAt_;
};

}  // namespace dynlog
