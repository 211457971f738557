#ifndef PLATFORM_DRIVER_SOMEIP_SD_MESSAGE_H
#define PLATFORM_DRIVER_SOMEIP_SD_MESSAGE_H

// SOME/IP-SD messages: the payload of service 0xFFFF method 0x8100. Entries and the options they
// reference, encoded and decoded by pure functions; the decoder checks every length first.

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/driver/someip/someip_header.h"

namespace lumo::driver::someip {

constexpr std::uint8_t kSdFlagReboot = 0x80;
constexpr std::uint8_t kSdFlagUnicast = 0x40;
constexpr std::size_t kSdEntrySize = 16;
constexpr std::uint32_t kSdTtlForever = 0xFFFFFF;
constexpr std::uint16_t kAnyInstance = 0xFFFF;
constexpr std::uint8_t kAnyMajor = 0xFF;
constexpr std::uint32_t kAnyMinor = 0xFFFFFFFF;

enum class SdEntryType : std::uint8_t {
    kFindService = 0x00,
    kOfferService = 0x01,            // TTL 0: StopOfferService
    kSubscribeEventgroup = 0x06,     // TTL 0: StopSubscribeEventgroup
    kSubscribeEventgroupAck = 0x07,  // TTL 0: Nack
};

enum class SdOptionType : std::uint8_t {
    kIpv4Endpoint = 0x04,
    kIpv4Multicast = 0x14,
};

enum class L4Protocol : std::uint8_t {
    kTcp = 0x06,
    kUdp = 0x11,
};

struct SdEntry {
    std::uint8_t type{0};
    std::uint8_t index1{0};  // first option of run 1
    std::uint8_t index2{0};  // first option of run 2
    std::uint8_t count1{0};  // 4 bits
    std::uint8_t count2{0};  // 4 bits
    std::uint16_t serviceId{0};
    std::uint16_t instanceId{0};
    std::uint8_t majorVersion{0};
    std::uint32_t ttl{0};  // 24 bits
    // Service entries.
    std::uint32_t minorVersion{0};
    // Eventgroup entries.
    std::uint8_t counter{0};  // 4 bits
    std::uint16_t eventgroupId{0};

    bool IsServiceEntry() const noexcept { return type <= 0x01; }
};

// An option as read. Types other than the IPv4 endpoint and multicast keep their place (entries
// count options by position) but no content.
struct SdOption {
    std::uint8_t type{0};
    std::array<std::uint8_t, 4> address{};
    std::uint8_t protocol{0};
    std::uint16_t port{0};

    bool IsIpv4() const noexcept {
        return type == static_cast<std::uint8_t>(SdOptionType::kIpv4Endpoint) ||
               type == static_cast<std::uint8_t>(SdOptionType::kIpv4Multicast);
    }
};

struct SdMessage {
    std::uint8_t flags{kSdFlagUnicast};
    std::vector<SdEntry> entries;
    std::vector<SdOption> options;
};

enum class SdStatus : std::uint8_t {
    kOk,
    kTooShort,          // fewer bytes than the fixed part or a length field says
    kBadEntriesLength,  // not a multiple of 16, or past the end
    kBadOptionsLength,  // past the end
    kBadOptionLength,   // an option runs past the options array, or an IPv4 option is not 9
    kTooManyOptions,    // more than an entry can index (256)
};

const char* SdStatusName(SdStatus status) noexcept;

// The SD payload (after the 16-byte SOME/IP header).
std::vector<unsigned char> EncodeSdPayload(const SdMessage& message);
SdStatus DecodeSdPayload(const unsigned char* data, std::size_t size, SdMessage& message);

// A whole SD message: the SOME/IP header (service 0xFFFF, method 0x8100, client 0, the given
// session, NOTIFICATION) and the payload.
std::vector<unsigned char> EncodeSdMessage(const SdMessage& message, std::uint16_t sessionId);

// The options an entry references, both runs, in order; a reference past the options array
// makes the result false (the entry is to be ignored).
bool EntryOptions(const SdMessage& message, const SdEntry& entry,
                  std::vector<const SdOption*>& out);

// An entry of the given type for one service instance; the rest is left 0.
SdEntry MakeEntry(SdEntryType type, std::uint16_t serviceId, std::uint16_t instanceId,
                  std::uint8_t majorVersion, std::uint32_t ttl);

// The acknowledgement of a subscribe entry: the same ids, TTL and counter, with no options.
SdEntry AckOf(const SdEntry& subscribe);

// Appends an IPv4 endpoint option and returns its index.
std::uint8_t AddEndpointOption(SdMessage& message, const std::array<std::uint8_t, 4>& address,
                               L4Protocol protocol, std::uint16_t port,
                               SdOptionType type = SdOptionType::kIpv4Endpoint);

}  // namespace lumo::driver::someip

#endif
