#ifndef BINDING_SERIALIZE_SOMEIP_DESERIALIZER_H
#define BINDING_SERIALIZE_SOMEIP_DESERIALIZER_H

// SOME/IP payload reader. Nothing in the stream is trusted: every length is checked against what
// remains before it is used, and every loop consumes at least one byte per round. A failure is
// a logged value (kSizeFailure), never an exception.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "binding/serialize/field_runs.h"
#include "binding/serialize/read_in_place.h"
#include "binding/serialize/serialize_traits.h"
#include "binding/serialize/someip_common.h"
#include "binding/serialize/tlv_serialize_helper.h"
#include "platform/compiler/branch_hint.h"
#include "platform/compiler/force_inline.h"
#include "platform/core/string.h"

namespace lumo::serialize::someip {

// Bytes a value took (its padding apart) and the padding computed behind it.
struct ReadResult {
    std::uint64_t size{kSizeFailure};
    std::uint8_t padding{0};

    bool Failed() const { return size > kSizeMax; }
};

template <typename T, typename Enable = void>
struct Reader;

namespace detail {

inline void LogRead(const char* text) {
    SomeipLog().LogError(text, kPeerLimit) << text;
}

inline ReadResult Finish(const ValueContext& c, std::uint64_t lengthWidth, std::uint64_t content) {
    return ReadResult{lengthWidth + content, AlignmentPadding(c, lengthWidth, content)};
}

// Reads a length field of `width` bytes in front of at most `length` bytes. False when the field
// or the content it announces does not fit.
inline bool ReadLength(const unsigned char* data, std::uint64_t length, std::uint64_t width,
                       ByteOrder order, std::uint64_t& content) {
    if (length < width) {
        return false;
    }
    content = tlv::serialize::TlvSerializeHelper::ReadLengthField(data, width, order);
    return content <= length - width;
}

// How far to move behind a value: padding is taken when it fits; a value that may end the
// stream (or its container) goes without it.
inline bool Advance(const ReadResult& r, std::uint64_t remaining, bool mayEnd,
                    std::uint64_t& step) {
    if (r.size > remaining) {
        return false;
    }
    if (r.padding <= remaining - r.size) {
        step = r.size + r.padding;
        return true;
    }
    step = r.size;
    return mayEnd;
}

}  // namespace detail

template <typename T>
struct Reader<T, std::enable_if_t<serialize::detail::kIsScalar<T>>> {
    static ReadResult Read(const unsigned char* data, std::uint64_t length, const ValueContext& c,
                           T& out) {
        if (length < sizeof(T)) {
            static constexpr const char* kTag =
                "[Deserializer] The length of the actual code stream is less than the required "
                "code stream";
            SomeipLog().LogError(kTag, kPeerLimit)
                << kTag << "[actualSize=" << length << ", requiredSize=" << sizeof(T) << "]";
            return ReadResult{};
        }
        out = serialize::detail::DecodeScalar<T>(data, detail::OrderOf(c));
        return ReadResult{sizeof(T), 0};
    }
};

template <>
struct Reader<ara::core::String> {
    static std::uint64_t LengthWidth(const ValueContext& c) {
        return detail::LengthWidthOf<&SerializationNode::stringLengthField,
                                     &SerializeConfig::stringLengthField>(c);
    }

