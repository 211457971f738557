#ifndef BINDING_SERIALIZE_BOUNDED_COPY_H
#define BINDING_SERIALIZE_BOUNDED_COPY_H

// The serializers' bounded copy. It refuses exactly what memcpy_s refuses (null pointers, a
// count above the destination size, sizes above RSIZE_MAX) and leaves the refusal to memcpy_s,
// but a copy that passes is an inline memcpy: fixed-width fields then cost a store instead of
// two calls.

#include <cstdint>
#include <cstring>

#include "platform/memory/memcpy_s.h"

namespace lumo::serialize::detail {

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

}  // namespace lumo::serialize::detail

#endif
