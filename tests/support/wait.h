// wait.h - waiting for another thread or process. Any thread.
#pragma once

#include <chrono>
#include <thread>

namespace dro_test {

// How long a test waits for an expected event. Long, because it costs nothing on success and sanitizers are slow.
inline constexpr std::chrono::seconds kPatience{20};

// Checks `condition` every millisecond until it holds; false after `patience`.
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds patience = kPatience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace dro_test
