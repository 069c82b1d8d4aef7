// input.h - splitting an input, and failing when a condition does not hold.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

inline std::string_view bytes(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};  // NOLINT(*-reinterpret-cast): the input from libFuzzer
}

// The parts of `input` between NUL bytes; at least one.
inline std::vector<std::string> texts(std::string_view input) {
    std::vector<std::string> parts;
    for (;;) {
        const std::size_t end = input.find('\0');
        parts.emplace_back(input.substr(0, end));
        if (end == std::string_view::npos) {
            return parts;
        }
        input.remove_prefix(end + 1);
    }
}

// Aborts so that libFuzzer keeps the input. The stack shows the failed condition.
inline void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

}  // namespace fuzz