    static ReadResult Read(const unsigned char* data, std::uint64_t length, const ValueContext& c,
                           ara::core::String& out) {
        const bool raw = detail::IsRaw(c);
        const std::uint64_t extra = raw ? 0 : 4;
        const std::uint64_t width = LengthWidth(c);
        std::uint64_t content = 0;
        if (length < width + extra ||
            !detail::ReadLength(data, length, width, detail::OrderOf(c), content) ||
            extra > content) {
            return Fail();
        }
        const unsigned char* text = data + width;
        const std::uint64_t dataLength = content - extra;
        if (!raw) {
            if (text[0] != 0xEF || text[1] != 0xBB || text[2] != 0xBF ||
                text[3 + dataLength] != 0) {
                return Fail();
            }
            text += 3;
        }
        out.assign(reinterpret_cast<const char*>(text), dataLength);
        return detail::Finish(c, width, content);
    }

private:
    static ReadResult Fail() {
        detail::LogRead("Construct deserialization for String failed, insufficient data.");
        return ReadResult{};
    }
};

// Vectors: the length field counts bytes. Elements of a scalar type must fill it exactly.
template <typename E, typename A>
struct Reader<std::vector<E, A>> {
    static std::uint64_t LengthWidth(const ValueContext& c) {
        return detail::LengthWidthOf<&SerializationNode::vectorLengthField,
                                     &SerializeConfig::vectorLengthField>(c);
    }

    static ReadResult Read(const unsigned char* data, std::uint64_t length, const ValueContext& c,
                           std::vector<E, A>& out) {
        const std::uint64_t width = LengthWidth(c);
        std::uint64_t content = 0;
        if (!detail::ReadLength(data, length, width, detail::OrderOf(c), content)) {
            detail::LogRead("GetSize failed for Vector deserialization, insufficient data!");
            return ReadResult{};
        }
        if (!ContainerDeserializeHelper(data + width, content, c, width, out)) {
            return ReadResult{};
        }
        return detail::Finish(c, width, content);
    }

    // Reads the elements in `content` bytes behind the length field.
    static bool ContainerDeserializeHelper(const unsigned char* data, std::uint64_t content,
                                           const ValueContext& c, std::uint64_t width,
                                           std::vector<E, A>& out) {
        out.clear();
        if constexpr (serialize::detail::kIsScalar<E>) {
            if (content % sizeof(E) != 0) {
                detail::LogRead(
                    "Construct deserialization for Vector failed, invalid size parameter!");
                return false;
            }
            const std::size_t count = content / sizeof(E);
            const ByteOrder order = detail::OrderOf(c);
            if constexpr (!std::is_same_v<E, bool>) {
                if (order == ByteOrder::kLittleEndian && serialize::detail::HostIsLittleEndian()) {
                    out.resize(count);
                    if (count != 0 &&
                        serialize::detail::BoundedCopy(out.data(), content, data, content) != 0) {
                        detail::LogRead(
                            "[Someip Deserializer Vector] Memory copy return error, Invalid "
                            "deserialization.");
                        return false;
                    }
                    return true;
                }
            }
            out.reserve(count);
            for (std::size_t i = 0; i < count; ++i) {
                out.push_back(serialize::detail::ScalarFromBits<E>(
                    serialize::detail::LoadUint(data + i * sizeof(E), sizeof(E), order)));
            }
            return true;
        } else {
            std::uint64_t offset = 0;
            while (offset < content) {
                E element{};
                const ValueContext elementContext = detail::ChildContext(
                    c, detail::NthMember(c.node, 0), c.position + width + offset, false);
                const ReadResult r =
                    Reader<E>::Read(data + offset, content - offset, elementContext, element);
                std::uint64_t step = 0;
                if (r.Failed() || !detail::Advance(r, content - offset, true, step) || step == 0) {
                    detail::LogRead(
                        "GetValue failed for Vector deserialization, insufficient data!");
                    return false;
                }
                out.push_back(std::move(element));
                offset += step;
            }
            return true;
        }
    }
};

// Maps: the length field counts bytes; key and value of each pair follow one another.
template <typename K, typename V, typename C, typename A>
struct Reader<std::map<K, V, C, A>> {
    using Map = std::map<K, V, C, A>;

    static std::uint64_t LengthWidth(const ValueContext& c) {
        return detail::LengthWidthOf<&SerializationNode::mapLengthField,
                                     &SerializeConfig::vectorLengthField>(c);
    }

