#ifndef BINDING_SERIALIZE_SERIALIZE_TRAITS_H
#define BINDING_SERIALIZE_SERIALIZE_TRAITS_H

// Type classification and byte-order helpers shared by the serializer families.

#include <array>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/serialize/serialize_config.h"

namespace lumo::serialize::detail {

// Integers, enumerations and bool: written in their natural width.
template <typename T>
inline constexpr bool kIsScalar = std::is_integral_v<T> || std::is_enum_v<T>;

template <typename T>
struct IsVector : std::false_type {};
template <typename E, typename A>
struct IsVector<std::vector<E, A>> : std::true_type {};

template <typename T>
struct IsMap : std::false_type {};
template <typename K, typename V, typename C, typename A>
struct IsMap<std::map<K, V, C, A>> : std::true_type {};

struct ProbeVisitor {
    template <typename U>
    void operator()(const U& /*unused*/) {}
};

// A record takes part through its member template enumerate.
template <typename T, typename = void>
struct IsRecord : std::false_type {};
template <typename T>
struct IsRecord<
    T, std::void_t<decltype(std::declval<const T&>().enumerate(std::declval<ProbeVisitor&>()))>>
    : std::true_type {};

template <typename T, bool = std::is_enum_v<T>>
struct UnderlyingOf {
    using type = std::conditional_t<std::is_same_v<T, bool>, std::uint8_t, T>;
};
template <typename T>
struct UnderlyingOf<T, true> {
    using type = std::underlying_type_t<T>;
};

// The unsigned integer of a scalar's width.
template <typename T>
using Unsigned = std::make_unsigned_t<typename UnderlyingOf<T>::type>;

// Writes the low `width` bytes of value into out, most significant first unless little-endian.
inline void StoreUint(unsigned char* out, std::uint64_t value, std::size_t width, ByteOrder order) {
    if (order == ByteOrder::kLittleEndian) {
        for (std::size_t i = 0; i < width; ++i) {
            out[i] = static_cast<unsigned char>(value >> (8U * i));
        }
    } else {
        for (std::size_t i = 0; i < width; ++i) {
            out[width - 1 - i] = static_cast<unsigned char>(value >> (8U * i));
        }
    }
}

inline std::uint64_t LoadUint(const unsigned char* in, std::size_t width, ByteOrder order) {
    std::uint64_t value = 0;
    if (order == ByteOrder::kLittleEndian) {
        for (std::size_t i = width; i > 0; --i) {
            value = (value << 8U) | in[i - 1];
        }
    } else {
        for (std::size_t i = 0; i < width; ++i) {
            value = (value << 8U) | in[i];
        }
    }
    return value;
}

constexpr bool HostIsLittleEndian() {
    return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
}

template <typename U>
U ByteSwap(U value) {
    if constexpr (sizeof(U) == 1) {
        return value;
    } else if constexpr (sizeof(U) == 2) {
        return __builtin_bswap16(value);
    } else if constexpr (sizeof(U) == 4) {
        return __builtin_bswap32(value);
    } else {
        return __builtin_bswap64(value);
    }
}

template <typename T>
std::uint64_t ScalarBits(const T& value);

// The bytes of a scalar in the given order; same result as StoreUint, with one swap.
template <typename T>
std::array<unsigned char, sizeof(T)> EncodeScalar(const T& value, ByteOrder order) {
    using U = std::conditional_t<
        sizeof(T) == 1, std::uint8_t,
        std::conditional_t<sizeof(T) == 2, std::uint16_t,
                           std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>>>;
    auto bits = static_cast<U>(ScalarBits(value));
    if ((order == ByteOrder::kLittleEndian) != HostIsLittleEndian()) {
        bits = ByteSwap(bits);
    }
    std::array<unsigned char, sizeof(T)> bytes{};
    std::memcpy(bytes.data(), &bits, sizeof(T));
    return bytes;
}

template <typename T>
T ScalarFromBits(std::uint64_t bits);

// A scalar from its bytes in the given order; same result as LoadUint, with one swap.
template <typename T>
T DecodeScalar(const unsigned char* in, ByteOrder order) {
    using U = std::conditional_t<
        sizeof(T) == 1, std::uint8_t,
        std::conditional_t<sizeof(T) == 2, std::uint16_t,
                           std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>>>;
    U bits{};
    std::memcpy(&bits, in, sizeof(T));
    if ((order == ByteOrder::kLittleEndian) != HostIsLittleEndian()) {
        bits = ByteSwap(bits);
    }
    return ScalarFromBits<T>(bits);
}

template <typename T>
std::uint64_t ScalarBits(const T& value) {
    if constexpr (std::is_same_v<T, bool>) {
        return value ? 1U : 0U;
    } else {
        return static_cast<std::uint64_t>(static_cast<Unsigned<T>>(value));
    }
}

template <typename T>
T ScalarFromBits(std::uint64_t bits) {
    if constexpr (std::is_same_v<T, bool>) {
        return (bits & 0xFFU) != 0;
    } else {
        return static_cast<T>(static_cast<Unsigned<T>>(bits));
    }
}

}  // namespace lumo::serialize::detail

#endif
