#ifndef REGISTRY_PACKED_SOMEIP_H
#define REGISTRY_PACKED_SOMEIP_H

// The plain SOME/IP form of a packed record (4-byte length fields, no tags, no padding: the
// bytes of someip::PlainWriter), written straight from its packed bytes. A large answer goes
// out without building its records: strings are copied from the packed bytes, numbers widened,
// and a nested record that was packed at its default is the default's bytes, made once.

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "binding/serialize/field_runs.h"
#include "binding/serialize/serialize_traits.h"
#include "binding/serialize/someip_plain_writer.h"
#include "platform/core/string.h"
#include "registry/packed_record.h"

namespace vesk::wardend {

// Where the bytes go: with kWrite false it only counts them, so that one walk sizes the answer
// and a second one writes it into a buffer of that size.
template <lumo::serialize::ByteOrder kOrder, bool kWrite>
class SomeipOut {
public:
    static constexpr std::uint64_t kLengthWidth = 4;
    static constexpr lumo::serialize::ByteOrder kByteOrder = kOrder;
    static constexpr bool kWrites = kWrite;

    // out has room for capacity bytes; nothing is written past them (Overrun() tells).
    SomeipOut(unsigned char* out, bool isStringRaw, std::uint64_t capacity = 0)
        : out_(out), raw_(isStringRaw), capacity_(capacity) {}

    bool IsStringRaw() const { return raw_; }
    std::uint64_t Written() const { return written_; }
    bool Overrun() const { return overrun_; }

    // Counts bytes whose size is known without writing them.
    void Advance(std::uint64_t bytes) {
        static_assert(!kWrite, "a writer writes every byte");
        written_ += bytes;
    }

    template <typename T>
    void Scalar(T value) {
        if (!Room(sizeof(T))) {
            return;
        }
        if constexpr (kWrite) {
            const auto bytes = lumo::serialize::detail::EncodeScalar(value, kOrder);
            std::memcpy(out_ + written_, bytes.data(), bytes.size());
        }
        written_ += sizeof(T);
    }

    void String(std::string_view text) {
        const std::uint64_t extra = raw_ ? 0 : 4;
        if (!Room(kLengthWidth + text.size() + extra)) {
            return;
        }
        StoreLength(written_, text.size() + extra);
        written_ += kLengthWidth;
        if constexpr (kWrite) {
            unsigned char* at = out_ + written_;
            if (!raw_) {
                static constexpr unsigned char kMark[3] = {0xEF, 0xBB, 0xBF};
                std::memcpy(at, kMark, sizeof(kMark));
                at += sizeof(kMark);
            }
            if (!text.empty()) {
                std::memcpy(at, text.data(), text.size());
            }
            if (!raw_) {
                at[text.size()] = 0;
            }
        }
        written_ += text.size() + extra;
    }

    void Bytes(std::string_view bytes) {
        if (!Room(bytes.size())) {
            return;
        }
        if constexpr (kWrite) {
            if (!bytes.empty()) {
                std::memcpy(out_ + written_, bytes.data(), bytes.size());
            }
        }
        written_ += bytes.size();
    }

    // A length field whose content follows: its place, to fill in with EndFrame.
    std::uint64_t BeginFrame() {
        const std::uint64_t at = written_;
        if (Room(kLengthWidth)) {
            written_ += kLengthWidth;
        }
        return at;
    }
    // False when the content is beyond what the length field may announce.
    bool EndFrame(std::uint64_t at) {
        const std::uint64_t content = written_ - at - kLengthWidth;
        if (overrun_ || content > lumo::serialize::LengthFieldLimit(kLengthWidth)) {
            return false;
        }
        StoreLength(at, content);
        return true;
    }

    // A whole value as PlainWriter writes it.
    template <typename T>
    void Value(const T& value) {
        const lumo::serialize::someip::PlainWriter<kOrder> writer(raw_);
        const std::uint64_t size = writer.Size(value);
        if (size > lumo::serialize::kSizeMax) {
            overrun_ = true;
            return;
        }
        if (!Room(size)) {
            return;
        }
        if constexpr (kWrite) {
            writer.Write(value, out_ + written_);
        }
        written_ += size;
    }

private:
    bool Room(std::uint64_t bytes) {
        if constexpr (kWrite) {
            if (overrun_ || bytes > capacity_ - written_) {
                overrun_ = true;
                return false;
            }
        }
        return true;
    }

