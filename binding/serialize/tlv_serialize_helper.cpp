#include "binding/serialize/tlv_serialize_helper.h"

#include <array>

#include "binding/serialize/bounded_copy.h"
#include "binding/serialize/serialize_log.h"
#include "binding/serialize/serialize_traits.h"

namespace tlv::serialize {

using lumo::serialize::ByteOrder;
using lumo::serialize::kPeerLimit;
using lumo::serialize::kSizeFailure;
using lumo::serialize::TlvLog;
using lumo::serialize::detail::LoadUint;

void TlvSerializeHelper::LogLengthFieldFailure() {
    TlvLog().LogError() << "[Someip Serializer] Memory copy struct static length fail.";
}

DataIdRecord TlvSerializeHelper::RecordDataId(ByteOrder order, unsigned char staticWidth,
                                              const unsigned char* data, unsigned long size) {
    DataIdRecord result;
    if (size == 0) {
        return result;
    }
    const auto fail = [&result]() {
        result.table.clear();
        result.consumed = kSizeFailure;
        return result;
    };
    std::uint64_t offset = 0;
    while (size - offset >= 2) {
        const auto tag = static_cast<std::uint16_t>(LoadUint(data + offset, 2, order));
        const auto wireType = static_cast<unsigned>((tag >> 12U) & 0x7U);  // bit 15 ignored
        const auto dataId = static_cast<std::uint16_t>(tag & kDataIdMask);
        const std::uint64_t position = offset + 2;
        const std::uint64_t remaining = size - position;

        DataIdParams params;
        params.dataId = dataId;
        params.position = position;
        // Wire type 4 with a static width of 1, 2 or 4 reads like 5, 6 or 7.
        std::uint64_t lengthWidth = 0;
        bool lengthMissing = false;
        switch (wireType) {
            case 0:
            case 1:
            case 2:
            case 3:
                params.length = 1ULL << wireType;
                break;
            case 4:
                if (staticWidth == 0) {
                    return fail();
                }
                if (staticWidth > remaining) {
                    lengthMissing = true;
                } else if (staticWidth == 1 || staticWidth == 2 || staticWidth == 4) {
                    lengthWidth = staticWidth;
                } else {
                    params.length = staticWidth;
                }
                break;
            case 5:
                lengthWidth = 1;
                break;
            case 6:
                lengthWidth = 2;
                break;
            default:
                lengthWidth = 4;
                break;
        }
        if (lengthWidth != 0) {
            if (remaining < lengthWidth) {
                lengthMissing = true;
            } else {
                params.length = LoadUint(data + position, lengthWidth, order) + lengthWidth;
                params.lengthFieldWidth = static_cast<std::uint8_t>(lengthWidth);
            }
        }
        if (lengthMissing) {
            static const ara::core::String kTag =
                "[TLV] Lack of enough code stream to get pos length";
            TlvLog().LogError(kTag, kPeerLimit) << kTag << "[dataId" << dataId << "]";
            return fail();
        }
        result.table.emplace(dataId, params);  // a repeated id keeps its first record

        const std::uint64_t next = position + params.length;
        if (next >= kSizeFailure) {
            return fail();  // would read as the failure value; the caller refuses it either way
        }
        if (next >= size) {
            result.consumed = next;
            return result;
        }
        offset = next;
    }
    static const ara::core::String kTag = "[TLV] Lack of enough code stream to get tag";
    TlvLog().LogError(kTag, kPeerLimit) << kTag;
    return fail();
}

}  // namespace tlv::serialize
