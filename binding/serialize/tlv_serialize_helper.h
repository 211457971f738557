#ifndef BINDING_SERIALIZE_TLV_SERIALIZE_HELPER_H
#define BINDING_SERIALIZE_TLV_SERIALIZE_HELPER_H

// The two primitives of the tag-length-value form of SOME/IP: writing a length field, and
// scanning a stream for its tags. A tag is 16 bits: bit 15 zero, bits 14-12 the wire type,
// bits 11-0 the data id.

#include <array>
#include <cstdint>
#include <cstring>
#include <unordered_map>

#include "binding/serialize/bounded_copy.h"
#include "binding/serialize/serialize_traits.h"
#include "platform/serialize/serialize_config.h"

namespace tlv::serialize {

// One tag found in a stream.
struct DataIdParams {
    std::uint16_t dataId{0};
    std::uint64_t position{0};         // first byte behind the tag
    std::uint64_t length{0};           // bytes from position to the next tag, length field included
    std::uint8_t lengthFieldWidth{0};  // 0, 1, 2 or 4
};

using DataIdTable = std::unordered_map<std::uint16_t, DataIdParams>;

struct DataIdRecord {
    DataIdTable table;
    // Offset behind the last tag's content; may lie behind the stream, which the caller refuses.
    // kSizeFailure (with an empty table) when the scan failed.
    std::uint64_t consumed{0};
};

enum class WireType : std::uint8_t {
    kBase8 = 0,
    kBase16 = 1,
    kBase32 = 2,
    kBase64 = 3,
    kStaticLength = 4,
    kDynamicLength1 = 5,
    kDynamicLength2 = 6,
    kDynamicLength4 = 7,
};

inline constexpr std::uint16_t kDataIdMask = 0x0FFF;

constexpr std::uint16_t MakeTag(WireType wireType, std::uint16_t dataId) {
    return static_cast<std::uint16_t>((static_cast<unsigned>(wireType) << 12U) |
                                      (dataId & kDataIdMask));
}

// The wire type of a complex member by the width its dynamic length field took (3 gives 0).
constexpr WireType DynamicWireType(std::uint64_t width) {
    switch (width) {
        case 1:
            return WireType::kDynamicLength1;
        case 2:
            return WireType::kDynamicLength2;
        case 4:
            return WireType::kDynamicLength4;
        default:
            return WireType::kBase8;
    }
}

// The wire type of a scalar member by its width.
constexpr WireType ScalarWireType(std::uint64_t width) {
    switch (width) {
        case 2:
            return WireType::kBase16;
        case 4:
            return WireType::kBase32;
        case 8:
            return WireType::kBase64;
        default:
            return WireType::kBase8;
    }
}

class TlvSerializeHelper {
public:
    // Writes value in width bytes (0 writes nothing; 1, 2 and 4 are valid).
    static void CopyLengthField(unsigned char* destination, unsigned long value,
                                unsigned long width, lumo::serialize::ByteOrder order) {
        if (width == 0) {
            return;
        }
        // Only a null destination or an unsupported width can fail; both log.
        if (destination != nullptr) {
            switch (width) {
                case 1:
                    *destination = static_cast<unsigned char>(value);
                    return;
                case 2: {
                    const auto bytes = lumo::serialize::detail::EncodeScalar(
                        static_cast<std::uint16_t>(value), order);
                    std::memcpy(destination, bytes.data(), bytes.size());
                    return;
                }
                case 4: {
                    const auto bytes = lumo::serialize::detail::EncodeScalar(
                        static_cast<std::uint32_t>(value), order);
                    std::memcpy(destination, bytes.data(), bytes.size());
                    return;
                }
                default:
                    break;
            }
        }
        LogLengthFieldFailure();
    }

    // Scans the tags of a stream. staticWidth is the length field width of wire type 4.
    static DataIdRecord RecordDataId(lumo::serialize::ByteOrder order, unsigned char staticWidth,
                                     const unsigned char* data, unsigned long size);

    // "[Someip Serializer] Memory copy struct static length fail."
    [[gnu::cold, gnu::noinline]] static void LogLengthFieldFailure();

    // Reads a length field of width 1, 2 or 4; other widths read 0.
    static std::uint64_t ReadLengthField(const unsigned char* data, std::uint64_t width,
                                         lumo::serialize::ByteOrder order) {
        switch (width) {
            case 1:
                return data[0];
            case 2:
                return lumo::serialize::detail::DecodeScalar<std::uint16_t>(data, order);
            case 4:
                return lumo::serialize::detail::DecodeScalar<std::uint32_t>(data, order);
            default:
                return 0;
        }
    }
};

}  // namespace tlv::serialize

#endif