    static ReadResult Read(const unsigned char* data, std::uint64_t length, const ValueContext& c,
                           Map& out) {
        const std::uint64_t width = LengthWidth(c);
        std::uint64_t content = 0;
        if (!detail::ReadLength(data, length, width, detail::OrderOf(c), content)) {
            detail::LogRead(
                "Construct deserialization for associative container failed, insufficient data.");
            return ReadResult{};
        }
        if (!AssociativeDeserializeHelper(data + width, content, c, width, out)) {
            detail::LogRead("Deserialization of associative container failed, insufficient data.");
            return ReadResult{};
        }
        return detail::Finish(c, width, content);
    }

    static bool AssociativeDeserializeHelper(const unsigned char* data, std::uint64_t content,
                                             const ValueContext& c, std::uint64_t width, Map& out) {
        out.clear();
        std::uint64_t offset = 0;
        while (offset < content) {
            const std::uint64_t pairStart = offset;
            K key{};
            const ReadResult keyRead =
                Reader<K>::Read(data + offset, content - offset,
                                detail::ChildContext(c, detail::NthMember(c.node, 0),
                                                     c.position + width + offset, false),
                                key);
            std::uint64_t step = 0;
            if (keyRead.Failed() || !detail::Advance(keyRead, content - offset, false, step)) {
                detail::LogRead("Deserialization of pair failed, insufficient first data.");
                return false;
            }
            offset += step;
            // The value is read into its node (a repeated key keeps the first value and reads
            // the repeat into a scratch value); a pair that fails leaves no node behind. Keys
            // written from a map come in order, so the hint makes insertion constant time.
            const std::size_t before = out.size();
            const auto node =
                out.emplace_hint(out.end(), std::piecewise_construct,
                                 std::forward_as_tuple(std::move(key)), std::tuple<>());
            const bool inserted = out.size() != before;
            const ValueContext valueContext = detail::ChildContext(
                c, detail::NthMember(c.node, 1), c.position + width + offset, false);
            ReadResult valueRead;
            if (inserted) {
                valueRead =
                    Reader<V>::Read(data + offset, content - offset, valueContext, node->second);
            } else {
                V repeated{};
                valueRead =
                    Reader<V>::Read(data + offset, content - offset, valueContext, repeated);
            }
            if (valueRead.Failed() || !detail::Advance(valueRead, content - offset, true, step)) {
                detail::LogRead("Deserialization of pair failed, insufficient second data.");
                if (inserted) {
                    out.erase(node);
                }
                return false;
            }
            offset += step;
            if (offset == pairStart) {
                detail::LogRead("GetSize failed for pair deserialization, insufficient data.");
                if (inserted) {
                    out.erase(node);
                }
                return false;
            }
        }
        return true;
    }
};

// Reads the members of an untagged structure one after the other.
class DeserializeSizeCounter {
public:
    DeserializeSizeCounter(const unsigned char* data, const ValueContext& structure,
                           std::uint64_t start)
        : data_(data), structure_(structure), start_(start) {}

    // The member region is `length` bytes long.
    void DoInit(std::uint64_t length) { length_ = length; }

    // Scalars of unconfigured structures that fit inline; everything else, and every failure,
    // goes through ReadMember.
    template <typename M>
    WARDEND_FORCE_INLINE void operator()(M& member) {
        if constexpr (serialize::detail::kIsScalar<M>) {
            if (!failed_ && structure_.node == nullptr && length_ - offset_ >= sizeof(M)) {
                member = serialize::detail::DecodeScalar<M>(data_ + offset_,
                                                            structure_.config->byteOrder);
                offset_ += sizeof(M);
                return;
            }
        }
        ReadMember(member);
    }

