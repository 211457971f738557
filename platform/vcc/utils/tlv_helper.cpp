#include "platform/vcc/utils/tlv_helper.h"

namespace lumo::vcc::utils {

namespace {

constexpr std::uint8_t kPayloadLength = 16;

void StoreBigEndian(unsigned char* out, std::uint64_t value, int width) {
    for (int i = width - 1; i >= 0; --i) {
        out[i] = static_cast<unsigned char>(value & 0xFFU);
        value >>= 8U;
    }
}

std::uint64_t LoadBigEndian(const unsigned char* in, int width) {
    std::uint64_t value = 0;
    for (int i = 0; i < width; ++i) {
        value = (value << 8U) | in[i];
    }
    return value;
}

}  // namespace

void TlvHelper::AddTlvTimeStamp(unsigned char* buffer, const timespec& time) {
    if (buffer == nullptr) {
        return;
    }
    StoreBigEndian(buffer, kTimeStampTag, 2);
    buffer[2] = kPayloadLength;
    StoreBigEndian(buffer + 3, static_cast<std::uint64_t>(time.tv_sec), 8);
    StoreBigEndian(buffer + 11, static_cast<std::uint64_t>(time.tv_nsec), 8);
}

bool TlvHelper::ReadTlvTimeStamp(const unsigned char* buffer, std::uint64_t size, timespec& time) {
    if (buffer == nullptr || size < kTimeStampSize || LoadBigEndian(buffer, 2) != kTimeStampTag ||
        buffer[2] != kPayloadLength) {
        return false;
    }
    time.tv_sec = static_cast<time_t>(LoadBigEndian(buffer + 3, 8));
    time.tv_nsec = static_cast<long>(LoadBigEndian(buffer + 11, 8));
    return time.tv_nsec >= 0 && time.tv_nsec < 1000000000L;
}

}  // namespace lumo::vcc::utils
