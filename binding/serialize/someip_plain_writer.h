#ifndef BINDING_SERIALIZE_SOMEIP_PLAIN_WRITER_H
#define BINDING_SERIALIZE_SOMEIP_PLAIN_WRITER_H

// The SOME/IP writer for values that no configuration node steers, under the usual widths:
// 4-byte length fields for strings, vectors and maps, none for structures. Without a node there
// are no tags and no padding, so a value's bytes follow from its type alone and the writer can
// walk it like the packed DDS format: one running pointer, no per-member settings. Its bytes
// are the same as the general writer's.

#include <cstdint>
#include <cstring>
#include <tuple>
#include <type_traits>
#include <utility>

#include "binding/serialize/bounded_copy.h"
#include "binding/serialize/field_runs.h"
#include "binding/serialize/serialize_traits.h"
#include "platform/compiler/force_inline.h"
#include "platform/core/string.h"
#include "platform/serialize/serialize_config.h"

namespace lumo::serialize::someip {

// Byte order as a template argument, so that a scalar costs a swap and a store. The write of a
// whole value is inlined into one function; the sizes of records, vectors and maps are
// functions of their own.
template <ByteOrder kOrder>
class PlainWriter {
public:
    static constexpr std::uint64_t kLengthWidth = 4;

    explicit PlainWriter(bool isStringRaw) : isStringRaw_(isStringRaw) {}

    // Bytes of a value; a value above kSizeMax - 1 is a failure (a content above its length
    // field's limit gives kSizeFailure, and sums only grow). Sums cannot wrap: every failing
    // term stands for more than 4 GiB of memory.
    template <typename T>
    std::uint64_t Size(const T& value) const {
        return SizeOf(value, isStringRaw_ ? 0 : 4);
    }

    // Writes a value that Size accepted at out, which has room for it; returns the end.
    template <typename T>
    unsigned char* Write(const T& value, unsigned char* out) const {
        return WriteOf(value, out, isStringRaw_);
    }

private:
    // stringExtra: the bytes of byte order mark and terminator a string adds, 0 or 4.
    template <typename T>
    WARDEND_FORCE_INLINE static std::uint64_t SizeOf(const T& value, std::uint64_t stringExtra) {
        if constexpr (serialize::detail::kIsScalar<T>) {
            (void)value;
            (void)stringExtra;
            return sizeof(T);
        } else if constexpr (std::is_same_v<T, ara::core::String>) {
            return Framed(value.size() + stringExtra);
        } else {
            return SizeOfComposite(value, stringExtra);
        }
    }

    template <typename T>
    static std::uint64_t SizeOfComposite(const T& value, std::uint64_t stringExtra) {
        if constexpr (serialize::detail::IsVector<T>::value) {
            using E = typename T::value_type;
            if constexpr (serialize::detail::kIsScalar<E>) {
                return Framed(static_cast<std::uint64_t>(value.size()) * sizeof(E));
            } else {
                std::uint64_t content = 0;
                for (const E& element : value) {
                    content += SizeOf(element, stringExtra);
                }
                return Framed(content);
            }
        } else if constexpr (serialize::detail::IsMap<T>::value) {
            std::uint64_t content = 0;
            for (const auto& [key, mapped] : value) {
                content += SizeOf(key, stringExtra) + SizeOf(mapped, stringExtra);
            }
            return Framed(content);
        } else {
            SizeVisitor visitor{stringExtra};
            value.enumerate(visitor);
            return visitor.total;
        }
    }

    template <typename T>
    WARDEND_FORCE_INLINE static unsigned char* WriteOf(const T& value, unsigned char* out,
                                                       bool raw) {
        if constexpr (serialize::detail::kIsScalar<T>) {
            (void)raw;
            const auto bytes = serialize::detail::EncodeScalar(value, kOrder);
            std::memcpy(out, bytes.data(), bytes.size());
            return out + sizeof(T);
        } else if constexpr (std::is_same_v<T, ara::core::String>) {
            return WriteString(value, out, raw);
        } else {
            return WriteComposite(value, out, raw);
        }
    }

