#ifndef BINDING_SERIALIZE_DDS_SERIALIZER_H
#define BINDING_SERIALIZE_DDS_SERIALIZER_H

// The packed DDS payload: values one after another in the host's byte order, with no alignment,
// padding, byte order mark or configuration tree. Strings, vectors and maps start with an
// unsigned 32-bit count (bytes, elements, pairs). Both ends are on one host.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "binding/serialize/bounded_copy.h"
#include "binding/serialize/field_runs.h"
#include "binding/serialize/read_in_place.h"
#include "binding/serialize/serialize_log.h"
#include "binding/serialize/serialize_traits.h"
#include "platform/compiler/branch_hint.h"
#include "platform/compiler/force_inline.h"
#include "platform/core/string.h"
#include "platform/memory/memcpy_s.h"
#include "platform/serialize/serialize_config.h"

namespace lumo::serialize::dds {

inline constexpr std::uint64_t kCountWidth = 4;
inline constexpr std::uint64_t kMaxCount = std::numeric_limits<std::uint32_t>::max();

namespace detail {

// Texts of a refused copy: the buffer is checked once, before the first copy, since every
// later destination lies inside the GetSize() bytes behind it.
inline constexpr const char* kCopyError =
    "[DDS Serializer] Memory copy return error, invalid data.";
inline constexpr const char* kStringCopyError =
    "[DDS Serializer String] Memory copy return error, Invalid serialization.";
inline constexpr const char* kVectorCopyError =
    "[DDS Serializer Vector] Memory copy return error, Invalid serialization.";

[[gnu::cold, gnu::noinline]] inline void RefuseCopy(unsigned char* dest, std::size_t count,
                                                    const char* text) {
    const unsigned char probe = 0;
    if (memcpy_s(dest, count, &probe, count) != 0) {
        DdsLog().LogError() << text;
    }
}

inline void LogRead(const char* text) {
    DdsLog().LogError(text, kPeerLimit) << text;
}

inline std::uint32_t LoadCount(const unsigned char* data) {
    std::uint32_t count = 0;
    std::memcpy(&count, data, sizeof(count));
    return count;
}

template <typename T>
WARDEND_FORCE_INLINE inline void StoreScalar(unsigned char* out, const T& value) {
    if constexpr (std::is_same_v<T, bool>) {
        *out = value ? 1 : 0;
    } else {
        std::memcpy(out, &value, sizeof(T));
    }
}

template <typename T>
T LoadScalar(const unsigned char* in) {
    if constexpr (std::is_same_v<T, bool>) {
        return in[0] != 0;
    } else {
        T value{};
        std::memcpy(&value, in, sizeof(T));
        return value;
    }
}

}  // namespace detail

// Codec<T>: Size (bytes of a value; anything above kSizeMax is a failure), Write (at an offset
// of a buffer that holds them), ReadSize and Read (bytes taken from a stream, or kSizeFailure).
// Writes are inlined into the serializer: a call would cost more than most members do.
template <typename T, typename Enable = void>
struct Codec;

// Adds up the sizes of a record's members.
class SizeEnumerator {
public:
    template <typename M>
    void operator()(const M& member);
    std::uint64_t Total() const { return total_ > kSizeMax ? kSizeFailure : total_; }

private:
    std::uint64_t total_{0};
};

// Writes a record's members at the running offset. Scalars that lie next to each other in the
// object are one run of host bytes, as the format wants them, and are copied at once.
class SerializingEnumerator {
public:
    SerializingEnumerator(unsigned char* buffer, std::uint64_t offset)
        : buffer_(buffer), offset_(offset) {}
    template <typename R>
    WARDEND_FORCE_INLINE void WriteRecord(const R& record) {
        WriteFields(record, record.Tie(),
                    std::make_index_sequence<serialize::detail::kFieldCount<R>>{});
    }
    std::uint64_t Offset() const { return offset_; }

private:
    template <typename M>
    struct AsIs : std::bool_constant<serialize::detail::kIsScalar<M>> {};

