// line.h - formats a log message as a single line. Any thread.
#pragma once

#include <spdlog/pattern_formatter.h>

#include <array>
#include <cstdarg>
#include <cstddef>
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

// Formats "TIME MODULE LEVEL FILE:LINE MESSAGE" lines. One thread at a time.
class LineFormat {
 public:
    LineFormat();

    // Returns the line with its newline. It contains the last component of `file`, which may be null. Throws
    // std::bad_alloc.
    std::string line(std::string_view module, int level, const char* file, int line, std::string_view message);

 private:
    spdlog::pattern_formatter formatter_;
};

}  // namespace dynlog
