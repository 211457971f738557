#ifndef BINDING_SERIALIZE_SOMEIP_SERIALIZER_H
#define BINDING_SERIALIZE_SOMEIP_SERIALIZER_H

// SOME/IP payload writer. Two passes over the same value: GetSize measures (and caches), then
// Serialize writes. The write pass fills length fields behind their content, so it walks the
// value once; only dynamically sized TLV members are measured again to choose their width.

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>

#include "binding/serialize/serialize_traits.h"
#include "binding/serialize/someip_common.h"
#include "binding/serialize/someip_plain_writer.h"
#include "binding/serialize/tlv_serialize_helper.h"
#include "platform/core/string.h"

namespace lumo::serialize::someip {

template <typename T, typename Enable = void>
struct Writer;

// Integers, enumerations and bool in their natural width.
template <typename T>
struct Writer<T, std::enable_if_t<serialize::detail::kIsScalar<T>>> {
    static Layout Measure(const T& /*value*/, const ValueContext& /*context*/) {
        return Layout{sizeof(T), 0, 0};
    }
    static Layout Write(const T& value, const ValueContext& c, unsigned char* buffer) {
        const auto bytes = serialize::detail::EncodeScalar(value, detail::OrderOf(c));
        detail::CopyFixedOrLog<sizeof(T)>(buffer + c.position, bytes.data(), detail::kCopyError);
        return Layout{sizeof(T), 0, 0};
    }
};

// Length field, byte order mark EF BB BF, characters, terminator 00; raw strings only the
// length field and the characters.
template <>
struct Writer<ara::core::String> {
    static Layout Measure(const ara::core::String& value, const ValueContext& c) {
        const std::uint64_t content = value.size() + (detail::IsRaw(c) ? 0U : 4U);
        Layout layout;
        layout.lengthWidth =
            c.node != nullptr ? c.node->stringLengthField : c.config->stringLengthField;
        if (detail::IsDynamic(c)) {
            layout.lengthWidth = detail::DynamicWidth(content);
            layout.size = layout.lengthWidth + content;
            return layout;
        }
        layout.padding = detail::WritePadding(c, layout.lengthWidth, content);
        if (content > LengthFieldLimit(layout.lengthWidth)) {
            return Layout{};
        }
        layout.size = layout.lengthWidth + content + layout.padding;
        return layout;
    }

    static Layout Write(const ara::core::String& value, const ValueContext& c,
                        unsigned char* buffer) {
        static constexpr std::array<unsigned char, 3> kBom{0xEF, 0xBB, 0xBF};
        static constexpr unsigned char kTerminator = 0;
        const Layout layout = Measure(value, c);
        if (layout.size > kSizeMax) {
            return layout;
        }
        unsigned char* out = buffer + c.position;
        tlv::serialize::TlvSerializeHelper::CopyLengthField(
            out, layout.size - (layout.lengthWidth + layout.padding), layout.lengthWidth,
            detail::OrderOf(c));
        out += layout.lengthWidth;
        if (detail::IsRaw(c)) {
            if (!value.empty()) {
                detail::CopyOrLog(out, value.data(), value.size(),
                                  "[Someip Serializer String] Memory copy string data return "
                                  "error, invalid serialization");
            }
            return layout;
        }
        detail::CopyFixedOrLog<kBom.size()>(out, kBom.data(),
                                            "[Someip Serializer String] Memory copy BOM return "
                                            "error, invalid serialization.");
        if (!value.empty()) {
            detail::CopyOrLog(out + kBom.size(), value.data(), value.size(),
                              "[Someip Serializer String] Memory copy string data return error, "
                              "invalid serialization");
        }
        detail::CopyFixedOrLog<1>(out + kBom.size() + value.size(), &kTerminator,
                                  "[Someip Serializer String] Memory copy terminate return error, "
                                  "invalid serialization");
        return layout;
    }
};

namespace detail {

// Length-prefixed sequences (vectors, maps): measures the content at a given length field width
// and writes it; Policy supplies the per-kind parts.
template <typename Policy, typename C>
struct SequenceWriter {
    static Layout Measure(const C& value, const ValueContext& c) {
        Layout layout;
        layout.lengthWidth = Policy::LengthWidth(c);
        if (IsDynamic(c)) {
            // The content's own alignment may depend on the width: settle it in two steps.
            std::uint64_t content = Policy::MeasureContent(value, c, 4);
            if (content > kSizeMax) {
                return Layout{};
            }
            layout.lengthWidth = DynamicWidth(content);
            if (layout.lengthWidth != 4) {
                content = Policy::MeasureContent(value, c, layout.lengthWidth);
            }
            if (content > kSizeMax) {
                return Layout{};
            }
            layout.size = layout.lengthWidth + content;
            return layout;
        }
        const std::uint64_t content = Policy::MeasureContent(value, c, layout.lengthWidth);
        if (content > kSizeMax || content > LengthFieldLimit(layout.lengthWidth)) {
            return Layout{};
        }
        layout.padding = WritePadding(c, layout.lengthWidth, content);
        layout.size = content + layout.lengthWidth + layout.padding;
        return layout;
    }