    template <typename R, typename Fields, std::size_t... I>
    WARDEND_FORCE_INLINE void WriteFields(const R& record, const Fields& fields,
                                          std::index_sequence<I...> /*unused*/) {
        (WriteField<I>(record, fields), ...);
    }

    template <std::size_t I, typename R, typename Fields>
    WARDEND_FORCE_INLINE void WriteField(const R& record, const Fields& fields);

    unsigned char* buffer_;
    std::uint64_t offset_;
};

// Size pass over a stream: offset kSizeFailure marks a failure, after which every further
// member fails and logs again.
class DeserializeSizeCounter {
public:
    DeserializeSizeCounter(const unsigned char* data, std::uint64_t length)
        : data_(data), remaining_(length) {}
    template <typename M>
    void operator()(const M& member);
    std::uint64_t Consumed() const { return offset_ == kSizeFailure ? kSizeFailure : consumed_; }

private:
    void Take(std::uint64_t width);
    [[gnu::cold, gnu::noinline]] void Fail() {
        detail::LogRead("Deserialization[DDS] size counter failed, insufficient data.");
        offset_ = kSizeFailure;
    }

    const unsigned char* data_;
    std::uint64_t offset_{0};
    std::uint64_t remaining_;
    std::uint64_t consumed_{0};
};

// Value pass: members whose bytes are missing keep their defaults.
class DeserializingEnumerator {
public:
    DeserializingEnumerator(const unsigned char* data, std::uint64_t size, std::uint64_t offset)
        : data_(data), size_(size), offset_(offset) {}
    template <typename M>
    void operator()(M& member);
    std::uint64_t Offset() const { return offset_; }

private:
    [[gnu::cold, gnu::noinline]] void ShortScalar(std::uint64_t start) const {
        if (start > size_) {
            detail::LogRead("Insufficient arguments from remote end");
        } else {
            detail::LogRead(
                "Deserialization of trivially copyable type failed, insufficient data!");
        }
    }

    const unsigned char* data_;
    std::uint64_t size_;
    std::uint64_t offset_;
};

template <typename T>
struct Codec<T, std::enable_if_t<serialize::detail::kIsScalar<T>>> {
    static std::uint64_t Size(const T& /*value*/) { return sizeof(T); }
    static std::uint64_t Write(const T& value, unsigned char* buffer, std::uint64_t offset) {
        detail::StoreScalar(buffer + offset, value);
        return offset + sizeof(T);
    }
    static std::uint64_t ReadSize(const unsigned char* /*data*/, std::uint64_t length) {
        return length >= sizeof(T) ? sizeof(T) : kSizeFailure;
    }
    // Read functions check their own bounds and return the bytes taken, or kSizeFailure.
    static std::uint64_t Read(const unsigned char* data, std::uint64_t length, T& out) {
        if (length < sizeof(T)) {
            return kSizeFailure;
        }
        out = detail::LoadScalar<T>(data);
        return sizeof(T);
    }
};

template <>
struct Codec<ara::core::String> {
    // Sizes above kSizeMax are failures; a string too long for its count lands there too.
    static std::uint64_t Size(const ara::core::String& value) { return kCountWidth + value.size(); }
    WARDEND_FORCE_INLINE static std::uint64_t Write(const ara::core::String& value,
                                                    unsigned char* buffer, std::uint64_t offset) {
        // Both read before the first store, which might alias them.
        const std::size_t size = value.size();
        const auto* text = reinterpret_cast<const unsigned char*>(value.data());
        const auto count = static_cast<std::uint32_t>(size);
        std::memcpy(buffer + offset, &count, sizeof(count));
        serialize::detail::CopyBytes(buffer + offset + kCountWidth, text, size);
        return offset + kCountWidth + size;
    }
    static std::uint64_t ReadSize(const unsigned char* data, std::uint64_t length) {
        const std::uint64_t count = length >= kCountWidth ? detail::LoadCount(data) : kSizeFailure;
        if (count == kSizeFailure || count > length - kCountWidth) {
            detail::LogRead("Deserialization of String failed, insufficient data.");
            return kSizeFailure;
        }
        return count + kCountWidth;
    }
    static std::uint64_t Read(const unsigned char* data, std::uint64_t length,
                              ara::core::String& out) {
        const std::uint64_t size = ReadSize(data, length);
        if (size <= kSizeMax) {
            out.assign(reinterpret_cast<const char*>(data + kCountWidth), size - kCountWidth);
        }
        return size;
    }
};

template <typename E, typename A>
struct Codec<std::vector<E, A>> {
    static constexpr bool kBlock = serialize::detail::kIsScalar<E> && !std::is_same_v<E, bool>;

