#ifndef REGISTRY_PACKED_RECORD_H
#define REGISTRY_PACKED_RECORD_H

// Records packed into bytes, for registries that keep many of them. A registration that an
// application sends leaves most of its fields at their defaults, and the record types are
// large (an EventInfo carries both drivers' halves, each with an E2E and a PDU configuration),
// so the packed form is a small fraction of the record: numbers are written in as few bytes as
// their value needs, and a nested record that equals its default is one byte. Unpacking gives
// back the same record, field for field.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <new>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "binding/serialize/serialize_traits.h"
#include "platform/core/string.h"

namespace vesk::wardend {

namespace packed_detail {

template <typename T, typename = void>
struct IsRecord : std::false_type {};
template <typename T>
struct IsRecord<T, std::void_t<decltype(std::declval<const T&>().Tie())>> : std::true_type {};

using lumo::serialize::detail::IsMap;
using lumo::serialize::detail::IsVector;

template <typename T>
struct IsPair : std::false_type {};
template <typename A, typename B>
struct IsPair<std::pair<A, B>> : std::true_type {};

// The integer that carries a value of T: bool as a byte, an enumeration as its underlying type.
template <typename T>
using Integer = typename lumo::serialize::detail::UnderlyingOf<T>::type;

}  // namespace packed_detail

// Appends values to a byte string.
class RecordPacker {
public:
    template <typename T>
    void Put(const T& value) {
        using packed_detail::IsMap;
        using packed_detail::IsRecord;
        using packed_detail::IsVector;
        if constexpr (std::is_same_v<T, ara::core::String>) {
            PutNumber(value.size());
            bytes_.append(value);
        } else if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
            PutNumber(ToUnsigned(value));
        } else if constexpr (IsRecord<T>::value) {
            static const T kDefault{};
            const bool isDefault = value == kDefault;
            bytes_.push_back(static_cast<char>(isDefault ? 0 : 1));
            if (!isDefault) {
                value.enumerate(*this);
            }
        } else if constexpr (IsVector<T>::value || IsMap<T>::value) {
            PutNumber(value.size());
            for (const auto& element : value) {
                Put(element);
            }
        } else {
            static_assert(packed_detail::IsPair<T>::value,
                          "a record field of a type the packer does not know");
            Put(value.first);
            Put(value.second);
        }
    }
    // The visitor of a record's enumerate.
    template <typename T>
    void operator()(const T& field) {
        Put(field);
    }

    std::string Take() { return std::move(bytes_); }

private:
    // Signed values zigzag, so that small negative numbers stay short.
    template <typename T>
    static std::uint64_t ToUnsigned(T value) {
        if constexpr (std::is_enum_v<T>) {
            return ToUnsigned(static_cast<std::underlying_type_t<T>>(value));
        } else if constexpr (std::is_signed_v<T>) {
            const auto wide = static_cast<std::int64_t>(value);
            return (static_cast<std::uint64_t>(wide) << 1U) ^
                   static_cast<std::uint64_t>(wide >> 63);
        } else {
            return static_cast<std::uint64_t>(value);
        }
    }

    // Seven bits a byte, the high bit set on all but the last.
    void PutNumber(std::uint64_t value) {
        while (value >= 0x80U) {
            bytes_.push_back(static_cast<char>((value & 0x7FU) | 0x80U));
            value >>= 7U;
        }
        bytes_.push_back(static_cast<char>(value));
    }

    std::string bytes_;
};

// The primitive reads of the packed format. Every read checks the bytes that remain and the
// range of the value; after a failure Ok() is false and further reads give zeros.
class PackedCursor {
public:
    explicit PackedCursor(std::string_view bytes) : bytes_(bytes) {}

    bool Ok() const { return ok_; }
    bool AtEnd() const { return at_ == bytes_.size(); }
    void Fail() { ok_ = false; }

    std::uint8_t Byte() {
        if (!ok_ || at_ >= bytes_.size()) {
            ok_ = false;
            return 0;
        }
        return static_cast<std::uint8_t>(bytes_[at_++]);
    }

    // Seven bits a byte, the high bit set on all but the last.
    std::uint64_t Number() {
        std::uint64_t value = 0;
        for (unsigned shift = 0; ok_ && shift < 64U; shift += 7U) {
            const std::uint8_t byte = Byte();
            value |= static_cast<std::uint64_t>(byte & 0x7FU) << shift;
            if ((byte & 0x80U) == 0) {
                return value;
            }
        }
        ok_ = false;
        return 0;
    }

    // An element takes at least one byte, so a count beyond the bytes left is malformed.
    std::uint64_t Count() {
        const std::uint64_t count = Number();
        if (count > bytes_.size() - at_) {
            ok_ = false;
            return 0;
        }
        return count;
    }