    template <typename M>
    void ReadMember(M& member) {
        if (failed_) {
            return;
        }
        if constexpr (serialize::detail::kIsScalar<M>) {
            if (structure_.node == nullptr) {  // no padding: just the width
                if (Reader<M>::Read(data_ + offset_, length_ - offset_, structure_, member)
                        .Failed()) {
                    failed_ = true;
                    return;
                }
                offset_ += sizeof(M);
                return;
            }
        }
        const SerializationNode* child = nullptr;
        if (structure_.node != nullptr) {
            child = detail::NthMember(structure_.node, index_++);
            if (child == nullptr) {
                detail::LogTooFewNodes();
                failed_ = true;
                return;
            }
        }
        const bool isLast = child != nullptr && child->isLast;
        const ValueContext memberContext = detail::ChildContext(
            structure_, child, start_ + offset_, structure_.isLastInStream && isLast);
        const ReadResult r =
            Reader<M>::Read(data_ + offset_, length_ - offset_, memberContext, member);
        if (r.Failed()) {
            failed_ = true;
            return;
        }
        CheckAndDoStreamOffset(r.size, r.padding, isLast);
    }

    // Moves over one member; a last member may go without its padding.
    void CheckAndDoStreamOffset(std::uint64_t size, std::uint8_t padding, bool isLast) {
        std::uint64_t step = 0;
        if (!detail::Advance(ReadResult{size, padding}, length_ - offset_, isLast, step)) {
            detail::LogRead("Deserialization[Someip] size counter failed, insufficient data.");
            failed_ = true;
            return;
        }
        offset_ += step;
    }

    // Bytes taken, or kSizeFailure.
    std::uint64_t Consumed() const { return failed_ ? kSizeFailure : offset_; }

private:
    const unsigned char* data_;
    ValueContext structure_;
    std::uint64_t start_;
    std::uint64_t length_{0};
    std::uint64_t offset_{0};
    std::size_t index_{0};
    bool failed_{false};
};

}  // namespace lumo::serialize::someip

namespace tlv::serialize {

// Reads the member that `node` names from a scanned TLV region. Returns the member's size, or
// kSizeFailure when its id is absent (the member keeps its default) or it cannot be read.
// The node is shared between threads, so the width found in the stream goes into a copy.
template <typename T>
std::uint64_t GetParamSizeOfTlv(const DataIdTable& table,
                                const lumo::serialize::SerializationNode& node,
                                const unsigned char* region, std::uint64_t regionPosition,
                                bool isLastInStream, T& out) {
    using lumo::serialize::kSizeFailure;
    const auto found = table.find(node.dataId);
    if (found == table.end()) {
        static constexpr const char* kTag = "Deserialization, cannot find dataId";
        lumo::serialize::SomeipLog().LogError(kTag, lumo::serialize::kPeerLimit)
            << kTag << "[dataId=" << node.dataId << "]";
        return kSizeFailure;
    }
    const DataIdParams& params = found->second;
    lumo::serialize::SerializationNode local = node;
    local.tlvLengthField = params.lengthFieldWidth;
    const lumo::serialize::someip::ValueContext context{&lumo::serialize::DefaultSerializeConfig(),
                                                        &local, regionPosition + params.position,
                                                        isLastInStream};
    const auto r = lumo::serialize::someip::Reader<T>::Read(region + params.position, params.length,
                                                            context, out);
    if (r.Failed()) {
        return kSizeFailure;
    }
    if (r.size > params.length) {
        lumo::serialize::someip::detail::LogRead(
            "Deserialization, check has the same serialize config");
    }
    return r.size;
}

}  // namespace tlv::serialize

namespace lumo::serialize::someip {

// Reads the members of a TLV structure by data id, so they may come in any order; unknown ids
// are skipped and absent members keep their defaults.
class StructDeserializeHelper {
public:
    StructDeserializeHelper(const unsigned char* region, const ValueContext& structure,
                            std::uint64_t regionPosition)
        : region_(region), structure_(structure), regionPosition_(regionPosition) {}

    // Takes the scan of the region's tags.
    void DoInit(const tlv::serialize::DataIdTable* table) { table_ = table; }