    static std::uint64_t Size(const std::vector<E, A>& value) {
        if constexpr (serialize::detail::kIsScalar<E>) {
            return kCountWidth + value.size() * sizeof(E);  // a count too large ends above kSizeMax
        } else {
            if (value.size() > kMaxCount) {
                return kSizeFailure;
            }
            std::uint64_t total = kCountWidth;
            for (const E& element : value) {
                total += Codec<E>::Size(element);  // a failing element leaves it above kSizeMax
            }
            return total;
        }
    }

    WARDEND_FORCE_INLINE static std::uint64_t Write(const std::vector<E, A>& value,
                                                    unsigned char* buffer, std::uint64_t offset) {
        const auto count = static_cast<std::uint32_t>(value.size());
        std::memcpy(buffer + offset, &count, sizeof(count));
        offset += kCountWidth;
        if constexpr (kBlock) {
            serialize::detail::CopyBytes(buffer + offset,
                                         reinterpret_cast<const unsigned char*>(value.data()),
                                         value.size() * sizeof(E));
            return offset + value.size() * sizeof(E);
        } else if constexpr (serialize::detail::kIsScalar<E>) {
            for (const E element : value) {
                detail::StoreScalar(buffer + offset, element);
                offset += sizeof(E);
            }
            return offset;
        } else {
            for (const E& element : value) {
                offset = Codec<E>::Write(element, buffer, offset);
            }
            return offset;
        }
    }

    static std::uint64_t ReadSize(const unsigned char* data, std::uint64_t length) {
        if constexpr (serialize::detail::kIsScalar<E>) {
            const std::uint64_t count = length > 3 ? detail::LoadCount(data) : kSizeFailure;
            const std::uint64_t total = count * sizeof(E) + kCountWidth;
            if (count == kSizeFailure || total > length) {
                DdsLog().LogVerbose() << "Deserialization of Vector failed, insufficient data.";
                detail::LogRead("Deserialization[DDS] size counter failed, insufficient data.");
                return kSizeFailure;
            }
            return total;
        } else {
            if (length < kCountWidth) {
                detail::LogRead(
                    "GetSize():Deserialization of sequence container failed, insufficient data.");
                return kSizeFailure;
            }
            const std::uint64_t count = detail::LoadCount(data);
            std::uint64_t offset = kCountWidth;
            for (std::uint64_t i = 0; i < count; ++i) {
                const std::uint64_t size = Codec<E>::ReadSize(data + offset, length - offset);
                if (size > length - offset || size == 0) {
                    detail::LogRead(
                        "GetSize():Deserialization of sequence container failed, insufficient "
                        "data.");
                    return kSizeFailure;
                }
                offset += size;
            }
            return offset;
        }
    }

