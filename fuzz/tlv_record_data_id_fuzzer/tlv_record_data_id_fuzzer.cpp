// The TLV tag scan: the first byte chooses byte order and static width, the rest is the stream.
// A scan either fails with an empty table or describes tags that lie inside the stream.

#include <cstddef>
#include <cstdint>

#include "binding/serialize/tlv_serialize_helper.h"
#include "fuzz/fuzz_inputs.h"
#include "platform/log/log.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    ara::tessel::common::log::Log::SetLevel(ara::tessel::common::log::LogLevel::kOff);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using wardend::fuzz::Require;
    if (size < 1) {
        return 0;
    }
    const auto order = (data[0] & 0x80U) != 0 ? lumo::serialize::ByteOrder::kLittleEndian
                                              : lumo::serialize::ByteOrder::kBigEndian;
    const auto staticWidth = static_cast<unsigned char>(data[0] & 0x07U);
    const std::uint8_t* stream = data + 1;
    const std::size_t length = size - 1;
    const auto result =
        tlv::serialize::TlvSerializeHelper::RecordDataId(order, staticWidth, stream, length);
    if (result.consumed == lumo::serialize::kSizeFailure) {
        Require(result.table.empty());
        return 0;
    }
    Require(length == 0 || result.consumed >= 2);
    for (const auto& [id, params] : result.table) {
        Require(id == params.dataId && id <= tlv::serialize::kDataIdMask);
        Require(params.position >= 2 && params.position <= length);
        Require(params.position + params.lengthFieldWidth <= length);
        Require(params.position + params.length <= result.consumed);
        Require(params.lengthFieldWidth <= 4 && params.lengthFieldWidth != 3);
    }
    return 0;
}