    template <typename M>
    void operator()(M& member) {
        if (failed_) {
            return;
        }
        const SerializationNode* child = detail::NthMember(structure_.node, index_++);
        if (child == nullptr) {
            detail::LogTooFewNodes();
            failed_ = true;
            return;
        }
        if (table_->find(child->dataId) == table_->end()) {
            (void)tlv::serialize::GetParamSizeOfTlv(*table_, *child, region_, regionPosition_,
                                                    false, member);  // logs the absent id
            return;
        }
        M value{};
        const std::uint64_t size =
            tlv::serialize::GetParamSizeOfTlv(*table_, *child, region_, regionPosition_,
                                              structure_.isLastInStream && child->isLast, value);
        if (size > kSizeMax) {
            failed_ = true;
            return;
        }
        member = std::move(value);
    }

    bool Failed() const { return failed_; }

private:
    const unsigned char* region_;
    ValueContext structure_;
    std::uint64_t regionPosition_;
    const tlv::serialize::DataIdTable* table_{nullptr};
    std::size_t index_{0};
    bool failed_{false};
};

template <typename T>
struct Reader<T, std::enable_if_t<serialize::detail::IsRecord<T>::value>> {
    static std::uint64_t LengthWidth(const ValueContext& c) {
        return detail::LengthWidthOf<&SerializationNode::structLengthField,
                                     &SerializeConfig::structLengthField>(c);
    }

    static ReadResult Read(const unsigned char* data, std::uint64_t length, const ValueContext& c,
                           T& out) {
        const std::uint64_t width = LengthWidth(c);
        std::uint64_t region = length;
        if (width != 0 && !detail::ReadLength(data, length, width, detail::OrderOf(c), region)) {
            detail::LogRead("Deserialization[Someip] size counter failed, insufficient data.");
            return ReadResult{};
        }
        const unsigned char* members = data + width;
        const std::uint64_t membersPosition = c.position + width;
        std::uint64_t content = 0;
        if (c.node != nullptr && c.node->isTlv) {
            const tlv::serialize::DataIdRecord record =
                tlv::serialize::TlvSerializeHelper::RecordDataId(
                    detail::OrderOf(c), c.node->tlvLengthField, members, region);
            if (record.consumed > region) {
                detail::LogRead("Deserialization[Someip] size counter failed, insufficient data.");
                return ReadResult{};
            }
            StructDeserializeHelper helper(members, c, membersPosition);
            helper.DoInit(&record.table);
            out.enumerate(helper);
            if (helper.Failed()) {
                return ReadResult{};
            }
            content = width != 0 ? region : record.consumed;
        } else {
            DeserializeSizeCounter counter(members, c, membersPosition);
            counter.DoInit(region);
            out.enumerate(counter);
            content = counter.Consumed();
            if (content > kSizeMax) {
                return ReadResult{};
            }
            if (width != 0) {
                content = region;  // members this side doesn't know are skipped
            }
        }
        return detail::Finish(c, width, content);
    }
};

namespace detail {

inline constexpr std::uint64_t kPlainWidth = 4;

template <typename T>
inline constexpr std::uint64_t kMinBytes = serialize::detail::MinWireBytes<T, kPlainWidth>::value;

// The walk of a value without a configuration node whose strings, vectors and maps have 4-byte
// length fields and whose structures have none: no padding, fixed widths. The fixed-width rest of
// the current value and of every value around it (within the stream, or the container being
// read) is known to be there, and `room` bytes behind it: a fixed-width member is taken without
// a check, and a length is checked against `room`, which the content then takes from. A check that
// fails clears `ok` and moves nothing more; the walk goes on over bytes that are there, and the
// caller reads again member by member, which logs what is wrong.
template <bool kSwap>
struct PlainWalk {
    const unsigned char* at;
    std::uint64_t room;
    bool raw;
    bool ok{true};

    template <typename V>
    WARDEND_FORCE_INLINE static V LoadAt(const unsigned char* p) {
        using U = serialize::detail::Unsigned<V>;
        U bits{};
        std::memcpy(&bits, p, sizeof(V));
        if constexpr (kSwap) {
            bits = serialize::detail::ByteSwap(bits);
        }
        return serialize::detail::ScalarFromBits<V>(bits);
    }
    template <typename V>
    WARDEND_FORCE_INLINE V Load() const {
        return LoadAt<V>(at);
    }