    static std::uint64_t Read(const unsigned char* data, std::uint64_t length,
                              std::vector<E, A>& out) {
        out.clear();
        if constexpr (serialize::detail::kIsScalar<E>) {
            const std::uint64_t total = ReadSize(data, length);
            if (total > kSizeMax) {
                return kSizeFailure;
            }
            const std::uint64_t count = (total - kCountWidth) / sizeof(E);
            if constexpr (kBlock) {
                out.resize(count);
                if (count != 0 &&
                    serialize::detail::BoundedCopy(out.data(), count * sizeof(E),
                                                   data + kCountWidth, count * sizeof(E)) != 0) {
                    detail::LogRead(
                        "GetValue(): Deserialization of sequence container failed, insufficient "
                        "data.");
                    return kSizeFailure;
                }
            } else {
                out.reserve(count);
                for (std::uint64_t i = 0; i < count; ++i) {
                    out.push_back(detail::LoadScalar<E>(data + kCountWidth + i * sizeof(E)));
                }
            }
            return total;
        } else {
            if (length < kCountWidth) {
                detail::LogRead(
                    "GetValue(): Deserialization of sequence container failed, insufficient data.");
                return kSizeFailure;
            }
            const std::uint32_t count = detail::LoadCount(data);
            std::uint64_t offset = kCountWidth;
            out.reserve(std::min<std::uint64_t>(count, length));  // each element takes a byte
            for (std::uint32_t i = 0; i < count; ++i) {
                // Read in place: on a failure the caller drops the whole vector.
                E& element = out.emplace_back();
                const std::uint64_t size = Codec<E>::Read(data + offset, length - offset, element);
                if (size > length - offset || size == 0) {
                    detail::LogRead(
                        "GetValue(): Deserialization of sequence container failed, insufficient "
                        "data.");
                    return kSizeFailure;
                }
                offset += size;
            }
            return offset;
        }
    }
};

template <typename K, typename V, typename C, typename A>
struct Codec<std::map<K, V, C, A>> {
    using Map = std::map<K, V, C, A>;

    static std::uint64_t Size(const Map& value) {
        if (value.size() > kMaxCount) {
            return kSizeFailure;
        }
        std::uint64_t total = kCountWidth;
        for (const auto& [key, mapped] : value) {
            total += Codec<K>::Size(key) + Codec<V>::Size(mapped);  // failures end above kSizeMax
        }
        return total;
    }

    WARDEND_FORCE_INLINE static std::uint64_t Write(const Map& value, unsigned char* buffer,
                                                    std::uint64_t offset) {
        const auto count = static_cast<std::uint32_t>(value.size());
        std::memcpy(buffer + offset, &count, sizeof(count));
        offset += kCountWidth;
        for (const auto& [key, mapped] : value) {
            offset = Codec<K>::Write(key, buffer, offset);
            offset = Codec<V>::Write(mapped, buffer, offset);
        }
        return offset;
    }

    static std::uint64_t PairSize(const unsigned char* data, std::uint64_t length) {
        const std::uint64_t keySize = Codec<K>::ReadSize(data, length);
        if (keySize > length) {
            return kSizeFailure;
        }
        const std::uint64_t valueSize = Codec<V>::ReadSize(data + keySize, length - keySize);
        if (valueSize > length - keySize || keySize + valueSize == 0) {
            return kSizeFailure;
        }
        return keySize + valueSize;
    }

    static std::uint64_t ReadSize(const unsigned char* data, std::uint64_t length) {
        if (length < kCountWidth) {
            detail::LogRead("Deserialization of associative container failed, insufficient data.");
            return kSizeFailure;
        }
        const std::uint64_t count = detail::LoadCount(data);
        std::uint64_t offset = kCountWidth;
        for (std::uint64_t i = 0; i < count; ++i) {
            const std::uint64_t size = PairSize(data + offset, length - offset);
            if (size > length - offset) {
                detail::LogRead("Deserialization of pair failed, insufficient data.");
                return kSizeFailure;
            }
            offset += size;
        }
        return offset;
    }