    template <typename T>
    WARDEND_FORCE_INLINE static unsigned char* WriteComposite(const T& __restrict value,
                                                              unsigned char* __restrict out,
                                                              bool raw) {
        if constexpr (serialize::detail::IsVector<T>::value) {
            using E = typename T::value_type;
            if constexpr (serialize::detail::kIsScalar<E>) {
                (void)raw;
                return WriteScalars(value, out);
            } else {
                unsigned char* const content = out + kLengthWidth;
                unsigned char* end = content;
                for (const E& element : value) {
                    end = WriteOf(element, end, raw);
                }
                StoreLength(out, static_cast<std::uint64_t>(end - content));
                return end;
            }
        } else if constexpr (serialize::detail::IsMap<T>::value) {
            unsigned char* const content = out + kLengthWidth;
            unsigned char* end = content;
            for (const auto& [key, mapped] : value) {
                end = WriteOf(key, end, raw);
                end = WriteOf(mapped, end, raw);
            }
            StoreLength(out, static_cast<std::uint64_t>(end - content));
            return end;
        } else {
            return WriteFields(value, value.Tie(), out, raw,
                               std::make_index_sequence<serialize::detail::kFieldCount<T>>{});
        }
    }

    // Scalars that need no swap (single bytes, or all of them when the order is the host's) and
    // lie next to each other in the record are copied as one run.
    template <typename M>
    struct AsIs
        : std::bool_constant<serialize::detail::kIsScalar<M> &&
                             (sizeof(M) == 1 || (kOrder == ByteOrder::kLittleEndian &&
                                                 serialize::detail::HostIsLittleEndian()))> {};

    template <typename R, typename Fields, std::size_t... I>
    WARDEND_FORCE_INLINE static unsigned char* WriteFields(const R& record, const Fields& fields,
                                                           unsigned char* out, bool raw,
                                                           std::index_sequence<I...> /*unused*/) {
        ((out = WriteField<I>(record, fields, out, raw)), ...);
        return out;
    }

    template <std::size_t I, typename R, typename Fields>
    WARDEND_FORCE_INLINE static unsigned char* WriteField(const R& record, const Fields& fields,
                                                          unsigned char* out, bool raw) {
        using M = serialize::detail::FieldAt<R, I>;
        if constexpr (AsIs<M>::value) {
            return out +
                   serialize::detail::FieldRuns<R, AsIs>::template CopyRunEndingAt<I>(record, out);
        } else {
            return WriteOf(std::get<I>(fields), out, raw);
        }
    }

    // The visitor lives in registers: the walk of a record is inlined into its function.
    struct SizeVisitor {
        std::uint64_t stringExtra;
        std::uint64_t total{0};
        template <typename M>
        WARDEND_FORCE_INLINE void operator()(const M& member) {
            total += SizeOf(member, stringExtra);
        }
    };

    static std::uint64_t Framed(std::uint64_t content) {
        return content > LengthFieldLimit(kLengthWidth) ? kSizeFailure : kLengthWidth + content;
    }

    static void StoreLength(unsigned char* out, std::uint64_t content) {
        const auto bytes =
            serialize::detail::EncodeScalar(static_cast<std::uint32_t>(content), kOrder);
        std::memcpy(out, bytes.data(), bytes.size());
    }

    WARDEND_FORCE_INLINE static unsigned char* WriteString(const ara::core::String& value,
                                                           unsigned char* out, bool raw) {
        // Both read before the first store, which might alias them.
        const std::size_t size = value.size();
        const auto* text = reinterpret_cast<const unsigned char*>(value.data());
        if (raw) {
            StoreLength(out, size);
            serialize::detail::CopyBytes(out + kLengthWidth, text, size);
            return out + kLengthWidth + size;
        }
        // Byte order mark and a terminator in one store; the characters, if any, then take the
        // terminator's place and a terminator follows them.
        static constexpr unsigned char kMarkAndTerminator[4] = {0xEF, 0xBB, 0xBF, 0x00};
        StoreLength(out, size + 4);
        std::memcpy(out + kLengthWidth, kMarkAndTerminator, 4);
        serialize::detail::CopyBytes(out + kLengthWidth + 3, text, size);
        out[kLengthWidth + 3 + size] = 0;
        return out + kLengthWidth + 4 + size;
    }

    template <typename V>
    WARDEND_FORCE_INLINE static unsigned char* WriteScalars(const V& value, unsigned char* out) {
        using E = typename V::value_type;
        const std::uint64_t content = static_cast<std::uint64_t>(value.size()) * sizeof(E);
        StoreLength(out, content);
        out += kLengthWidth;
        if constexpr (!std::is_same_v<E, bool>) {
            if (sizeof(E) == 1 ||
                (kOrder == ByteOrder::kLittleEndian && serialize::detail::HostIsLittleEndian())) {
                serialize::detail::CopyBytes(
                    out, reinterpret_cast<const unsigned char*>(value.data()), content);
                return out + content;
            }
        }
        for (const E element : value) {
            const auto bytes = serialize::detail::EncodeScalar(element, kOrder);
            std::memcpy(out, bytes.data(), bytes.size());
            out += sizeof(E);
        }
        return out;
    }

    bool isStringRaw_;
};

}  // namespace lumo::serialize::someip

#endif
