#include "binding/skeleton/error_reply.h"

#include <cstring>

#include "platform/log/log.h"
#include "platform/memory/memcpy_s.h"

namespace lumo::vcc {

namespace {

constexpr std::uint32_t kHeaderValue = 12;
constexpr std::uint8_t kErrorFlag = 1;

bool HostIsLittle() {
    const std::uint16_t probe = 1;
    unsigned char first = 0;
    std::memcpy(&first, &probe, 1);
    return first == 1;
}

// The bytes of value in the wire's order.
template <typename U>
void Put(unsigned char* out, U value, bool someip, serialize::ByteOrder order) {
    const bool little = someip ? order == serialize::ByteOrder::kLittleEndian : HostIsLittle();
    for (std::size_t i = 0; i < sizeof(U); ++i) {
        const std::size_t shift = 8 * (little ? i : sizeof(U) - 1 - i);
        out[i] = static_cast<unsigned char>((static_cast<std::uint64_t>(value) >> shift) & 0xFFU);
    }
}

template <typename U>
U Get(const unsigned char* in, bool someip, serialize::ByteOrder order) {
    const bool little = someip ? order == serialize::ByteOrder::kLittleEndian : HostIsLittle();
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof(U); ++i) {
        const std::size_t shift = 8 * (little ? i : sizeof(U) - 1 - i);
        value |= static_cast<std::uint64_t>(in[i]) << shift;
    }
    return static_cast<U>(value);
}

}  // namespace

void WriteErrorReply(unsigned char* buffer, const ara::core::ErrorCode& error, bool someip,
                     serialize::ByteOrder order) {
    unsigned char bytes[kErrorReplySize];
    Put<std::uint32_t>(bytes, kHeaderValue, someip, order);
    bytes[4] = kErrorFlag;
    Put<std::uint64_t>(bytes + 5, error.Domain().Id(), someip, order);
    Put<std::uint32_t>(bytes + 13, static_cast<std::uint32_t>(error.Value()), someip, order);
    if (memcpy_s(buffer, kErrorReplySize, bytes, kErrorReplySize) != 0) {
        if (someip) {
            ara::tessel::common::log::Log::GetLog("SOMEIPSerialize")->LogError()
                << "[Someip Serializer] Memory copy return error, Invalid serialization.";
        } else {
            ara::tessel::common::log::Log::GetLog("DDSSerialize")->LogError()
                << "[DDS Serializer] Memory copy return error, Invalid serialization.";
        }
    }
}

bool ReadErrorReply(const unsigned char* buffer, std::uint64_t size, bool someip,
                    serialize::ByteOrder order, std::uint64_t& domainId, std::int32_t& code) {
    if (buffer == nullptr || size < kErrorReplySize ||
        Get<std::uint32_t>(buffer, someip, order) != kHeaderValue || buffer[4] != kErrorFlag) {
        return false;
    }
    domainId = Get<std::uint64_t>(buffer + 5, someip, order);
    code = static_cast<std::int32_t>(Get<std::uint32_t>(buffer + 13, someip, order));
    return true;
}

}  // namespace lumo::vcc