    static std::uint64_t Read(const unsigned char* data, std::uint64_t length, Map& out) {
        out.clear();
        if (length < kCountWidth) {
            detail::LogRead("Deserialization of associative container failed, insufficient data.");
            return kSizeFailure;
        }
        const std::uint32_t count = detail::LoadCount(data);
        std::uint64_t offset = kCountWidth;
        for (std::uint32_t i = 0; i < count; ++i) {
            K key{};
            const std::uint64_t keySize = Codec<K>::Read(data + offset, length - offset, key);
            if (keySize > length - offset) {
                detail::LogRead("Deserialization of pair failed, insufficient data.");
                return kSizeFailure;
            }
            // The value is read into its node; a repeated key keeps the first value, so the
            // repeat is read into a scratch value. Keys written from a map come in order, so the
            // hint makes each insertion constant time. On a failure the caller drops the map.
            const std::size_t before = out.size();
            auto node = out.emplace_hint(out.end(), std::piecewise_construct,
                                         std::forward_as_tuple(std::move(key)), std::tuple<>());
            const unsigned char* at = data + offset + keySize;
            const std::uint64_t left = length - offset - keySize;
            std::uint64_t valueSize = 0;
            if (out.size() != before) {
                valueSize = Codec<V>::Read(at, left, node->second);
            } else {
                V repeated{};
                valueSize = Codec<V>::Read(at, left, repeated);
            }
            if (valueSize > length - offset - keySize || keySize + valueSize == 0) {
                detail::LogRead("Deserialization of pair failed, insufficient data.");
                return kSizeFailure;
            }
            offset += keySize + valueSize;
        }
        return offset;
    }
};

template <typename T>
struct Codec<T, std::enable_if_t<serialize::detail::IsRecord<T>::value>> {
    static std::uint64_t Size(const T& value) {
        SizeEnumerator sizes;
        value.enumerate(sizes);
        return sizes.Total();
    }
    WARDEND_FORCE_INLINE static std::uint64_t Write(const T& __restrict value,
                                                    unsigned char* __restrict buffer,
                                                    std::uint64_t offset) {
        SerializingEnumerator writer(buffer, offset);
        writer.WriteRecord(value);
        return writer.Offset();
    }
    static std::uint64_t ReadSize(const unsigned char* data, std::uint64_t length) {
        static const T probe{};  // only its member types matter; built once, never changed
        DeserializeSizeCounter counter(data, length);
        probe.enumerate(counter);
        return counter.Consumed();
    }
    static std::uint64_t Read(const unsigned char* data, std::uint64_t length, T& out) {
        DeserializingEnumerator reader(data, length, 0);
        out.enumerate(reader);
        return reader.Offset() <= length ? reader.Offset() : kSizeFailure;
    }
};

// A fixed-width member adds a constant. A member that fails has a size above kSizeMax, and so
// has the total then: one check at the end sees it. The sum cannot wrap, since every failing
// term stands for more than 4 GiB of memory.
template <typename M>
WARDEND_FORCE_INLINE inline void SizeEnumerator::operator()(const M& member) {
    if constexpr (serialize::detail::kIsScalar<M>) {
        (void)member;
        total_ += sizeof(M);
    } else {
        total_ += Codec<M>::Size(member);
    }
}

template <std::size_t I, typename R, typename Fields>
WARDEND_FORCE_INLINE inline void SerializingEnumerator::WriteField(const R& record,
                                                                   const Fields& fields) {
    using M = serialize::detail::FieldAt<R, I>;
    if constexpr (AsIs<M>::value) {
        offset_ += serialize::detail::FieldRuns<R, AsIs>::template CopyRunEndingAt<I>(
            record, buffer_ + offset_);
    } else {
        offset_ = Codec<M>::Write(std::get<I>(fields), buffer_, offset_);
    }
}

WARDEND_FORCE_INLINE inline void DeserializeSizeCounter::Take(std::uint64_t width) {
    if (offset_ != kSizeFailure && remaining_ >= width) {
        consumed_ += width;
        offset_ += width;
        remaining_ -= width;
        return;
    }
    Fail();
}

template <typename M>
WARDEND_FORCE_INLINE inline void DeserializeSizeCounter::operator()(const M& member) {
    if constexpr (serialize::detail::kIsScalar<M>) {
        (void)member;
        Take(sizeof(M));
    } else if constexpr (serialize::detail::IsRecord<M>::value) {
        member.enumerate(*this);
    } else {
        (void)member;
        const std::uint64_t size = offset_ == kSizeFailure
                                       ? kSizeFailure
                                       : Codec<M>::ReadSize(data_ + offset_, remaining_);
        Take(size);
    }
}

template <typename M>
WARDEND_FORCE_INLINE inline void DeserializingEnumerator::operator()(M& member) {
    if constexpr (serialize::detail::kIsScalar<M>) {
        const std::uint64_t start = offset_;
        offset_ = start + sizeof(M);
        if (start <= size_ && size_ - start >= sizeof(M)) {
            member = detail::LoadScalar<M>(data_ + start);
        } else {
            ShortScalar(start);
        }
    } else if constexpr (serialize::detail::IsRecord<M>::value) {
        member.enumerate(*this);
    } else {
        // Strings, vectors and maps: a member that cannot be read whole keeps its default.
        const std::uint64_t size = offset_ > size_
                                       ? kSizeFailure
                                       : Codec<M>::Read(data_ + offset_, size_ - offset_, member);
        if (size > size_ - std::min(offset_, size_)) {
            detail::LogRead("Insufficient arguments from remote end");
            member = M{};
            offset_ = size_ + 1;  // later members fail too
            return;
        }
        offset_ += size;
    }
}

namespace detail {

template <typename T>
const T& Probe() {
    static const T probe{};  // only its member types matter; built once, never changed
    return probe;
}

template <typename T>
inline constexpr std::uint64_t kMinBytes = serialize::detail::MinWireBytes<T, kCountWidth>::value;

// The walk that checks once. The fixed-width rest of the current value and of every value
// around it is known to be there, and `room` bytes behind it: a fixed-width member is taken
// without a check, and a length is checked against `room`, which the content then takes from. A
// check that fails clears `ok` and moves nothing more, so the walk goes on over bytes that are
// there; the caller then reads again member by member, which logs what is wrong. kStore: values are
// read into the walked object; otherwise a probe is walked and only counted.
template <bool kStore>
struct FastWalk {
    const unsigned char* at;
    std::uint64_t room;
    bool ok{true};

