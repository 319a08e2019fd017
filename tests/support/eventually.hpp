// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <thread>

namespace tests {

// Waits until a condition holds; false after a minute, which even a slow and busy machine does not need.
inline bool eventually(const auto &condition) {
    using std::chrono::steady_clock;
    const auto deadline = steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        if (steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

} // namespace tests