    // Moves `p` over one value of type M that must end by `end`; false when it does not. Strings,
    // vectors and maps are passed by their length fields, so only records are walked into.
    template <typename M>
    WARDEND_FORCE_INLINE static bool Skip(const unsigned char*& p, const unsigned char* end) {
        if constexpr (serialize::detail::IsRecord<M>::value) {
            return SkipFields<M>(p, end,
                                 std::make_index_sequence<serialize::detail::kFieldCount<M>>{});
        } else {
            constexpr std::uint64_t kWidth =
                serialize::detail::kIsScalar<M> ? sizeof(M) : kPlainWidth;
            if (static_cast<std::uint64_t>(end - p) < kWidth) {
                return false;
            }
            std::uint64_t step = kWidth;
            if constexpr (!serialize::detail::kIsScalar<M>) {
                const auto content = LoadAt<std::uint32_t>(p);
                if (content > static_cast<std::uint64_t>(end - p) - kWidth) {
                    return false;
                }
                step += content;
            }
            p += step;
            return true;
        }
    }
    template <typename R, std::size_t... I>
    WARDEND_FORCE_INLINE static bool SkipFields(const unsigned char*& p, const unsigned char* end,
                                                std::index_sequence<I...> /*unused*/) {
        return (Skip<serialize::detail::FieldAt<R, I>>(p, end) && ...);
    }

    // Elements of type E that the `content` bytes at the walk's position hold whole.
    template <typename E>
    std::size_t CountElements(std::uint64_t content) const {
        const unsigned char* p = at;
        const unsigned char* const end = at + content;
        std::size_t count = 0;
        while (p < end && Skip<E>(p, end)) {
            ++count;
        }
        return count;
    }

    // EF BB BF at the walk's position, with one load: the content holds at least 4 bytes.
    WARDEND_FORCE_INLINE bool StartsWithBom() const {
        constexpr std::uint32_t kMask =
            serialize::detail::HostIsLittleEndian() ? 0x00FFFFFFU : 0xFFFFFF00U;
        constexpr std::uint32_t kBom =
            serialize::detail::HostIsLittleEndian() ? 0x00BFBBEFU : 0xEFBBBF00U;
        std::uint32_t head = 0;
        std::memcpy(&head, at, sizeof(head));
        return (head & kMask) == kBom;
    }

    // The content length of a string, vector or map: false (and the walk failed) when the
    // content is not there. The walk then stands on the content.
    WARDEND_FORCE_INLINE bool TakeLength(std::uint64_t& content) {
        content = Load<std::uint32_t>();
        at += kPlainWidth;
        if (WARDEND_UNLIKELY(content > room)) {
            ok = false;
            return false;
        }
        room -= content;
        return true;
    }

    template <typename M>
    WARDEND_FORCE_INLINE void operator()(M& member) {
        if constexpr (serialize::detail::kIsScalar<M>) {
            member = Load<M>();
            at += sizeof(M);
        } else if constexpr (serialize::detail::IsRecord<M>::value) {
            member.enumerate(*this);
        } else if constexpr (std::is_same_v<M, ara::core::String>) {
            ReadString(member);
        } else if constexpr (serialize::detail::IsVector<M>::value) {
            ReadVector(member);
        } else {
            ReadMap(member);
        }
    }

    WARDEND_FORCE_INLINE void ReadString(ara::core::String& out) {
        std::uint64_t content = 0;
        if (!TakeLength(content)) {
            return;
        }
        if (raw) {
            serialize::detail::AssignText(out, at, content);
        } else {
            if (WARDEND_UNLIKELY(content < 4 || !StartsWithBom() || at[content - 1] != 0)) {
                ok = false;
                return;
            }
            serialize::detail::AssignText(out, at + 3, content - 4);
        }
        at += content;
    }

