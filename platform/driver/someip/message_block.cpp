#include "platform/driver/someip/message_block.h"

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
// A kept block is poisoned, and so is the room behind the size a message asked for, so that
// AddressSanitizer still sees what runs past a large message or uses it after it has gone.
#define WARDEND_BLOCK_POISON(address, size) ASAN_POISON_MEMORY_REGION(address, size)
#define WARDEND_BLOCK_UNPOISON(address, size) ASAN_UNPOISON_MEMORY_REGION(address, size)
#else
#define WARDEND_BLOCK_POISON(address, size) ((void)(address), (void)(size))
#define WARDEND_BLOCK_UNPOISON(address, size) ((void)(address), (void)(size))
#endif

namespace lumo::driver::someip {

namespace {

using Clock = std::chrono::steady_clock;

// In front of every block: its mapped size, or 0 for a heap block. 16 bytes keep the block
// aligned as malloc's own.
constexpr std::size_t kPrefix = 16;
constexpr std::size_t kMapGrain = std::size_t{64} * 1024;
constexpr std::size_t kMaxKeptBytes = std::size_t{64} * 1024 * 1024;

std::size_t MappedOf(const unsigned char* base) {
    std::size_t mapped = 0;
    std::memcpy(&mapped, base, sizeof(mapped));
    return mapped;
}

void SetMapped(unsigned char* base, std::size_t mapped) {
    std::memcpy(base, &mapped, sizeof(mapped));
}

void Unmap(unsigned char* base, std::size_t mapped) {
    WARDEND_BLOCK_UNPOISON(base, mapped);
    ::munmap(base, mapped);
}

class LargeBlocks {
public:
    // A kept mapping of at least `need` bytes, the smallest such; nullptr when there is none.
    unsigned char* Take(std::size_t need) {
        std::lock_guard<std::mutex> lock(mutex_);
        auto best = kept_.end();
        for (auto it = kept_.begin(); it != kept_.end(); ++it) {
            if (it->mapped >= need && (best == kept_.end() || it->mapped < best->mapped)) {
                best = it;
            }
        }
        if (best == kept_.end()) {
            return nullptr;
        }
        unsigned char* base = best->base;
        WARDEND_BLOCK_UNPOISON(base, best->mapped);
        bytes_ -= best->mapped;
        kept_.erase(best);
        count_.store(kept_.size(), std::memory_order_relaxed);
        return base;
    }

    void Keep(unsigned char* base, std::size_t mapped) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (kept_.size() < kMaxKeptLargeBlocks && bytes_ + mapped <= kMaxKeptBytes) {
                WARDEND_BLOCK_POISON(base, mapped);
                kept_.push_back({base, mapped, Clock::now()});
                bytes_ += mapped;
                count_.store(kept_.size(), std::memory_order_relaxed);
                return;
            }
        }
        Unmap(base, mapped);
    }

    Clock::time_point Release(Clock::time_point now) {
        Clock::time_point next = Clock::time_point::max();
        if (count_.load(std::memory_order_relaxed) == 0) {
            return next;  // the I/O threads ask every tick
        }
        std::vector<Kept> idle;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            const auto stays = std::stable_partition(
                kept_.begin(), kept_.end(),
                [now](const Kept& k) { return now - k.since < kLargeBlockKeep; });
            idle.assign(stays, kept_.end());
            kept_.erase(stays, kept_.end());
            for (const Kept& k : idle) {
                bytes_ -= k.mapped;
            }
            for (const Kept& k : kept_) {
                next = std::min(next, k.since + kLargeBlockKeep);
            }
            count_.store(kept_.size(), std::memory_order_relaxed);
        }
        for (const Kept& k : idle) {
            Unmap(k.base, k.mapped);
        }
        return next;
    }

    KeptBlocks Count() {
        std::lock_guard<std::mutex> lock(mutex_);
        return {kept_.size(), bytes_};
    }

private:
    struct Kept {
        unsigned char* base;
        std::size_t mapped;
        Clock::time_point since;
    };
    std::mutex mutex_;
    std::vector<Kept> kept_;
    std::size_t bytes_{0};
    std::atomic<std::size_t> count_{0};
};

// Never destroyed: messages may still be freed while the process exits.
LargeBlocks& Large() {
    static auto* blocks = new LargeBlocks;  // NOLINT(cppcoreguidelines-owning-memory)
    return *blocks;
}

unsigned char* MapLarge(std::size_t need) {
    // Room over the size asked, so that the next answer, a little larger, still fits.
    const std::size_t wanted = need + need / 8;
    const std::size_t mapped = (wanted + kMapGrain - 1) / kMapGrain * kMapGrain;
    void* base =
        ::mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (base == MAP_FAILED) {
        return nullptr;
    }
    auto* bytes = static_cast<unsigned char*>(base);
    SetMapped(bytes, mapped);
    return bytes;
}

}  // namespace

unsigned char* AllocateBlock(std::size_t size, bool zeroed) {
    if (size > SIZE_MAX - kPrefix - kMapGrain) {
        return nullptr;
    }
    if (size < kLargeBlockBytes) {
        void* base = zeroed ? std::calloc(1, kPrefix + size)  // NOLINT(cppcoreguidelines-no-malloc)
                            : std::malloc(kPrefix + size);    // NOLINT(cppcoreguidelines-no-malloc)
        if (base == nullptr) {
            return nullptr;
        }
        auto* bytes = static_cast<unsigned char*>(base);
        SetMapped(bytes, 0);
        return bytes + kPrefix;
    }
    unsigned char* base = Large().Take(kPrefix + size);
    if (base != nullptr) {
        if (zeroed) {
            std::memset(base + kPrefix, 0, size);
        }
    } else {
        base = MapLarge(kPrefix + size);  // zero as mapped
        if (base == nullptr) {
            return nullptr;
        }
    }
    WARDEND_BLOCK_POISON(base + kPrefix + size, MappedOf(base) - kPrefix - size);
    return base + kPrefix;
}

void FreeBlock(const unsigned char* block) noexcept {
    if (block == nullptr) {
        return;
    }
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the caller gives the block up
    unsigned char* base = const_cast<unsigned char*>(block) - kPrefix;
    const std::size_t mapped = MappedOf(base);
    if (mapped == 0) {
        std::free(base);  // NOLINT(cppcoreguidelines-no-malloc)
        return;
    }
    WARDEND_BLOCK_UNPOISON(base, mapped);
    Large().Keep(base, mapped);
}

Clock::time_point ReleaseIdleBlocks(Clock::time_point now) {
    return Large().Release(now);
}

KeptBlocks KeptLargeBlocks() {
    return Large().Count();
}

}  // namespace lumo::driver::someip