    static Layout Write(const C& value, const ValueContext& c, unsigned char* buffer) {
        Layout layout;
        if (IsDynamic(c)) {
            layout = Measure(value, c);
            if (layout.size > kSizeMax) {
                return layout;
            }
        } else {
            layout.lengthWidth = Policy::LengthWidth(c);
        }
        const std::uint64_t content = Policy::WriteContent(value, c, layout.lengthWidth, buffer);
        if (!IsDynamic(c)) {
            layout.padding = WritePadding(c, layout.lengthWidth, content);
            layout.size = layout.lengthWidth + content + layout.padding;
        }
        tlv::serialize::TlvSerializeHelper::CopyLengthField(buffer + c.position, content,
                                                            layout.lengthWidth, OrderOf(c));
        return layout;
    }
};

// Adds member sizes; any above kSizeMax, or a sum above kSizeMax - 1, fails.
inline bool AddSize(std::uint64_t& total, std::uint64_t size) {
    if (size > kSizeMax) {
        return false;
    }
    total += size;
    return total <= kSizeMax - 1;
}

template <typename E>
struct VectorPolicy {
    static std::uint64_t LengthWidth(const ValueContext& c) {
        return c.node != nullptr ? c.node->vectorLengthField : c.config->vectorLengthField;
    }
    static ValueContext ElementContext(const ValueContext& c, std::uint64_t position,
                                       bool isFinal) {
        return ChildContext(c, NthMember(c.node, 0), position, c.isLastInStream && isFinal);
    }
    static std::uint64_t MeasureContent(const std::vector<E>& value, const ValueContext& c,
                                        std::uint64_t lengthWidth) {
        if constexpr (serialize::detail::kIsScalar<E>) {
            (void)c;
            (void)lengthWidth;
            return static_cast<std::uint64_t>(value.size()) * sizeof(E);
        } else {
            std::uint64_t total = 0;
            std::uint64_t position = c.position + lengthWidth;
            for (std::size_t i = 0; i < value.size(); ++i) {
                const Layout element = Writer<E>::Measure(
                    value[i], ElementContext(c, position, i + 1 == value.size()));
                if (!AddSize(total, element.size)) {
                    return kSizeFailure;
                }
                position += element.size;
            }
            return total;
        }
    }
    static std::uint64_t WriteContent(const std::vector<E>& value, const ValueContext& c,
                                      std::uint64_t lengthWidth, unsigned char* buffer) {
        unsigned char* out = buffer + c.position + lengthWidth;
        if constexpr (serialize::detail::kIsScalar<E>) {
            const ByteOrder order = OrderOf(c);
            const std::size_t bytes = value.size() * sizeof(E);
            if (bytes != 0 && order == ByteOrder::kLittleEndian &&
                serialize::detail::HostIsLittleEndian()) {
                CopyOrLog(out, value.data(), bytes,
                          "[Someip Serializer Vector] Memory copy return error, Invalid "
                          "serialization.");
            } else {
                for (std::size_t i = 0; i < value.size(); ++i) {
                    std::array<unsigned char, sizeof(E)> element{};
                    serialize::detail::StoreUint(
                        element.data(), serialize::detail::ScalarBits(value[i]), sizeof(E), order);
                    CopyFixedOrLog<sizeof(E)>(out + i * sizeof(E), element.data(), kCopyError);
                }
            }
            return bytes;
        } else {
            std::uint64_t position = c.position + lengthWidth;
            const std::uint64_t start = position;
            for (std::size_t i = 0; i < value.size(); ++i) {
                position +=
                    Writer<E>::Write(value[i], ElementContext(c, position, i + 1 == value.size()),
                                     buffer)
                        .size;
            }
            return position - start;
        }
    }
};

// Key with the first member node, value with the second.
template <typename K, typename V>
struct MapPolicy {
    using Map = std::map<K, V>;
    static std::uint64_t LengthWidth(const ValueContext& c) {
        return c.node != nullptr ? c.node->mapLengthField : c.config->vectorLengthField;
    }
    static std::uint64_t MeasureContent(const Map& value, const ValueContext& c,
                                        std::uint64_t lengthWidth) {
        std::uint64_t total = 0;
        std::uint64_t position = c.position + lengthWidth;
        std::size_t index = 0;
        for (const auto& [key, mapped] : value) {
            const bool isFinal = ++index == value.size();
            const Layout keyLayout =
                Writer<K>::Measure(key, ChildContext(c, NthMember(c.node, 0), position, false));
            if (!AddSize(total, keyLayout.size)) {
                return kSizeFailure;
            }
            position += keyLayout.size;
            const Layout valueLayout = Writer<V>::Measure(
                mapped,
                ChildContext(c, NthMember(c.node, 1), position, c.isLastInStream && isFinal));
            if (!AddSize(total, valueLayout.size)) {
                return kSizeFailure;
            }
            position += valueLayout.size;
        }
        return total;
    }
    static std::uint64_t WriteContent(const Map& value, const ValueContext& c,
                                      std::uint64_t lengthWidth, unsigned char* buffer) {
        std::uint64_t position = c.position + lengthWidth;
        const std::uint64_t start = position;
        std::size_t index = 0;
        for (const auto& [key, mapped] : value) {
            const bool isFinal = ++index == value.size();
            position += Writer<K>::Write(
                            key, ChildContext(c, NthMember(c.node, 0), position, false), buffer)
                            .size;
            position += Writer<V>::Write(mapped,
                                         ChildContext(c, NthMember(c.node, 1), position,
                                                      c.isLastInStream && isFinal),
                                         buffer)
                            .size;
        }
        return position - start;
    }
};

}  // namespace detail

template <typename E, typename A>
struct Writer<std::vector<E, A>> : detail::SequenceWriter<detail::VectorPolicy<E>, std::vector<E>> {
};

template <typename K, typename V, typename C, typename A>
struct Writer<std::map<K, V, C, A>>
    : detail::SequenceWriter<detail::MapPolicy<K, V>, std::map<K, V>> {};

namespace detail {

// Values that no node steers under the usual widths go through the plain writer.
inline bool IsPlain(const ValueContext& c) {
    return c.node == nullptr && HasPlainWidths(*c.config);
}

template <typename T>
std::uint64_t PlainSize(const T& value, const SerializeConfig& config) {
    const std::uint64_t size =
        config.byteOrder == ByteOrder::kLittleEndian
            ? PlainWriter<ByteOrder::kLittleEndian>(config.isStringRaw).Size(value)
            : PlainWriter<ByteOrder::kBigEndian>(config.isStringRaw).Size(value);
    return size > kSizeMax - 1 ? kSizeFailure : size;
}

// Writes what PlainSize accepted at out; returns the bytes written.
template <typename T>
std::uint64_t PlainWrite(const T& value, const SerializeConfig& config, unsigned char* out) {
    const unsigned char* end =
        config.byteOrder == ByteOrder::kLittleEndian
            ? PlainWriter<ByteOrder::kLittleEndian>(config.isStringRaw).Write(value, out)
            : PlainWriter<ByteOrder::kBigEndian>(config.isStringRaw).Write(value, out);
    return static_cast<std::uint64_t>(end - out);
}

}  // namespace detail

// Measures the members of a structure in wire order. Each member takes the next child of the
// structure's node; with TLV a tagged member is preceded by its 2-byte tag.
class SerializeSizeCounter {
public:
    SerializeSizeCounter(const ValueContext& structure, std::uint64_t start)
        : structure_(structure), position_(start) {}