    // Elements read over the ones there, so that their strings keep their storage.
    template <typename E, typename A>
    WARDEND_FORCE_INLINE void ReadVector(std::vector<E, A>& out) {
        std::uint64_t content = 0;
        if (!TakeLength(content)) {
            return;
        }
        if constexpr (serialize::detail::kIsScalar<E>) {
            if (content % sizeof(E) != 0) {
                ok = false;
                return;
            }
            const std::uint64_t count = content / sizeof(E);
            if (out.size() != count) {
                out.resize(count);
            }
            if constexpr ((!kSwap || sizeof(E) == 1) && !std::is_same_v<E, bool>) {
                serialize::detail::CopyBytes(reinterpret_cast<unsigned char*>(out.data()), at,
                                             content);
                at += content;
            } else {
                for (std::uint64_t i = 0; i < count; ++i) {
                    out[i] = Load<E>();
                    at += sizeof(E);
                }
            }
        } else {
            static_assert(kMinBytes<E> != 0, "every element takes a byte, so the walk ends");
            // Growing by doubling would move every element read so far, again and again, and
            // touch twice the memory. When the vector may have to grow, its elements are counted
            // first by their length fields: a large answer is then read into one allocation of
            // its size, and a hostile length reserves no more than the elements that are there.
            if (out.capacity() < content / kMinBytes<E>) {
                const std::size_t count = CountElements<E>(content);
                if (out.capacity() < count) {
                    out.reserve(count);
                }
            }
            const std::uint64_t outerRoom = room;
            const unsigned char* const end = at + content;
            room = content;
            std::size_t count = 0;
            while (at < end && ok) {
                if (room < kMinBytes<E>) {
                    ok = false;
                    break;
                }
                room -= kMinBytes<E>;
                (*this)(count < out.size() ? out[count] : out.emplace_back());
                ++count;
            }
            if (ok && out.size() > count) {
                out.erase(out.begin() + static_cast<std::ptrdiff_t>(count), out.end());
            }
            at = end;
            room = outerRoom;
        }
    }

    // While the keys come in the order of the nodes there, values are read into those nodes;
    // from the first key that differs the rest is built anew, a repeated key keeping its first
    // value as in the member-by-member read.
    template <typename K, typename V, typename C, typename A>
    WARDEND_FORCE_INLINE void ReadMap(std::map<K, V, C, A>& out) {
        constexpr std::uint64_t kPair = kMinBytes<K> + kMinBytes<V>;
        std::uint64_t content = 0;
        if (!TakeLength(content)) {
            return;
        }
        const std::uint64_t outerRoom = room;
        const unsigned char* const end = at + content;
        room = content;
        auto node = out.begin();
        bool inPlace = true;
        K key{};
        while (at < end && ok) {
            if (room < kPair) {
                ok = false;
                break;
            }
            room -= kPair;
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
        at = end;
        room = outerRoom;
    }
};

// Whether PlainWalk reads values under these settings.
inline bool IsPlain(const SerializeConfig& config, const SerializationNode* node) {
    return node == nullptr && HasPlainWidths(config);
}

// Bytes of the value read into `out` by PlainWalk, or kSizeFailure (nothing logged).
template <typename T>
std::uint64_t ReadPlain(const unsigned char* data, std::uint64_t length,
                        const SerializeConfig& config, T& out) {
    constexpr std::uint64_t kMin = kMinBytes<T>;
    if (length < kMin) {
        return kSizeFailure;
    }
    const auto walk = [&](auto plain) {
        plain(out);
        return plain.ok ? static_cast<std::uint64_t>(plain.at - data) : kSizeFailure;
    };
    if ((config.byteOrder == ByteOrder::kLittleEndian) != serialize::detail::HostIsLittleEndian()) {
        return walk(PlainWalk<true>{data, length - kMin, config.isStringRaw});
    }
    return walk(PlainWalk<false>{data, length - kMin, config.isStringRaw});
}

}  // namespace detail

// Deserializer of one value. data points at the value's first byte; position is its offset from
// the first payload byte (for alignment only).
template <typename T>
class Deserializer {
public:
    Deserializer(const unsigned char* data, unsigned long length, SerializeConfig config)
        : data_(data), length_(data == nullptr ? 0 : length), config_(std::move(config)) {}
    Deserializer(const unsigned char* data, unsigned long length,
                 std::shared_ptr<SerializationNode> node, std::uint64_t position = 0,
                 bool isLastInStream = true)
        : data_(data),
          length_(data == nullptr ? 0 : length),
          config_(DefaultSerializeConfig()),
          node_(std::move(node)),
          position_(position),
          isLastInStream_(isLastInStream) {}

