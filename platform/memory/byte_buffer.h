#ifndef PLATFORM_MEMORY_BYTE_BUFFER_H
#define PLATFORM_MEMORY_BYTE_BUFFER_H

// A byte vector whose growth leaves the new bytes unwritten, for receive buffers: their pages
// become resident as data arrives, not when the buffer is made. A 64 KiB datagram buffer that
// zeroing would make resident at once mostly holds a few hundred bytes.

#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace lumo::memory {

template <typename T>
class DefaultInitAllocator : public std::allocator<T> {
public:
    template <typename U>
    struct rebind {
        using other = DefaultInitAllocator<U>;
    };

    DefaultInitAllocator() noexcept = default;
    template <typename U>
    explicit DefaultInitAllocator(const DefaultInitAllocator<U>& /*other*/) noexcept {}

    // Value-less construction default-initializes: a byte stays as it is.
    template <typename U>
    void construct(U* at) noexcept(std::is_nothrow_default_constructible_v<U>) {
        ::new (static_cast<void*>(at)) U;
    }
    template <typename U, typename... Args>
    void construct(U* at, Args&&... args) {
        ::new (static_cast<void*>(at)) U(std::forward<Args>(args)...);
    }
};

using ByteBuffer = std::vector<unsigned char, DefaultInitAllocator<unsigned char>>;

}  // namespace lumo::memory

#endif
