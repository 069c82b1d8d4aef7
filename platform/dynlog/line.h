// line.h - formats a log message as a single line. Any thread.
#pragma once

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

// Returns the last component of `path`.
const char* baseName(const char* path);

}  // namespace dynlog