    // A number of T (an integer, bool or enumeration); a value out of its range is malformed.
    template <typename T>
    T Integer() {
        using I = packed_detail::Integer<T>;
        const std::uint64_t raw = Number();
        if constexpr (std::is_signed_v<I>) {
            const auto wide = static_cast<std::int64_t>((raw >> 1U) ^ (~(raw & 1U) + 1U));
            if (wide < std::numeric_limits<I>::min() || wide > std::numeric_limits<I>::max()) {
                ok_ = false;
                return T{};
            }
            return static_cast<T>(static_cast<I>(wide));
        } else {
            if (raw > std::numeric_limits<I>::max()) {
                ok_ = false;
                return T{};
            }
            return static_cast<T>(static_cast<I>(raw));
        }
    }

    // A string, in place.
    std::string_view Text() {
        const std::uint64_t size = Number();
        if (!ok_ || size > bytes_.size() - at_) {
            ok_ = false;
            return {};
        }
        const std::string_view text = bytes_.substr(at_, static_cast<std::size_t>(size));
        at_ += static_cast<std::size_t>(size);
        return text;
    }

private:
    std::string_view bytes_;
    std::size_t at_{0};
    bool ok_{true};
};

// Reads values back in the order they were put, into values as their default constructor made
// them (a container is appended to, a record at its default left alone), since a query unpacks
// into fresh records. After a failure, Ok() is false and further reads do nothing.
class RecordUnpacker {
public:
    explicit RecordUnpacker(std::string_view bytes) : in_(bytes) {}

    template <typename T>
    void Get(T& value) {
        using packed_detail::IsMap;
        using packed_detail::IsRecord;
        using packed_detail::IsVector;
        if (!in_.Ok()) {
            return;
        }
        if constexpr (std::is_same_v<T, ara::core::String>) {
            const std::string_view text = in_.Text();
            value.assign(text.data(), text.size());
        } else if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
            value = in_.Integer<T>();
        } else if constexpr (IsRecord<T>::value) {
            // A record at its default stays as the caller made it.
            if (in_.Byte() == 1) {
                value.enumerate(*this);
            }
        } else if constexpr (IsVector<T>::value) {
            const std::uint64_t count = in_.Count();
            value.reserve(static_cast<std::size_t>(count));
            for (std::uint64_t i = 0; in_.Ok() && i < count; ++i) {
                value.emplace_back();
                Get(value.back());
            }
        } else {
            static_assert(IsMap<T>::value, "a record field of a type the unpacker does not know");
            // Read in place: moving a large record into its node costs about as much again.
            const std::uint64_t count = in_.Count();
            for (std::uint64_t i = 0; in_.Ok() && i < count; ++i) {
                typename T::key_type key{};
                Get(key);
                const std::size_t before = value.size();
                const auto node =
                    value.emplace_hint(value.end(), std::piecewise_construct,
                                       std::forward_as_tuple(std::move(key)), std::tuple<>());
                if (value.size() != before) {
                    Get(node->second);
                } else {
                    typename T::mapped_type repeated{};
                    Get(repeated);
                }
            }
        }
    }
    template <typename T>
    void operator()(T& field) {
        Get(field);
    }

    bool Ok() const { return in_.Ok(); }
    bool AtEnd() const { return in_.AtEnd(); }

private:
    PackedCursor in_;
};

// Bytes of a packed record, immutable and shared between copies: a query copies the pointer
// under its registry's lock and unpacks once the lock is released. One pointer; the count and
// the length sit in front of the bytes.
class PackedBytes {
public:
    PackedBytes() = default;
    explicit PackedBytes(std::string_view bytes) {
        if (bytes.empty()) {
            return;
        }
        void* memory = ::operator new(sizeof(Block) + bytes.size());
        block_ = new (memory) Block{{1}, static_cast<std::uint32_t>(bytes.size())};
        std::memcpy(static_cast<char*>(memory) + sizeof(Block), bytes.data(), bytes.size());
    }
    PackedBytes(const PackedBytes& other) noexcept : block_(other.block_) {
        if (block_ != nullptr) {
            block_->refs.fetch_add(1, std::memory_order_relaxed);
        }
    }
    PackedBytes& operator=(const PackedBytes& other) noexcept {
        PackedBytes copy(other);
        std::swap(block_, copy.block_);
        return *this;
    }
    PackedBytes(PackedBytes&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
    PackedBytes& operator=(PackedBytes&& other) noexcept {
        PackedBytes moved(std::move(other));
        std::swap(block_, moved.block_);
        return *this;
    }
    // The analyzer does not follow the count: it takes every copy's release for the last.
    ~PackedBytes() {
        if (block_ != nullptr && block_->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDelete)
            block_->~Block();
            ::operator delete(block_);
        }
    }

    std::string_view View() const {
        if (block_ == nullptr) {
            return {};
        }
        // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDelete)
        return {reinterpret_cast<const char*>(block_) + sizeof(Block), block_->size};
    }

private:
    struct Block {
        std::atomic<std::uint32_t> refs;
        std::uint32_t size;
    };

    Block* block_{nullptr};
};

}  // namespace vesk::wardend

#endif
