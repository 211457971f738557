#ifndef PLATFORM_VCC_UTILS_TLV_HELPER_H
#define PLATFORM_VCC_UTILS_TLV_HELPER_H

#include <cstdint>
#include <ctime>

namespace lumo::vcc::utils {

class TlvHelper {
public:
    // Bytes of the record that AddTlvTimeStamp writes.
    static constexpr std::uint32_t kTimeStampSize = 19;
    // Its TLV tag: wire type 5 (one-byte length field), data id 0xFFF.
    static constexpr std::uint16_t kTimeStampTag = 0x5FFF;

    // Writes the time stamp as a TLV member behind a payload: the tag (2 bytes), the length 16
    // (1 byte), seconds and nanoseconds as 8 bytes each, all big-endian.
    static void AddTlvTimeStamp(unsigned char* buffer, const timespec& time);
    // Reads it back; false when buffer does not hold such a record.
    static bool ReadTlvTimeStamp(const unsigned char* buffer, std::uint64_t size, timespec& time);
};

}  // namespace lumo::vcc::utils

#endif