    template <typename M>
    void operator()(const M& member) {
        MeasureMember(member);
    }

    std::uint64_t Total() const { return failed_ ? kSizeFailure : total_; }

protected:
    template <typename M>
    void MeasureMember(const M& member) {
        if (failed_) {
            return;
        }
        if (structure_.node == nullptr) {  // no tags, no child nodes
            const Layout layout = Writer<M>::Measure(
                member, ValueContext{structure_.config, nullptr, position_, false});
            if (!detail::AddSize(total_, layout.size)) {
                failed_ = true;
                return;
            }
            position_ += layout.size;
            return;
        }
        const SerializationNode* child = nullptr;
        if (!NextChild(child)) {
            return;
        }
        const std::uint64_t tagBytes = Tagged(child) ? 2 : 0;
        const Layout layout = Writer<M>::Measure(member, MemberContext(child, tagBytes));
        if (layout.size > kSizeMax || !detail::AddSize(total_, tagBytes + layout.size)) {
            failed_ = true;
            return;
        }
        position_ += tagBytes + layout.size;
    }

    bool NextChild(const SerializationNode*& child) {
        if (structure_.node == nullptr) {
            return true;
        }
        child = detail::NthMember(structure_.node, index_++);
        if (child == nullptr) {
            detail::LogTooFewNodes();
            failed_ = true;
            return false;
        }
        return true;
    }
    bool Tagged(const SerializationNode* child) const {
        return structure_.node != nullptr && structure_.node->isTlv && child != nullptr &&
               child->dataId != kNoDataId;
    }
    ValueContext MemberContext(const SerializationNode* child, std::uint64_t tagBytes) const {
        return detail::ChildContext(structure_, child, position_ + tagBytes,
                                    structure_.isLastInStream && child != nullptr && child->isLast);
    }

