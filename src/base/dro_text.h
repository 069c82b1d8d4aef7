// dro_text.h - fixed-size text. Each object belongs to one thread at a time.
#pragma once

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace dro {

// Holds at most Capacity - 1 bytes and always a NUL. Longer text is silently truncated, as the cloud and the store
// expect of every fixed-size field. Starts empty, all bytes zero.
template <std::size_t Capacity>
class FixedText {
    static_assert(Capacity > 0);

 public:
    FixedText() = default;
    explicit FixedText(std::string_view text) { assign(text); }

    void assign(std::string_view text) {
        const std::size_t length = std::min(text.size(), Capacity - 1);
        std::memcpy(bytes_.data(), text.data(), length);
        bytes_[length] = '\0';
    }

    __attribute__((format(printf, 2, 3))) void format(const char* format, ...) {
        va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(bytes_.data(), Capacity, format, arguments);
        va_end(arguments);
    }

    void clear() { bytes_.fill('\0'); }

    // For C functions that fill a buffer of capacity() bytes, including the NUL.
    char* data() { return bytes_.data(); }
    const char* data() const { return bytes_.data(); }
    static constexpr std::size_t capacity() { return Capacity; }

    const char* c_str() const { return bytes_.data(); }
    std::string_view view() const { return {bytes_.data(), ::strnlen(bytes_.data(), Capacity)}; }
    bool empty() const { return bytes_[0] == '\0'; }
    bool starts_with(std::string_view prefix) const { return view().starts_with(prefix); }
    bool operator==(std::string_view other) const { return view() == other; }

 private:
    std::array<char, Capacity> bytes_{};
};

}  // namespace dro
