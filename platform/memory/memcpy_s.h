#ifndef PLATFORM_MEMORY_MEMCPY_S_H
#define PLATFORM_MEMORY_MEMCPY_S_H

#include <cstddef>

// Bounded copy with the semantics of C11 Annex K: returns 0 after copying count bytes, and a
// non-zero errno value without copying anything when a pointer is null, count exceeds destSize,
// or either size exceeds RSIZE_MAX (half the address space).
int memcpy_s(void* dest, std::size_t destSize, const void* src, std::size_t count) noexcept;

#endif
