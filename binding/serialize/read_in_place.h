#ifndef BINDING_SERIALIZE_READ_IN_PLACE_H
#define BINDING_SERIALIZE_READ_IN_PLACE_H

// What the readers of both families share for reading over a value kept from an earlier message,
// and for taking runs of fixed-width members with one check.

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <tuple>
#include <type_traits>

#include "binding/serialize/bounded_copy.h"
#include "binding/serialize/serialize_traits.h"
#include "platform/compiler/force_inline.h"

namespace lumo::serialize::detail {

// Bytes a value takes on the wire at the least, where strings, vectors and maps start with a
// length field of W bytes. A reader that has checked for this many bytes once can take the
// fixed-width members it covers without a check each.
template <typename T, std::uint64_t W, typename = void>
struct MinWireBytes : std::integral_constant<std::uint64_t, W> {};  // strings, vectors, maps

template <std::uint64_t W, typename Members>
struct MinWireSum;
template <std::uint64_t W, typename... M>
struct MinWireSum<W, std::tuple<M...>>
    : std::integral_constant<std::uint64_t,
                             (std::uint64_t{0} + ... + MinWireBytes<std::decay_t<M>, W>::value)> {};

template <typename T, std::uint64_t W>
struct MinWireBytes<T, W, std::enable_if_t<kIsScalar<T>>>
    : std::integral_constant<std::uint64_t, sizeof(T)> {};
template <typename T, std::uint64_t W>
struct MinWireBytes<T, W, std::enable_if_t<IsRecord<T>::value>>
    : MinWireSum<W, decltype(std::declval<const T&>().Tie())> {};

// Characters over a string's own. Within its length no library call is made (a string of the
// same length, the most common case, only takes the copy), and the storage stays.
WARDEND_FORCE_INLINE inline void AssignText(std::string& out, const unsigned char* text,
                                            std::size_t count) {
    const std::size_t size = out.size();
    if (count == size) {
        if (count != 0) {
            CopyBytes(reinterpret_cast<unsigned char*>(out.data()), text, count);
        }
    } else if (count < size) {
        CopyBytes(reinterpret_cast<unsigned char*>(out.data()), text, count);
        out.erase(count);
    } else {
        out.assign(reinterpret_cast<const char*>(text), count);
    }
}

// Equal texts, compared in words: keys are short, and a library call would cost more than the
// comparison.
WARDEND_FORCE_INLINE inline bool SameText(const std::string& a, const std::string& b) {
    const std::size_t size = a.size();
    if (size != b.size()) {
        return false;
    }
    const char* left = a.data();
    const char* right = b.data();
    if (size < 8) {
        for (std::size_t i = 0; i < size; ++i) {
            if (left[i] != right[i]) {
                return false;
            }
        }
        return true;
    }
    std::uint64_t x = 0;
    std::uint64_t y = 0;
    for (std::size_t i = 0; i + 8 < size; i += 8) {
        std::memcpy(&x, left + i, 8);
        std::memcpy(&y, right + i, 8);
        if (x != y) {
            return false;
        }
    }
    std::memcpy(&x, left + size - 8, 8);  // the last word, overlapping the one before
    std::memcpy(&y, right + size - 8, 8);
    return x == y;
}

// Whether two keys of a map are equivalent; under std::less that is equality, one test.
template <typename K, typename C>
WARDEND_FORCE_INLINE inline bool SameKey(const C& compare, const K& a, const K& b) {
    if constexpr (std::is_same_v<C, std::less<K>> && std::is_same_v<K, std::string>) {
        return SameText(a, b);
    } else if constexpr (std::is_same_v<C, std::less<K>>) {
        return a == b;
    } else {
        return !compare(a, b) && !compare(b, a);
    }
}

}  // namespace lumo::serialize::detail

#endif
