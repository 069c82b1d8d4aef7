#include "line.h"

#include <spdlog/details/fmt_helper.h>
#include <spdlog/details/log_msg.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

namespace dynlog {

namespace {

// Prints the level as the number that callers pass.
class LevelFlag : public spdlog::custom_flag_formatter {
 public:
    void format(const spdlog::details::log_msg& message, const std::tm& /*time*/, spdlog::memory_buf_t& line) override {
        spdlog::details::fmt_helper::append_int(static_cast<int>(message.level), line);
    }
    std::unique_ptr<custom_flag_formatter> clone() const override { return std::make_unique<LevelFlag>(); }
};

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

LineFormat::LineFormat() {
    formatter_.add_flag<LevelFlag>('*').set_pattern("%Y-%m-%dT%H:%M:%S.%e %n %* %s:%# %v");
}

std::string LineFormat::line(std::string_view module, int level, const char* file, int line, std::string_view message) {
    const spdlog::source_loc place{file == nullptr ? "?" : baseName(file), line, ""};
    const auto number = static_cast<spdlog::level::level_enum>(level);
    spdlog::memory_buf_t text;
    formatter_.format({place, {module.data(), module.size()}, number, {message.data(), message.size()}}, text);
    return {text.data(), text.size()};
}

}  // namespace dynlog
