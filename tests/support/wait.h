#ifndef TESTS_SUPPORT_WAIT_H
#define TESTS_SUPPORT_WAIT_H

#include <chrono>
#include <functional>
#include <thread>

namespace wardend::test {

// Polls condition every millisecond until it holds or timeout has passed; its last answer.
inline bool WaitUntil(const std::function<bool()>& condition,
                      std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return condition();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace wardend::test

#endif
