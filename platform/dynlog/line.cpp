#include "line.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace dynlog {

namespace {

bool isControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

void appendEscaped(std::string& line, char c) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    switch (c) {
        case '\n':
            line += "\\n";
            break;
        case '\t':
            line += "\\t";
            break;
        case '\r':
            line += "\\r";
            break;
        default:
            line += "\\x";
            line += kDigits[static_cast<unsigned char>(c) >> 4U];
            line += kDigits[static_cast<unsigned char>(c) & 15U];
    }
}

const char* baseName(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

std::string escaped(std::string_view text) {
    std::string line;
    line.reserve(text.size() + 16);
    for (const char c : text) {
        if (isControl(c)) {
            appendEscaped(line, c);
        } else {
            line += c;
        }
    }
    return line;
}

}  // namespace

Message::Message(const char* format, std::va_list arguments) {
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(short_.data(), short_.size(), format, arguments);
    if (length < 0) {
        text_ = format;  // formatting failed: log the format itself
    } else if (static_cast<std::size_t>(length) < short_.size()) {
        text_ = {short_.data(), static_cast<std::size_t>(length)};
    } else {
        long_.resize(static_cast<std::size_t>(length));
        std::vsnprintf(long_.data(), long_.size() + 1, format, again);
        text_ = long_;
    }
    va_end(again);
    if (text_.ends_with('\n')) {
        text_.remove_suffix(1);
    }
    if (std::any_of(text_.begin(), text_.end(), isControl)) {
        long_ = escaped(text_);
        text_ = long_;
    }
}

std::string_view TimeText::now() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec != second_ || length_ == 0) {
        struct tm local {};
        localtime_r(&now.tv_sec, &local);
        length_ = std::strftime(text_.data(), text_.size(), "%Y-%m-%dT%H:%M:%S", &local);
        second_ = now.tv_sec;
    }
    const long milliseconds = now.tv_nsec / 1'000'000;
    char* end = text_.data() + length_;
    *end++ = '.';
    *end++ = static_cast<char>('0' + milliseconds / 100);
    *end++ = static_cast<char>('0' + milliseconds / 10 % 10);
    *end++ = static_cast<char>('0' + milliseconds % 10);
    return {text_.data(), end};
}

std::string formatLine(std::string_view time, std::string_view module, int level, const char* file, int line,
                       std::string_view message) {
    const std::string_view name = file == nullptr ? "?" : baseName(file);
    std::string whole;
    whole.reserve(time.size() + module.size() + name.size() + message.size() + 32);
    whole.append(time).append(" ").append(module).append(" ").append(std::to_string(level)).append(" ");
    return whole.append(name).append(":").append(std::to_string(line)).append(" ").append(message).append("\n");
}

}  // namespace dynlog
