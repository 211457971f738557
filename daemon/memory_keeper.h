#ifndef DAEMON_MEMORY_KEEPER_H
#define DAEMON_MEMORY_KEEPER_H

// How the daemon holds freed memory. A large answer (QueryEventInfo("ALL") over ten thousand
// events) builds and frees some ten megabytes; glibc's default hands that back to the kernel at
// once, and a tool that asks again faults every page in anew, which costs more than the answer
// itself where page faults are dear (virtual machines). So freed memory stays in the process
// while requests come, and goes back once the daemon has been quiet for a second.

#include <chrono>
#include <cstddef>
#include <functional>

namespace vesk::wardend {

// Freed memory up to this much stays with the allocator; larger blocks are mapped on their own
// and return when freed.
inline constexpr std::size_t kKeptFreeBytes = std::size_t{32} << 20U;

// Fixes the allocator's thresholds at kKeptFreeBytes (instead of glibc's sliding ones). Called
// once, before the services start.
void KeepFreedMemory();

// Watches the process's CPU time once per period of the main loop and trims the heap once
// after work (a period of `busyCpu` or more), when `quietPeriods` periods in a row used less
// than `busyCpu` or half the busiest period of the work, whichever is more.
class MemoryKeeper {
public:
    using Trim = std::function<void()>;

    MemoryKeeper(std::chrono::microseconds busyCpu, int quietPeriods, Trim trim);

    // The process's CPU time at the end of a period; true when it trimmed.
    bool OnPeriod(std::chrono::microseconds cpuTime);

private:
    const std::chrono::microseconds busyCpu_;
    const int quietPeriods_;
    Trim trim_;
    std::chrono::microseconds lastCpu_{-1};
    std::chrono::microseconds peak_{0};  // the busiest period of the work so far
    int quietSoFar_{0};
    bool worked_{false};
};

// The keeper the daemon runs: busy from 2 ms of CPU in a period, trims after 4 quiet ones (1 s
// of the main loop), with malloc_trim.
MemoryKeeper MakeDaemonMemoryKeeper();

// CPU time of the whole process so far.
std::chrono::microseconds ProcessCpuTime();

}  // namespace vesk::wardend

#endif
