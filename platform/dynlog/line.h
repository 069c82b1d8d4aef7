// line.h - a log message made fit for one line. Any thread.
#pragma once

#include <array>
#include <cstdarg>
#include <cstddef>
#include <string>
#include <string_view>

namespace dynlog {

// The formatted message without its last newline, every other control byte escaped (\n, \t, \r, else \x1b). Short ones
// need no heap. Valid while the object lives; throws std::bad_alloc at most.
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

// The last component of a source file's path.
const char* baseName(const char* path);

}  // namespace dynlog
