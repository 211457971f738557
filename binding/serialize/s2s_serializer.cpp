#include "binding/serialize/s2s_serializer.h"

namespace lumo::serialize::s2s {

namespace {

constexpr std::uint64_t kValueBits = 16;

unsigned char LowBits(unsigned int byte, std::uint64_t count) {
    return static_cast<unsigned char>(count >= 8 ? byte : byte & ((1U << count) - 1U));
}

// The highest byte a signal touches in each order; false when it lies outside the buffer.
bool FitsBuffer(const vcc::api::types::ISignal& signal, std::size_t bufferSize) {
    if (signal.byteOrder == vcc::api::types::ISignal::kIntel) {
        const std::uint64_t lastBit = signal.startBit + signal.bitLength - 1;
        return lastBit / 8 < bufferSize;
    }
    // Motorola: the start bit is the most significant; the signal grows to lower byte numbers
    // going towards its least significant bit.
    const std::uint64_t lsb = ((signal.startBit ^ 7U) + signal.bitLength - 1) ^ 7U;
    return signal.startBit / 8 < bufferSize && lsb / 8 < bufferSize;
}

}  // namespace

bool WriteSignal(std::uint16_t value, const vcc::api::types::Pdu& pdu, std::uint64_t signalIndex,
                 unsigned char* buffer, std::size_t bufferSize) {
    if (signalIndex >= pdu.ISignalCount()) {
        S2SLog().LogError() << "[S2S Serializer] Out of the pdu range, invalid serialization[pdu="
                            << pdu.Name() << "]";
        return false;
    }
    const auto signal = pdu[signalIndex];
    if (signal == nullptr) {
        return false;
    }
    if (signal->bitLength > kValueBits) {
        S2SLog().LogError() << "[S2S Serializer] Invalid iSignal length[pdu=" << pdu.Name()
                            << ", isignal=" << signal->name << ", dataTypeLen=" << kValueBits
                            << "]";
        return false;
    }
    if (signal->bitLength == 0) {
        return true;
    }
    if (buffer == nullptr || !FitsBuffer(*signal, bufferSize)) {
        S2SLog().LogError() << "[S2S Serializer] The iSignal lies outside the buffer[pdu="
                            << pdu.Name() << ", isignal=" << signal->name << "]";
        return false;
    }

    // Source bytes least significant first, whatever the host.
    const unsigned char source[2] = {static_cast<unsigned char>(value & 0xFFU),
                                     static_cast<unsigned char>(value >> 8U)};
    auto remaining = static_cast<std::int64_t>(signal->bitLength);
    if (signal->byteOrder == vcc::api::types::ISignal::kIntel) {
        std::uint64_t bit = signal->startBit;
        for (const unsigned char sourceByte : source) {
            if (remaining <= 0) {
                break;
            }
            const auto r = static_cast<std::uint64_t>(remaining);
            const std::uint64_t byte = bit / 8;
            const unsigned int shift = bit % 8;
            unsigned int b = sourceByte;
            if (8 - shift < r) {
                buffer[byte] |= static_cast<unsigned char>(b << shift);
                b = LowBits(b, r);
                buffer[byte + 1] |= static_cast<unsigned char>(b >> (8 - shift));
            } else {
                buffer[byte] |= static_cast<unsigned char>(LowBits(b, r) << shift);
            }
            remaining -= 8;
            bit += 8;
        }
        return true;
    }
    std::uint64_t bit = ((signal->startBit ^ 7U) + signal->bitLength - 1) ^ 7U;
    for (const unsigned char sourceByte : source) {
        if (remaining <= 0) {
            break;
        }
        const auto r = static_cast<std::uint64_t>(remaining);
        const std::uint64_t byte = bit / 8;
        const unsigned int shift = bit % 8;
        unsigned int b = sourceByte;
        if (8 - shift >= r) {
            buffer[byte] |= static_cast<unsigned char>(LowBits(b, r) << shift);
        } else {
            if (byte == 0) {
                break;  // only a layout inconsistent with its own start bit gets here
            }
            buffer[byte] |= static_cast<unsigned char>(b << shift);
            b = LowBits(b, r);
            buffer[byte - 1] |= static_cast<unsigned char>(b >> (8 - shift));
        }
        remaining -= 8;
        bit -= 8;
    }
    return true;
}

}  // namespace lumo::serialize::s2s
