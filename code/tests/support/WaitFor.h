#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace VelmoraTest {

/// Polls `condition` until it holds or `timeout` passes; true when it held.
inline bool WaitFor(const std::function<bool()>& condition,
                    std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

}  // namespace VelmoraTest