    ValueContext structure_;
    std::uint64_t position_;
    std::uint64_t total_{0};
    std::size_t index_{0};
    bool failed_{false};
};

// Writes the members of a structure at ascending positions: tag, then the value with its own
// length field.
class StructSerializeHelper : private SerializeSizeCounter {
public:
    StructSerializeHelper(const ValueContext& structure, std::uint64_t start, unsigned char* buffer)
        : SerializeSizeCounter(structure, start), buffer_(buffer) {}

    template <typename M>
    void operator()(const M& member) {
        WriteMember(member);
    }

    std::uint64_t Written() const { return failed_ ? kSizeFailure : total_; }

private:
    template <typename M>
    void WriteMember(const M& member) {
        if (failed_) {
            return;
        }
        if (structure_.node == nullptr) {
            const Layout layout = Writer<M>::Write(
                member, ValueContext{structure_.config, nullptr, position_, false}, buffer_);
            if (layout.size > kSizeMax) {
                failed_ = true;
                return;
            }
            position_ += layout.size;
            total_ += layout.size;
            return;
        }
        const SerializationNode* child = nullptr;
        if (!NextChild(child)) {
            return;
        }
        const bool tagged = Tagged(child);
        const std::uint64_t tagBytes = tagged ? 2 : 0;
        const Layout layout = Writer<M>::Write(member, MemberContext(child, tagBytes), buffer_);
        if (layout.size > kSizeMax) {
            failed_ = true;
            return;
        }
        if (tagged) {
            tlv::serialize::WireType wireType = tlv::serialize::WireType::kStaticLength;
            if constexpr (serialize::detail::kIsScalar<M>) {
                wireType = tlv::serialize::ScalarWireType(sizeof(M));
            } else {
                if (child->isDynamicLengthField == 1) {
                    wireType = tlv::serialize::DynamicWireType(layout.lengthWidth);
                }
            }
            std::array<unsigned char, 2> tag{};
            serialize::detail::StoreUint(tag.data(),
                                         tlv::serialize::MakeTag(wireType, child->dataId), 2,
                                         detail::OrderOf(structure_));
            detail::CopyFixedOrLog<2>(buffer_ + position_, tag.data(), detail::kCopyError);
        }
        position_ += tagBytes + layout.size;
        total_ += tagBytes + layout.size;
    }

    unsigned char* buffer_;
};

// A structure: optional length field, then its members.
template <typename T>
struct Writer<T, std::enable_if_t<serialize::detail::IsRecord<T>::value>> {
    static std::uint64_t StaticLengthWidth(const ValueContext& c) {
        const auto* node = c.node;
        std::uint64_t width =
            node != nullptr ? node->structLengthField : c.config->structLengthField;
        // A tagged structure needs a length field to be skipped by readers.
        if (width == 0 && node != nullptr && node->dataId != kNoDataId) {
            width = node->tlvLengthField;
        }
        return width;
    }

    static std::uint64_t MeasureContent(const T& value, const ValueContext& c,
                                        std::uint64_t lengthWidth) {
        SerializeSizeCounter counter(c, c.position + lengthWidth);
        value.enumerate(counter);
        return counter.Total();
    }

    static Layout Measure(const T& value, const ValueContext& c) {
        if (detail::IsPlain(c)) {
            const std::uint64_t size = detail::PlainSize(value, *c.config);
            return size > kSizeMax ? Layout{} : Layout{size, 0, 0};
        }
        Layout layout;
        if (detail::IsDynamic(c)) {
            std::uint64_t content = MeasureContent(value, c, 4);
            if (content > kSizeMax) {
                return Layout{};
            }
            layout.lengthWidth = detail::DynamicWidth(content);
            if (layout.lengthWidth != 4) {
                content = MeasureContent(value, c, layout.lengthWidth);
            }
            if (content > kSizeMax) {
                return Layout{};
            }
            layout.size = layout.lengthWidth + content;
            return layout;
        }
        layout.lengthWidth = StaticLengthWidth(c);
        const std::uint64_t content = MeasureContent(value, c, layout.lengthWidth);
        if (content > kSizeMax || content > LengthFieldLimit(layout.lengthWidth)) {
            return Layout{};
        }
        layout.padding = detail::WritePadding(c, layout.lengthWidth, content);
        layout.size = layout.lengthWidth + content + layout.padding;
        if (layout.size > kSizeMax) {
            return Layout{};
        }
        return layout;
    }

