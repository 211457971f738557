#include "platform/memory/memcpy_s.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace {
constexpr std::size_t kRsizeMax = SIZE_MAX >> 1;
}

int memcpy_s(void* dest, std::size_t destSize, const void* src, std::size_t count) noexcept {
    if (dest == nullptr || src == nullptr) {
        return EINVAL;
    }
    if (destSize > kRsizeMax || count > kRsizeMax || count > destSize) {
        return ERANGE;
    }
    if (count != 0) {
        std::memmove(dest, src, count);
    }
    return 0;
}
