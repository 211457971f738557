#ifndef PLATFORM_SERIALIZE_SERIALIZE_CONFIG_H
#define PLATFORM_SERIALIZE_SERIALIZE_CONFIG_H

// The framework's serialization settings, shared by the SOME/IP, DDS and TLV serializers.

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

namespace lumo::serialize {

// 1 is little-endian; any other value is treated as big-endian.
enum class ByteOrder : std::uint8_t { kBigEndian = 0, kLittleEndian = 1 };

// Sizes are 64 bits; this is the failure value of a size.
inline constexpr std::uint64_t kSizeFailure = 0xFFFFFFFFULL;
// The greatest size that callers accept.
inline constexpr std::uint64_t kSizeMax = 0xFFFFFFFEULL;
// A node whose dataId is this has no TLV tag.
inline constexpr std::uint16_t kNoDataId = 65535;
// SOME/IP header in front of every payload; padding is relative to the message.
inline constexpr std::uint64_t kSomeipHeaderSize = 16;

// Held by value and copied into every serializer.
class SerializeConfig {
public:
    SerializeConfig() = default;
    SerializeConfig(const SerializeConfig&) = default;
    SerializeConfig(SerializeConfig&&) = default;
    SerializeConfig& operator=(const SerializeConfig&) = default;
    SerializeConfig& operator=(SerializeConfig&&) = default;
    virtual ~SerializeConfig() = default;

    std::array<std::uint8_t, 6> policyFlags{1, 0, 0, 0, 0, 1};  // carried
    std::uint8_t reserved{0};
    ByteOrder byteOrder{ByteOrder::kBigEndian};
    std::uint64_t arrayLengthField{4};  // fixed arrays; none occur in this system
    std::uint64_t stringLengthField{4};
    std::uint64_t vectorLengthField{4};  // vectors and maps
    std::uint64_t spareLengthField{0};   // carried
    std::uint64_t structLengthField{0};  // 0: structures have no length field
    bool isStringRaw{false};             // no byte order mark, no terminator
    bool spareFlag{true};                // carried
    std::uint64_t spareWordA{0};         // carried
    std::uint64_t spareWordB{0};         // carried
};

// The configuration that every value steered by a node gets; the node's widths then apply.
const SerializeConfig& DefaultSerializeConfig();

// One per member of a configured structure.
struct SerializationNode {
    using MemberList = std::vector<std::shared_ptr<SerializationNode>>;

    std::uint8_t alignment{0};  // 0 or 1: none; otherwise padding boundary
    ByteOrder byteOrder{ByteOrder::kBigEndian};
    bool isStringRaw{false};
    std::uint8_t isDynamicLengthField{0};  // 1: in TLV the length field takes the smallest width
    std::uint8_t arrayLengthField{4};      // carried
    std::uint8_t mapLengthField{4};
    std::uint8_t vectorLengthField{4};
    std::uint8_t stringLengthField{4};
    std::uint8_t structLengthField{0};
    std::uint16_t dataId{kNoDataId};
    std::uint8_t tlvLengthField{4};  // wire type 4; for a tagged struct also its members' width
    bool isTlv{false};               // the structure's members carry tags
    bool isLast{false};              // the member is the last of its structure
    std::shared_ptr<MemberList> members;
};

// Greatest content a length field of that width may announce.
constexpr std::uint64_t LengthFieldLimit(std::uint64_t width) {
    switch (width) {
        case 1:
            return 0xFFULL;
        case 2:
            return 0xFFFFULL;
        case 3:
            return 0xFFFFFFFFULL;
        case 4:
            return 0xFFFFFFF0ULL;
        default:
            return 0xFFFFFFFFULL;
    }
}

}  // namespace lumo::serialize

#endif
