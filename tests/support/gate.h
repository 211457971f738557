#ifndef TESTS_SUPPORT_GATE_H
#define TESTS_SUPPORT_GATE_H

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace wardend::test {

// Holds the threads that Enter it until the test opens it, once and for all.
class Gate {
public:
    void Open() {
        std::lock_guard<std::mutex> lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    void Enter() {
        std::unique_lock<std::mutex> lock(mutex_);
        ++entered_;
        changed_.notify_all();
        changed_.wait(lock, [this] { return open_; });
    }
    // Waits up to ten seconds until count threads have entered.
    bool WaitEntered(int count) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return entered_ >= count; });
    }

private:
    std::mutex mutex_;  // guards open_ and entered_
    std::condition_variable changed_;
    bool open_{false};
    int entered_{0};
};

}  // namespace wardend::test

#endif