    WARDEND_FORCE_INLINE std::uint32_t TakeCount() {
        const std::uint32_t count = LoadCount(at);
        at += kCountWidth;
        return count;
    }

    // Content of `bytes` behind a count: false (and the walk failed) when it is not there.
    WARDEND_FORCE_INLINE bool Reserve(std::uint64_t bytes) {
        if (WARDEND_UNLIKELY(bytes > room)) {
            ok = false;
            return false;
        }
        room -= bytes;
        return true;
    }

    template <typename M>
    WARDEND_FORCE_INLINE void operator()(M& member);

    template <typename E, typename A>
    WARDEND_FORCE_INLINE void Vector(std::vector<E, A>& out);
    template <typename E, typename A>
    WARDEND_FORCE_INLINE void Vector(const std::vector<E, A>& probe);
    template <typename K, typename V, typename C, typename A>
    WARDEND_FORCE_INLINE void Map(std::map<K, V, C, A>& out);
    template <typename K, typename V, typename C, typename A>
    WARDEND_FORCE_INLINE void Map(const std::map<K, V, C, A>& probe);
};

template <bool kStore>
template <typename M>
WARDEND_FORCE_INLINE inline void FastWalk<kStore>::operator()(M& member) {
    using V = std::remove_const_t<M>;
    if constexpr (serialize::detail::kIsScalar<V>) {
        if constexpr (kStore) {
            member = LoadScalar<V>(at);
        }
        at += sizeof(V);
    } else if constexpr (serialize::detail::IsRecord<V>::value) {
        member.enumerate(*this);
    } else if constexpr (std::is_same_v<V, ara::core::String>) {
        const std::uint32_t count = TakeCount();
        if (!Reserve(count)) {
            return;
        }
        if constexpr (kStore) {
            serialize::detail::AssignText(member, at, count);
        }
        at += count;
    } else if constexpr (serialize::detail::IsVector<V>::value) {
        Vector(member);
    } else {
        Map(member);
    }
}

template <bool kStore>
template <typename E, typename A>
WARDEND_FORCE_INLINE inline void FastWalk<kStore>::Vector(std::vector<E, A>& out) {
    const std::uint64_t count = TakeCount();
    if constexpr (serialize::detail::kIsScalar<E>) {
        const std::uint64_t bytes = count * sizeof(E);
        if (!Reserve(bytes)) {
            return;
        }
        if (out.size() != count) {
            out.resize(count);
        }
        if constexpr (std::is_same_v<E, bool>) {
            for (std::uint64_t i = 0; i < count; ++i) {
                out[i] = at[i] != 0;
            }
        } else {
            serialize::detail::CopyBytes(reinterpret_cast<unsigned char*>(out.data()), at, bytes);
        }
        at += bytes;
    } else {
        constexpr std::uint64_t kElement = kMinBytes<E>;
        static_assert(kElement != 0, "every element takes a byte, so the count bounds the walk");
        if (count * kElement > room) {
            ok = false;
            return;
        }
        // Elements are read over the ones already there, so their strings keep their storage.
        if (out.size() > count) {
            out.erase(out.begin() + static_cast<std::ptrdiff_t>(count), out.end());
        }
        if (out.capacity() < count) {
            out.reserve(count);
        }
        for (std::uint64_t i = 0; i < count && ok; ++i) {
            if (!Reserve(kElement)) {
                return;
            }
            (*this)(i < out.size() ? out[i] : out.emplace_back());
        }
    }
}

template <bool kStore>
template <typename E, typename A>
WARDEND_FORCE_INLINE inline void FastWalk<kStore>::Vector(const std::vector<E, A>& /*probe*/) {
    const std::uint64_t count = TakeCount();
    if constexpr (serialize::detail::kIsScalar<E>) {
        if (Reserve(count * sizeof(E))) {
            at += count * sizeof(E);
        }
    } else {
        constexpr std::uint64_t kElement = kMinBytes<E>;
        static_assert(kElement != 0, "every element takes a byte, so the count bounds the walk");
        if (count * kElement > room) {
            ok = false;
            return;
        }
        for (std::uint64_t i = 0; i < count && ok; ++i) {
            if (!Reserve(kElement)) {
                return;
            }
            (*this)(Probe<E>());
        }
    }
}

template <bool kStore>
template <typename K, typename V, typename C, typename A>
WARDEND_FORCE_INLINE inline void FastWalk<kStore>::Map(std::map<K, V, C, A>& out) {
    constexpr std::uint64_t kPair = kMinBytes<K> + kMinBytes<V>;
    const std::uint64_t count = TakeCount();
    if (count * kPair > room) {
        ok = false;
        return;
    }
    // While the keys come in the order of the nodes there, values are read into those nodes;
    // from the first key that differs the rest is built anew, a repeated key keeping its first
    // value as in the member-by-member read.
    auto node = out.begin();
    bool inPlace = true;
    K key{};
    for (std::uint64_t i = 0; i < count && ok; ++i) {
        if (!Reserve(kPair)) {
            return;
        }
        (*this)(key);
        if (inPlace && node != out.end() &&
            serialize::detail::SameKey(out.key_comp(), key, node->first)) {
            (*this)(node->second);
            ++node;
            continue;
        }
        if (inPlace) {
            inPlace = false;
            out.erase(node, out.end());
        }
        const std::size_t before = out.size();
        auto added = out.emplace_hint(out.end(), std::piecewise_construct,
                                      std::forward_as_tuple(std::move(key)), std::tuple<>());
        if (out.size() != before) {
            (*this)(added->second);
        } else {
            V repeated{};
            (*this)(repeated);
        }
    }
    if (inPlace && ok && node != out.end()) {
        out.erase(node, out.end());
    }
}

template <bool kStore>
template <typename K, typename V, typename C, typename A>
WARDEND_FORCE_INLINE inline void FastWalk<kStore>::Map(const std::map<K, V, C, A>& /*probe*/) {
    constexpr std::uint64_t kPair = kMinBytes<K> + kMinBytes<V>;
    const std::uint64_t count = TakeCount();
    if (count * kPair > room) {
        ok = false;
        return;
    }
    for (std::uint64_t i = 0; i < count && ok; ++i) {
        if (!Reserve(kPair)) {
            return;
        }
        (*this)(Probe<K>());
        (*this)(Probe<V>());
    }
}

// Bytes of a whole value read into `out` (or counted, for a probe), or kSizeFailure when the
// value is not there whole; a failure logs nothing.
template <bool kStore, typename T>
std::uint64_t FastRead(const unsigned char* data, std::uint64_t length, T& out) {
    constexpr std::uint64_t kMin = kMinBytes<std::remove_const_t<T>>;
    if (length < kMin) {
        return kSizeFailure;
    }
    FastWalk<kStore> walk{data, length - kMin};
    walk(out);
    return walk.ok ? static_cast<std::uint64_t>(walk.at - data) : kSizeFailure;
}

}  // namespace detail

// Serializer of one value at buffer + position.
template <typename T>
class Serializer {
public:
    Serializer(const T& value, SerializeConfig config, std::uint64_t position = 0)
        : value_(&value), config_(std::move(config)), position_(position) {}
    // The serializer keeps a pointer to the value: a temporary would dangle.
    Serializer(const T&& value, SerializeConfig config, std::uint64_t position = 0) = delete;