    // Bytes the value takes in the stream, with the padding behind it when that is there, or
    // kSizeFailure. Reads the value on the way; the result is cached.
    std::uint64_t GetSize() {
        if (!done_) {
            ReadInto(value_.emplace(), true);
        }
        return size_;
    }

    // The value read; after a failure the members read before it and defaults behind.
    const T& GetValue() {
        (void)GetSize();
        T& value = read_ != nullptr ? *read_ : *value_;
        if (size_ > kSizeMax && !done_value_) {
            done_value_ = true;
            if constexpr (serialize::detail::kIsScalar<T>) {
                detail::LogRead(
                    "Invalid parameter for trivially copyable type: size, it's insufficient!");
                std::array<unsigned char, sizeof(T)> bytes{};
                const ByteOrder order = node_ != nullptr ? node_->byteOrder : config_.byteOrder;
                for (std::size_t i = 0; i < bytes.size() && i < length_; ++i) {
                    bytes[i] = data_[i];
                }
                value = serialize::detail::ScalarFromBits<T>(
                    serialize::detail::LoadUint(bytes.data(), sizeof(T), order));
            }
        }
        return value;
    }

    // Reads the value into `out`, which then equals what GetValue() returns. A value kept from
    // one message to the next is read over: its strings and vectors keep their storage and a map
    // whose keys come again in order keeps its nodes, which spares the allocations of a fresh
    // value. Called before GetSize(), it reads straight into `out`, and GetSize() and GetValue()
    // then answer from it (so `out` must outlive them); afterwards it copies. True when the
    // stream held the whole value.
    bool GetValue(T& out) {
        if (!done_) {
            ReadInto(out, false);
            read_ = &out;
        }
        const T& value = GetValue();
        if (&value != &out) {
            out = value;
        }
        return size_ <= kSizeMax;
    }
    // For strings: the number of characters, or kSizeFailure.
    std::uint64_t SetDataLength() {
        static_assert(std::is_same_v<T, ara::core::String>, "strings only");
        return GetSize() > kSizeMax ? kSizeFailure : GetValue().size();
    }

private:
    // `fresh`: out is still default-constructed.
    void ReadInto(T& out, bool fresh) {
        done_ = true;
        if (detail::IsPlain(config_, node_.get())) {
            size_ = detail::ReadPlain(data_, length_, config_, out);
            if (size_ <= kSizeMax) {
                return;
            }
            fresh = false;
        }
        // Read again from a fresh value, member by member, for the partial value and the log
        // lines.
        if (!fresh) {
            out = T{};
        }
        const ValueContext context{&config_, node_.get(), position_, isLastInStream_};
        const ReadResult r = Reader<T>::Read(data_, length_, context, out);
        std::uint64_t step = kSizeFailure;
        if (!r.Failed() && detail::Advance(r, length_, true, step)) {
            size_ = step;
        }
    }

    const unsigned char* data_;
    std::uint64_t length_;
    SerializeConfig config_;
    std::shared_ptr<SerializationNode> node_;
    std::uint64_t position_{0};
    bool isLastInStream_{true};
    std::optional<T> value_;  // built only when no value of the caller's is read into
    T* read_{nullptr};        // the caller's value that GetValue(T&) read into, if any
    std::uint64_t size_{kSizeFailure};
    bool done_{false};
    bool done_value_{false};
};

}  // namespace lumo::serialize::someip

#endif
