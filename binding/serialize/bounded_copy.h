#ifndef BINDING_SERIALIZE_BOUNDED_COPY_H
#define BINDING_SERIALIZE_BOUNDED_COPY_H

// The serializers' bounded copy. It refuses exactly what memcpy_s refuses (null pointers, a
// count above the destination size, sizes above RSIZE_MAX) and leaves the refusal to memcpy_s,
// but a copy that passes is an inline memcpy: fixed-width fields then cost a store instead of
// two calls.

#include <array>
#include <cstdint>
#include <cstring>

#include "platform/compiler/force_inline.h"
#include "platform/memory/memcpy_s.h"

namespace lumo::serialize::detail {

// GCC propagates a caller's short buffer into a copy branch that the length checks rule out,
// and warns about the branch.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Warray-bounds"
#pragma GCC diagnostic ignored "-Wstringop-overread"
#pragma GCC diagnostic ignored "-Wstringop-overflow"
#endif
// Copies count bytes, between Width and twice Width, as two overlapping moves: all loads
// first, then the stores.
template <std::size_t Width>
WARDEND_FORCE_INLINE inline void CopyHeadAndTail(unsigned char* dest, const unsigned char* src,
                                                 std::size_t count) noexcept {
    std::array<unsigned char, Width> head;
    std::array<unsigned char, Width> tail;
    std::memcpy(head.data(), src, Width);
    std::memcpy(tail.data(), src + count - Width, Width);
    std::memcpy(dest, head.data(), Width);
    std::memcpy(dest + count - Width, tail.data(), Width);
}

// Copies count bytes between ranges that do not overlap; short runs (most strings) as two
// overlapping moves instead of a library call, tested shortest first.
WARDEND_FORCE_INLINE inline void CopyBytes(unsigned char* dest, const unsigned char* src,
                                           std::size_t count) noexcept {
    if (count <= 16) {
        if (count >= 8) {
            CopyHeadAndTail<8>(dest, src, count);
        } else if (count >= 4) {
            CopyHeadAndTail<4>(dest, src, count);
        } else if (count != 0) {  // first, middle and last byte cover 1 to 3
            dest[0] = src[0];
            dest[count / 2] = src[count / 2];
            dest[count - 1] = src[count - 1];
        }
    } else if (count <= 32) {
        CopyHeadAndTail<16>(dest, src, count);
    } else {
        std::memcpy(dest, src, count);
    }
}

inline int BoundedCopy(void* dest, std::size_t destSize, const void* src,
                       std::size_t count) noexcept {
    constexpr std::size_t kRsizeMax = SIZE_MAX >> 1U;
    if (dest != nullptr && src != nullptr && count <= destSize && destSize <= kRsizeMax) {
        if (count != 0) {
            std::memmove(dest, src, count);
        }
        return 0;
    }
    return memcpy_s(dest, destSize, src, count);
}
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

}  // namespace lumo::serialize::detail

#endif
