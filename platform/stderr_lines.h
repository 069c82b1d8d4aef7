// stderr_lines.h - writes whole lines to standard error without waiting for its reader. Used by both host libraries.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

namespace host {

// One writer of lines. Any thread. Nothing is buffered, so a crash loses no line that was written.
class StderrLines {
 public:
    // `report` returns the line that states the number of lost lines, with its newline.
    constexpr explicit StderrLines(std::string (*report)(std::uint64_t lost)) : report_(report) {}

    // Writes the whole `line`, which ends in a newline, or drops it when the write would block: the pipe, socket or
    // terminal is full. A report of the lost lines precedes the next line that can be written.
    void write(std::string_view line);

    // Determines the type of standard error once, for all later lines. Without this call, each write determines it.
    void remember() { target_ = target(); }

    // Writes a pending report if it can be written now.
    void reportLost();

 private:
    enum class Target { unknown, plain, pipe, socket, terminal };

    static Target target();
    ssize_t writeNow(std::string_view text) const;
    bool put(std::string_view text);
    void reportLostLocked();

    std::string (*const report_)(std::uint64_t lost);
    std::mutex mutex_;
    std::uint64_t lost_ = 0;
    std::atomic<Target> target_{Target::unknown};
    bool cut_ = false;  // the last line was written in part
};

}  // namespace host
