#ifndef TESTS_UNIT_SERIALIZE_NODE_BUILDER_H
#define TESTS_UNIT_SERIALIZE_NODE_BUILDER_H

// Builds a SerializationNode tree for a record type, one node per member, the way a generated
// configuration would: aligned trees, and TLV trees with data ids 1, 2, ... per structure.

#include <cstdint>
#include <memory>

#include "binding/serialize/serialize_traits.h"
#include "platform/serialize/serialize_config.h"

namespace wardend::test {

using lumo::serialize::ByteOrder;
using lumo::serialize::SerializationNode;

struct NodeStyle {
    std::uint8_t alignment{0};
    ByteOrder byteOrder{ByteOrder::kBigEndian};
    bool tlv{false};
    bool dynamic{false};        // tagged members choose their length width
    std::uint8_t width{4};      // every length field, and the TLV static width
    std::uint8_t rootWidth{0};  // the root structure's own length field
    bool raw{false};
};

template <typename T>
std::shared_ptr<SerializationNode> BuildNode(const NodeStyle& style, std::uint16_t dataId,
                                             std::uint8_t structWidth);

template <typename T>
std::shared_ptr<SerializationNode> BuildRootNode(const NodeStyle& style) {
    return BuildNode<T>(style, lumo::serialize::kNoDataId, style.rootWidth);
}

namespace detail {

struct MemberNodes {
    const NodeStyle* style;
    std::shared_ptr<SerializationNode::MemberList> list =
        std::make_shared<SerializationNode::MemberList>();

    template <typename M>
    void operator()(const M& /*member*/) {
        const auto id =
            style->tlv ? static_cast<std::uint16_t>(list->size() + 1) : lumo::serialize::kNoDataId;
        list->push_back(BuildNode<M>(*style, id, style->width));
    }
};

}  // namespace detail

template <typename T>
std::shared_ptr<SerializationNode> BuildNode(const NodeStyle& style, std::uint16_t dataId,
                                             std::uint8_t structWidth) {
    auto node = std::make_shared<SerializationNode>();
    node->alignment = style.alignment;
    node->byteOrder = style.byteOrder;
    node->isStringRaw = style.raw;
    node->isDynamicLengthField = style.dynamic ? 1 : 0;
    node->arrayLengthField = style.width;
    node->mapLengthField = style.width;
    node->vectorLengthField = style.width;
    node->stringLengthField = style.width;
    node->structLengthField = style.tlv ? structWidth : 0;
    node->tlvLengthField = style.width;
    node->dataId = dataId;
    using lumo::serialize::detail::IsMap;
    using lumo::serialize::detail::IsRecord;
    using lumo::serialize::detail::IsVector;
    if constexpr (IsRecord<T>::value) {
        node->isTlv = style.tlv;
        detail::MemberNodes collector{&style};
        T probe{};
        probe.enumerate(collector);
        collector.list->back()->isLast = true;
        node->members = collector.list;
    } else if constexpr (IsVector<T>::value) {
        using E = typename T::value_type;
        if constexpr (!lumo::serialize::detail::kIsScalar<E>) {
            node->members = std::make_shared<SerializationNode::MemberList>();
            node->members->push_back(BuildNode<E>(style, lumo::serialize::kNoDataId, style.width));
        }
    } else if constexpr (IsMap<T>::value) {
        node->members = std::make_shared<SerializationNode::MemberList>();
        node->members->push_back(
            BuildNode<typename T::key_type>(style, lumo::serialize::kNoDataId, style.width));
        node->members->push_back(
            BuildNode<typename T::mapped_type>(style, lumo::serialize::kNoDataId, style.width));
    }
    return node;
}

}  // namespace wardend::test

#endif