    static Layout Write(const T& value, const ValueContext& c, unsigned char* buffer) {
        if (detail::IsPlain(c)) {
            return Layout{detail::PlainWrite(value, *c.config, buffer + c.position), 0, 0};
        }
        Layout layout;
        if (detail::IsDynamic(c)) {
            layout = Measure(value, c);
            if (layout.size > kSizeMax) {
                return layout;
            }
        } else {
            layout.lengthWidth = StaticLengthWidth(c);
        }
        StructSerializeHelper helper(c, c.position + layout.lengthWidth, buffer);
        value.enumerate(helper);
        const std::uint64_t content = helper.Written();
        if (content > kSizeMax) {
            return Layout{};
        }
        if (!detail::IsDynamic(c)) {
            layout.padding = detail::WritePadding(c, layout.lengthWidth, content);
            layout.size = layout.lengthWidth + content + layout.padding;
        }
        tlv::serialize::TlvSerializeHelper::CopyLengthField(buffer + c.position, content,
                                                            layout.lengthWidth, detail::OrderOf(c));
        return layout;
    }
};

// Serializer of one value. The root of a reply or event steered by a node is created with
// isLastInStream true, so that nothing is padded behind its last member.
template <typename T>
class Serializer {
public:
    Serializer(const T& value, SerializeConfig config,
               std::shared_ptr<SerializationNode> node = nullptr, std::uint64_t position = 0,
               bool isLastInStream = false)
        : value_(&value),
          config_(std::move(config)),
          node_(std::move(node)),
          position_(position),
          isLastInStream_(isLastInStream) {}

    // The serializer keeps a pointer to the value: a temporary would dangle.
    Serializer(const T&& value, SerializeConfig config,
               std::shared_ptr<SerializationNode> node = nullptr, std::uint64_t position = 0,
               bool isLastInStream = false) = delete;

    // Total bytes including the length field and padding, or kSizeFailure. Cached.
    std::uint64_t GetSize() {
        if (size_ == kSizeFailure && detail::IsPlain(Context())) {
            size_ = detail::PlainSize(*value_, config_);
            constexpr bool kFramed =
                !serialize::detail::kIsScalar<T> && !serialize::detail::IsRecord<T>::value;
            lengthWidth_ = kFramed ? PlainWriter<ByteOrder::kBigEndian>::kLengthWidth : 0;
            padding_ = 0;
        } else if (size_ == kSizeFailure) {
            const Layout layout = Writer<T>::Measure(*value_, Context());
            size_ = layout.size;
            lengthWidth_ = static_cast<std::uint8_t>(layout.lengthWidth);
            padding_ = layout.padding;
        }
        return size_;
    }

    // Writes at buffer + position, which must hold GetSize() bytes. Writes nothing if the size
    // fails. Padding bytes are left as they are.
    void Serialize(unsigned char* buffer) {
        if (GetSize() > kSizeMax) {
            return;
        }
        if (buffer == nullptr) {  // every later destination lies inside the buffer
            detail::LogCopyFailure(detail::kCopyError);
            return;
        }
        if (detail::IsPlain(Context())) {
            (void)detail::PlainWrite(*value_, config_, buffer + position_);
            return;
        }
        (void)Writer<T>::Write(*value_, Context(), buffer);
    }

    // True when the value is written without a node: every byte, no padding.
    bool IsPlain() const { return detail::IsPlain(Context()); }
    std::uint8_t GetLengthWidth() const { return lengthWidth_; }
    std::uint8_t GetPadding() const { return padding_; }

private:
    ValueContext Context() const {
        return ValueContext{&config_, node_.get(), position_, isLastInStream_};
    }

    const T* value_;
    SerializeConfig config_;
    std::shared_ptr<SerializationNode> node_;
    std::uint64_t size_{kSizeFailure};
    std::uint8_t lengthWidth_{0};
    std::uint64_t position_;
    std::uint8_t padding_{0};
    bool isLastInStream_;
};

}  // namespace lumo::serialize::someip

#endif
