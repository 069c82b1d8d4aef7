// stderr_lines.h - whole lines on standard error, written without waiting for its reader. For both host libraries.
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

    // Writes `line`, which ends in a newline, as a whole. Drops it when that would block: the pipe, socket or terminal
    // is full. The first line that can be written again is preceded by a report of the lost ones.
    void write(std::string_view line);

    // Determines what standard error is, once for all later lines. Otherwise each line does.
    void remember() { target_ = target(); }

    // Writes a pending report if that is possible now.
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
