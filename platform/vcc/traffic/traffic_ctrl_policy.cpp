#include "platform/vcc/traffic/traffic_ctrl_policy.h"

#include <chrono>

namespace vesk {

namespace {

std::uint64_t SteadyMilliseconds() {
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                          std::chrono::steady_clock::now().time_since_epoch())
                                          .count());
}

}  // namespace

BasicPolicy::BasicPolicy(TrafficCtrlUnit unit, std::uint32_t count)
    : BasicPolicy(unit, count, SteadyMilliseconds) {}

BasicPolicy::BasicPolicy(TrafficCtrlUnit unit, std::uint32_t count, Clock clock)
    : unit_(unit), count_(count), clock_(std::move(clock)) {}

std::uint64_t BasicPolicy::GetTime() const {
    return clock_();
}

bool BasicPolicy::IsPassed(std::uint64_t time) {
    std::lock_guard<std::mutex> lock(mutex_);
    // A time before the window (another thread read the clock earlier) counts in this window.
    if (!started_ || (time > windowStart_ && time - windowStart_ >= unit_)) {
        started_ = true;
        windowStart_ = time;
        passed_ = 0;
    }
    if (passed_ >= count_) {
        return false;
    }
    ++passed_;
    return true;
}

}  // namespace vesk
