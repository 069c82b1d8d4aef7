// wait.h - waiting for what another thread or process brings about. Any thread.
#pragma once

#include <chrono>
#include <thread>

namespace dro_test {

// How long a test waits for what must come. Long, since it costs nothing when it comes; sanitizers are slow.
inline constexpr std::chrono::seconds kPatience{20};

// Looks at `condition` every millisecond until it holds; false when it did not within `patience`.
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
