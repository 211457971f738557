#ifndef PLATFORM_DRIVER_SOMEIP_MESSAGE_BLOCK_H
#define PLATFORM_DRIVER_SOMEIP_MESSAGE_BLOCK_H

// The storage of outgoing SOME/IP messages. Small blocks come from the heap. A block of
// kLargeBlockBytes or more is mapped on its own and, once its message has gone out, kept for
// the next large message for kLargeBlockKeep: an answer of megabytes written on any of a
// service's method threads then reuses the same pages, where a heap block would stay behind
// in the malloc arena of each thread that ever wrote one, and the pages go back to the system
// once no large message has wanted them for that long.

#include <chrono>
#include <cstddef>
#include <memory>

namespace lumo::driver::someip {

inline constexpr std::size_t kLargeBlockBytes = std::size_t{256} * 1024;
inline constexpr std::chrono::seconds kLargeBlockKeep{2};
// Enough for the method threads of both services to each have an answer in flight.
inline constexpr std::size_t kMaxKeptLargeBlocks = 4;

// A block of at least `size` bytes, zeroed when asked; nullptr when there is no memory.
unsigned char* AllocateBlock(std::size_t size, bool zeroed);
// Gives back a block of AllocateBlock (as delete[] takes a const pointer); nullptr does
// nothing. Any thread.
void FreeBlock(const unsigned char* block) noexcept;

struct BlockDeleter {
    void operator()(unsigned char* block) const noexcept { FreeBlock(block); }
};
using Block = std::unique_ptr<unsigned char[], BlockDeleter>;

// Unmaps the kept large blocks that no message has used since kLargeBlockKeep before `now`.
// Returns when the next of those still kept falls due (the greatest time point when none is).
std::chrono::steady_clock::time_point ReleaseIdleBlocks(std::chrono::steady_clock::time_point now);

struct KeptBlocks {
    std::size_t count{0};
    std::size_t bytes{0};  // mapped
};
KeptBlocks KeptLargeBlocks();

}  // namespace lumo::driver::someip

#endif