    std::uint64_t GetSize() {
        if (size_ == kSizeFailure) {
            size_ = std::min(Codec<T>::Size(*value_), kSizeFailure);
        }
        return size_;
    }

    // The buffer must hold position + GetSize() bytes; nothing is written if the size fails.
    void Serialize(unsigned char* buffer) {
        if (GetSize() > kSizeMax) {
            return;
        }
        if (buffer == nullptr) {
            detail::RefuseCopy(buffer, size_, FirstCopyError());
            return;
        }
        (void)Codec<T>::Write(*value_, buffer, position_);
    }

private:
    static constexpr const char* FirstCopyError() {
        if constexpr (std::is_same_v<T, ara::core::String>) {
            return detail::kStringCopyError;
        } else if constexpr (serialize::detail::IsVector<T>::value) {
            return detail::kVectorCopyError;
        } else {
            return detail::kCopyError;
        }
    }

    const T* value_;
    SerializeConfig config_;  // carried; no field of it changes this format
    std::uint64_t position_;
    std::uint64_t size_{kSizeFailure};
};

template <typename T>
class Deserializer {
public:
    Deserializer(const unsigned char* data, unsigned long length)
        : data_(data), length_(data == nullptr ? 0 : length) {}

    // Bytes the value takes, or kSizeFailure when the stream is too short.
    std::uint64_t GetSize() {
        if (!sized_) {
            sized_ = true;
            size_ = detail::FastRead<false>(data_, length_, detail::Probe<T>());
            if (size_ == kSizeFailure) {
                size_ = Codec<T>::ReadSize(data_, length_);  // again, to log what is wrong
                if constexpr (serialize::detail::kIsScalar<T>) {
                    if (size_ == kSizeFailure) {
                        detail::LogRead(
                            "Deserialization[DDS] size counter failed, insufficient data.");
                    }
                }
            }
        }
        return size_;
    }

