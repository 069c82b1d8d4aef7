// line.h - formats a log message as a single line. Any thread.
#pragma once

#include <array>
#include <cstdarg>
#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>

namespace dynlog {

// The formatted message without its last newline. Other control bytes are escaped (\n, \t, \r, else \x1b). Messages up
// to 1023 bytes need no heap. text() is valid for the object's lifetime. Throws std::bad_alloc.
class Message {
 public:
    Message(const char* format, std::va_list arguments);
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    std::string_view text() const { return text_; }

 private:
    std::array<char, 1024> short_;
    std::string long_;
    std::string_view text_;
};

// The local time as text. One thread at a time.
class TimeText {
 public:
    // Returns YYYY-MM-DDTHH:MM:SS.mmm, valid until the next call.
    std::string_view now();

 private:
    std::time_t second_ = 0;
    std::array<char, 40> text_{};
    std::size_t length_ = 0;  // up to the seconds, which are converted once
};

// Returns "TIME MODULE LEVEL FILE:LINE MESSAGE" and a newline. Of `file`, which may be null, the last component is
// shown. Throws std::bad_alloc.
std::string formatLine(std::string_view time, std::string_view module, int level, const char* file, int line,
                       std::string_view message);

}  // namespace dynlog