    void StoreLength(std::uint64_t at, std::uint64_t content) {
        if constexpr (kWrite) {
            const auto bytes =
                lumo::serialize::detail::EncodeScalar(static_cast<std::uint32_t>(content), kOrder);
            std::memcpy(out_ + at, bytes.data(), bytes.size());
        }
    }

    unsigned char* out_;
    bool raw_;
    std::uint64_t capacity_;
    std::uint64_t written_{0};
    bool overrun_{false};
};

// Reads packed values (RecordPacker's format) and writes each one's SOME/IP form to an out.
// After a failure Ok() is false and what was written is not an answer.
class PackedSomeipReader {
public:
    explicit PackedSomeipReader(std::string_view bytes) : in_(bytes) {}

    bool Ok() const { return in_.Ok(); }
    bool AtEnd() const { return in_.AtEnd(); }
    PackedCursor& In() { return in_; }

    // One packed T to out.
    template <typename T, typename Out>
    void Copy(Out& out) {
        using packed_detail::IsMap;
        using packed_detail::IsRecord;
        using packed_detail::IsVector;
        if (!in_.Ok()) {
            return;
        }
        if constexpr (std::is_same_v<T, ara::core::String>) {
            out.String(in_.Text());
        } else if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
            out.Scalar(in_.Integer<T>());
        } else if constexpr (IsRecord<T>::value) {
            if (in_.Byte() == 1) {
                CopyFields<T>(out,
                              std::make_index_sequence<lumo::serialize::detail::kFieldCount<T>>{});
            } else {
                out.Bytes(DefaultBytes<T>(out));
            }
        } else if constexpr (IsVector<T>::value) {
            CopyElements<typename T::value_type>(out);
        } else {
            static_assert(IsMap<T>::value, "a record field of a type the reader does not know");
            CopyElements<std::pair<typename T::key_type, typename T::mapped_type>>(out);
        }
    }

    // Reads past one packed T.
    template <typename T>
    void Skip() {
        SomeipOut<lumo::serialize::ByteOrder::kBigEndian, false> nowhere(nullptr, true);
        Copy<T>(nowhere);
    }

    // The SOME/IP bytes of a default T, made once per type, byte order and string form.
    template <typename T, typename Out>
    static const std::string& DefaultBytes(const Out& out) {
        static const std::string kWithMark = Encode<T, Out::kByteOrder>(false);
        static const std::string kRaw = Encode<T, Out::kByteOrder>(true);
        return out.IsStringRaw() ? kRaw : kWithMark;
    }

private:
    template <typename T, typename Out, std::size_t... I>
    void CopyFields(Out& out, std::index_sequence<I...> /*unused*/) {
        (Copy<lumo::serialize::detail::FieldAt<T, I>>(out), ...);
    }

    // The elements of a vector, or the pairs of a map, in one length field.
    template <typename E, typename Out>
    void CopyElements(Out& out) {
        const std::uint64_t count = in_.Count();
        const std::uint64_t frame = out.BeginFrame();
        for (std::uint64_t i = 0; in_.Ok() && i < count; ++i) {
            if constexpr (packed_detail::IsPair<E>::value) {
                Copy<typename E::first_type>(out);
                Copy<typename E::second_type>(out);
            } else {
                Copy<E>(out);
            }
        }
        if (!out.EndFrame(frame)) {
            in_.Fail();
        }
    }

    template <typename T, lumo::serialize::ByteOrder kOrder>
    static std::string Encode(bool raw) {
        static const T kDefault{};
        const lumo::serialize::someip::PlainWriter<kOrder> writer(raw);
        std::string bytes(static_cast<std::size_t>(writer.Size(kDefault)), '\0');
        writer.Write(kDefault, reinterpret_cast<unsigned char*>(bytes.data()));
        return bytes;
    }

    PackedCursor in_;
};

}  // namespace vesk::wardend

#endif
