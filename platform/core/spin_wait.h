#ifndef PLATFORM_CORE_SPIN_WAIT_H
#define PLATFORM_CORE_SPIN_WAIT_H

// Waking a sleeping thread costs several microseconds (a futex call, a context switch), which
// is most of an in-process round trip. A thread that expects a hand-off within microseconds
// therefore polls for a short, bounded time before it blocks. On one CPU polling only delays
// the thread it waits for, so it is skipped there.

#include <chrono>
#include <thread>

namespace ara::core::detail {

inline void CpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

// Polls ready until it is true or limit has passed; true when it became true.
template <typename Ready>
bool SpinUntil(const Ready& ready, std::chrono::nanoseconds limit) {
    static const bool worthIt = std::thread::hardware_concurrency() > 1;
    const bool readyNow = ready();  // before the clock: it is read for a wait only
    if (readyNow || !worthIt) {
        return readyNow;
    }
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (unsigned i = 1;; ++i) {
        if (ready()) {
            return true;
        }
        // The clock is read now and then only: it costs more than a poll.
        if (i % 64 == 0 && std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        // The scheduler tends to keep two threads that hand work to each other on one CPU. The
        // first yield lets the thread we wait for run at once when it shares our CPU; when it
        // does not, the yield returns at once and a short burst of polling follows. After the
        // burst, a poller gives the CPU away on every round, or with more runnable threads than
        // CPUs it would hold up the very thread it waits for.
        if (i == 1 || i >= 64) {
            std::this_thread::yield();
        } else {
            CpuRelax();
        }
    }
}

}  // namespace ara::core::detail

#endif
