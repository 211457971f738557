#include "daemon/memory_keeper.h"

#include <malloc.h>

#include <algorithm>
#include <ctime>
#include <utility>

#include "records/wardend_log.h"

namespace vesk::wardend {

void KeepFreedMemory() {
    // Setting either threshold also stops glibc from sliding them after each large free. A
    // sanitizer's allocator refuses both, and has thresholds of its own.
    if (mallopt(M_MMAP_THRESHOLD, static_cast<int>(kKeptFreeBytes)) != 1 ||
        mallopt(M_TRIM_THRESHOLD, static_cast<int>(kKeptFreeBytes)) != 1) {
        LogInfo() << "Wardend keeps the allocator's own thresholds.";
    }
}

MemoryKeeper::MemoryKeeper(std::chrono::microseconds busyCpu, int quietPeriods, Trim trim)
    : busyCpu_(busyCpu), quietPeriods_(quietPeriods), trim_(std::move(trim)) {}

bool MemoryKeeper::OnPeriod(std::chrono::microseconds cpuTime) {
    const bool first = lastCpu_.count() < 0;
    const auto used = first ? std::chrono::microseconds(0) : cpuTime - lastCpu_;
    lastCpu_ = cpuTime;
    // After work, a period is quiet below half the busiest one of the work, or below busyCpu:
    // a daemon serving a hundred applications never falls silent.
    if (worked_ ? used >= std::max(busyCpu_, peak_ / 2) : used >= busyCpu_) {
        worked_ = true;
        peak_ = std::max(peak_, used);
        quietSoFar_ = 0;
        return false;
    }
    if (!worked_ || ++quietSoFar_ < quietPeriods_) {
        return false;
    }
    worked_ = false;
    peak_ = std::chrono::microseconds(0);
    quietSoFar_ = 0;
    trim_();
    return true;
}

MemoryKeeper MakeDaemonMemoryKeeper() {
    constexpr std::chrono::microseconds kBusyCpu(2000);
    constexpr int kQuietPeriods = 4;
    return MemoryKeeper(kBusyCpu, kQuietPeriods, [] {
        const bool returned = malloc_trim(0) != 0;
        LogVerbose() << "Wardend is quiet: freed memory "
                     << (returned ? "returned to the system." : "was already returned.");
    });
}

std::chrono::microseconds ProcessCpuTime() {
    timespec now{};
    if (clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now) != 0) {
        return std::chrono::microseconds(0);
    }
    return std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
}

}  // namespace vesk::wardend
