#ifndef PLATFORM_VCC_TRAFFIC_TRAFFIC_CTRL_POLICY_H
#define PLATFORM_VCC_TRAFFIC_TRAFFIC_CTRL_POLICY_H

#include <cstdint>
#include <functional>
#include <mutex>

namespace vesk {

// The length of a traffic window, in milliseconds.
using TrafficCtrlUnit = std::uint32_t;

// Decides whether one more request or sample may pass now. Asked from driver threads and
// senders concurrently.
class TrafficCtrlPolicy {
public:
    TrafficCtrlPolicy() = default;
    TrafficCtrlPolicy(const TrafficCtrlPolicy&) = delete;
    TrafficCtrlPolicy& operator=(const TrafficCtrlPolicy&) = delete;
    virtual ~TrafficCtrlPolicy() = default;

    // The policy's time now, in milliseconds of its clock.
    virtual std::uint64_t GetTime() const = 0;
    // Whether a request arriving at that time passes; counts it when it does.
    virtual bool IsPassed(std::uint64_t time) = 0;
};

// A fixed window: at most `count` passes in each window of `unit` milliseconds on the steady
// clock. Windows are aligned to the first request, so a burst at a window's end and another at
// the next one's start may together pass 2 * count within one unit; the bound per window holds.
class BasicPolicy final : public TrafficCtrlPolicy {
public:
    using Clock = std::function<std::uint64_t()>;  // milliseconds

    BasicPolicy(TrafficCtrlUnit unit, std::uint32_t count);
    // With another clock (tests).
    BasicPolicy(TrafficCtrlUnit unit, std::uint32_t count, Clock clock);

    std::uint64_t GetTime() const override;
    bool IsPassed(std::uint64_t time) override;

    TrafficCtrlUnit Unit() const noexcept { return unit_; }
    std::uint32_t Count() const noexcept { return count_; }

private:
    const TrafficCtrlUnit unit_;
    const std::uint32_t count_;
    const Clock clock_;
    std::mutex mutex_;  // guards the window
    bool started_{false};
    std::uint64_t windowStart_{0};
    std::uint32_t passed_{0};
};

}  // namespace vesk

#endif
