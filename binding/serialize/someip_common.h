#ifndef BINDING_SERIALIZE_SOMEIP_COMMON_H
#define BINDING_SERIALIZE_SOMEIP_COMMON_H

// What the SOME/IP writer and reader share: the settings that steer one value and the rules
// that derive widths and padding from them.

#include <cstdint>
#include <cstring>

#include "binding/serialize/bounded_copy.h"
#include "binding/serialize/serialize_log.h"
#include "platform/compiler/force_inline.h"
#include "platform/memory/memcpy_s.h"
#include "platform/serialize/serialize_config.h"

namespace lumo::serialize::someip {

// The settings of one value: the configuration, its node (may be null), its offset from the
// first payload byte, and whether nothing follows it in the message.
struct ValueContext {
    const SerializeConfig* config{nullptr};
    const SerializationNode* node{nullptr};
    std::uint64_t position{0};
    bool isLastInStream{false};
};

// Size of a value with its length field width and trailing padding; size kSizeFailure on error.
struct Layout {
    std::uint64_t size{kSizeFailure};
    std::uint64_t lengthWidth{0};
    std::uint8_t padding{0};
};

// The usual widths: 4-byte length fields for strings, vectors and maps, none for structures.
// Values without a node under them have fixed widths and no padding, which the plain writer and
// the plain read walk rely on.
inline bool HasPlainWidths(const SerializeConfig& config) {
    return config.stringLengthField == 4 && config.vectorLengthField == 4 &&
           config.structLengthField == 0;
}

namespace detail {

inline ByteOrder OrderOf(const ValueContext& c) {
    return c.node != nullptr ? c.node->byteOrder : c.config->byteOrder;
}

inline bool HasDataId(const ValueContext& c) {
    return c.node != nullptr && c.node->dataId != kNoDataId;
}

inline bool IsDynamic(const ValueContext& c) {
    const auto* node = c.node;  // read once: the analyzer does not carry HasDataId's check over
    return node != nullptr && node->dataId != kNoDataId && node->isDynamicLengthField == 1;
}

// The width of a value's length field: a tagged value's TLV width, else its node's or, without a
// node, the configuration's.
template <auto kNodeWidth, auto kConfigWidth>
std::uint64_t LengthWidthOf(const ValueContext& c) {
    const auto* node = c.node;  // read once, as in IsDynamic
    if (node == nullptr) {
        return c.config->*kConfigWidth;
    }
    return node->dataId != kNoDataId ? node->tlvLengthField : node->*kNodeWidth;
}

inline bool IsRaw(const ValueContext& c) {
    return c.node != nullptr ? c.node->isStringRaw : c.config->isStringRaw;
}

inline std::uint64_t DynamicWidth(std::uint64_t content) {
    if (content < 256) {
        return 1;
    }
    return content < 65536 ? 2 : 4;
}

// Bytes that bring the end of the value, counted in the message with its 16-byte header, to the
// node's alignment. Only untagged values with a node are aligned.
inline std::uint8_t AlignmentPadding(const ValueContext& c, std::uint64_t lengthWidth,
                                     std::uint64_t content) {
    if (c.node == nullptr || HasDataId(c) || c.node->alignment <= 1) {
        return 0;
    }
    const std::uint64_t end = c.position + lengthWidth + kSomeipHeaderSize + content;
    const std::uint64_t alignment = c.node->alignment;
    return static_cast<std::uint8_t>((alignment - end % alignment) % alignment);
}

// The writer pads only values that something follows.
inline std::uint8_t WritePadding(const ValueContext& c, std::uint64_t lengthWidth,
                                 std::uint64_t content) {
    return c.isLastInStream ? 0 : AlignmentPadding(c, lengthWidth, content);
}

// Settings of a nested value. Under a node every nested value gets the default configuration.
inline ValueContext ChildContext(const ValueContext& parent, const SerializationNode* child,
                                 std::uint64_t position, bool isLastInStream) {
    return ValueContext{parent.node != nullptr ? &DefaultSerializeConfig() : parent.config, child,
                        position, isLastInStream};
}

// The node of the n-th child, or null when the node has no such member.
inline const SerializationNode* NthMember(const SerializationNode* node, std::size_t index) {
    if (node == nullptr || node->members == nullptr || index >= node->members->size()) {
        return nullptr;
    }
    return (*node->members)[index].get();
}

[[gnu::cold, gnu::noinline]] inline void LogCopyFailure(const char* text) {
    SomeipLog().LogError() << text;
}

// The refusal path, out of line so that a successful copy inlines.
[[gnu::cold, gnu::noinline]] inline void RefuseCopy(unsigned char* dest, const void* src,
                                                    std::size_t count, const char* text) {
    if (memcpy_s(dest, count, src, count) != 0) {
        LogCopyFailure(text);
    }
}

// The destination was sized for count bytes, so only the pointers can make the copy fail.
[[gnu::noinline]] inline void CopyOrLog(unsigned char* dest, const void* src, std::size_t count,
                                        const char* text) {
    if (dest != nullptr && src != nullptr && count <= (SIZE_MAX >> 1U)) {
        serialize::detail::CopyBytes(dest, static_cast<const unsigned char*>(src), count);
        return;
    }
    RefuseCopy(dest, src, count, text);
}

// Fixed-width fields: the size is known here, so the copy compiles to a null test and a store.
template <std::size_t N>
WARDEND_FORCE_INLINE inline void CopyFixedOrLog(unsigned char* dest, const unsigned char* src,
                                                const char* text) {
    if (dest != nullptr && src != nullptr) {
        std::memcpy(dest, src, N);
        return;
    }
    RefuseCopy(dest, src, N, text);
}

inline constexpr const char* kCopyError =
    "[Someip Serializer] Memory copy return error, Invalid serialization.";

inline void LogTooFewNodes() {
    SizeCounterLog().LogError("SerializeSizeCounter", kPeerLimit)
        << "[SomeipSerializeSizeCounter][The number of configuration nodes is less than the "
           "number of data members, please check the consistency of the configuration and "
           "header files]";
}

}  // namespace detail
}  // namespace lumo::serialize::someip

#endif