    // The value; a stream the size pass refused gives defaults in the unreadable tail.
    T GetValue() {
        T value{};
        (void)GetValue(value);
        return value;
    }

    // Reads the value into `out`, which then equals what GetValue() returns. A value kept from
    // one message to the next is read over: its strings and vectors keep their storage and a map
    // whose keys come again in order keeps its nodes, which spares the allocations of a fresh
    // value. True when the stream held the whole value; GetSize() then answers from this read.
    bool GetValue(T& out) {
        const std::uint64_t size = detail::FastRead<true>(data_, length_, out);
        if (size <= kSizeMax) {
            sized_ = true;
            size_ = size;
            return true;
        }
        // Read again from a fresh value, member by member, for the defaults and the log lines.
        out = T{};
        if constexpr (serialize::detail::IsRecord<T>::value) {
            return Codec<T>::Read(data_, length_, out) <= kSizeMax;
        } else {
            if (GetSize() > kSizeMax || Codec<T>::Read(data_, size_, out) > kSizeMax) {
                out = T{};
                return false;
            }
            return true;
        }
    }

private:
    const unsigned char* data_;
    std::uint64_t length_;
    std::uint64_t size_{kSizeFailure};
    bool sized_{false};
};

}  // namespace lumo::serialize::dds

#endif
