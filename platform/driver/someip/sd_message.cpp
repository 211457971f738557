#include "platform/driver/someip/sd_message.h"

namespace lumo::driver::someip {

namespace {

constexpr std::size_t kSdFixedSize = 4 + 4;  // flags and reserved, entries length
constexpr std::size_t kOptionHeadSize = 3;   // length (2) and type (1); length counts from here
constexpr std::uint16_t kIpv4OptionLength = 9;
constexpr std::size_t kMaxOptions = 256;

void EncodeEntry(const SdEntry& entry, unsigned char* out) {
    out[0] = entry.type;
    out[1] = entry.index1;
    out[2] = entry.index2;
    out[3] = static_cast<unsigned char>(((entry.count1 & 0x0FU) << 4U) | (entry.count2 & 0x0FU));
    WriteU16(out + 4, entry.serviceId);
    WriteU16(out + 6, entry.instanceId);
    out[8] = entry.majorVersion;
    WriteU24(out + 9, entry.ttl);
    if (entry.IsServiceEntry()) {
        WriteU32(out + 12, entry.minorVersion);
    } else {
        out[12] = 0;
        out[13] = static_cast<unsigned char>(entry.counter & 0x0FU);
        WriteU16(out + 14, entry.eventgroupId);
    }
}

SdEntry DecodeEntry(const unsigned char* in) {
    SdEntry entry;
    entry.type = in[0];
    entry.index1 = in[1];
    entry.index2 = in[2];
    entry.count1 = static_cast<std::uint8_t>(in[3] >> 4U);
    entry.count2 = static_cast<std::uint8_t>(in[3] & 0x0FU);
    entry.serviceId = ReadU16(in + 4);
    entry.instanceId = ReadU16(in + 6);
    entry.majorVersion = in[8];
    entry.ttl = ReadU24(in + 9);
    if (entry.IsServiceEntry()) {
        entry.minorVersion = ReadU32(in + 12);
    } else {
        entry.counter = static_cast<std::uint8_t>(in[13] & 0x0FU);
        entry.eventgroupId = ReadU16(in + 14);
    }
    return entry;
}

bool AppendRun(const SdMessage& message, std::uint8_t first, std::uint8_t count,
               std::vector<const SdOption*>& out) {
    if (static_cast<std::size_t>(first) + count > message.options.size()) {
        return false;
    }
    for (std::uint8_t i = 0; i < count; ++i) {
        out.push_back(&message.options[first + i]);
    }
    return true;
}

}  // namespace

const char* SdStatusName(SdStatus status) noexcept {
    switch (status) {
        case SdStatus::kOk:
            return "ok";
        case SdStatus::kTooShort:
            return "too short";
        case SdStatus::kBadEntriesLength:
            return "bad entries length";
        case SdStatus::kBadOptionsLength:
            return "bad options length";
        case SdStatus::kBadOptionLength:
            return "bad option length";
        case SdStatus::kTooManyOptions:
            return "too many options";
    }
    return "unknown";
}

std::vector<unsigned char> EncodeSdPayload(const SdMessage& message) {
    const std::size_t entriesLength = message.entries.size() * kSdEntrySize;
    const std::size_t optionsLength =
        message.options.size() * (kOptionHeadSize + kIpv4OptionLength);
    std::vector<unsigned char> out(kSdFixedSize + entriesLength + 4 + optionsLength);
    unsigned char* p = out.data();
    p[0] = message.flags;  // reserved bytes 1..3 stay 0
    WriteU32(p + 4, static_cast<std::uint32_t>(entriesLength));
    p += kSdFixedSize;
    for (const SdEntry& entry : message.entries) {
        EncodeEntry(entry, p);
        p += kSdEntrySize;
    }
    WriteU32(p, static_cast<std::uint32_t>(optionsLength));
    p += 4;
    for (const SdOption& option : message.options) {
        WriteU16(p, kIpv4OptionLength);
        p[2] = option.type;
        p[3] = 0;  // reserved
        p[4] = option.address[0];
        p[5] = option.address[1];
        p[6] = option.address[2];
        p[7] = option.address[3];
        p[8] = 0;  // reserved
        p[9] = option.protocol;
        WriteU16(p + 10, option.port);
        p += kOptionHeadSize + kIpv4OptionLength;
    }
    return out;
}

SdStatus DecodeSdPayload(const unsigned char* data, std::size_t size, SdMessage& message) {
    message = SdMessage{};
    if (size < kSdFixedSize + 4) {
        return SdStatus::kTooShort;
    }
    message.flags = data[0];
    const std::uint32_t entriesLength = ReadU32(data + 4);
    std::size_t offset = kSdFixedSize;
    if (entriesLength % kSdEntrySize != 0 || entriesLength > size - offset - 4) {
        return SdStatus::kBadEntriesLength;
    }
    message.entries.reserve(entriesLength / kSdEntrySize);
    for (std::size_t i = 0; i < entriesLength; i += kSdEntrySize) {
        message.entries.push_back(DecodeEntry(data + offset + i));
    }
    offset += entriesLength;
    const std::uint32_t optionsLength = ReadU32(data + offset);
    offset += 4;
    if (optionsLength > size - offset) {
        return SdStatus::kBadOptionsLength;
    }
    const std::size_t optionsEnd = offset + optionsLength;
    while (offset < optionsEnd) {
        if (optionsEnd - offset < kOptionHeadSize + 1) {
            return SdStatus::kBadOptionLength;
        }
        const std::uint16_t length = ReadU16(data + offset);
        const std::uint8_t type = data[offset + 2];
        // length counts from the reserved byte after the type, so it is at least 1.
        if (length == 0 || length > optionsEnd - offset - kOptionHeadSize) {
            return SdStatus::kBadOptionLength;
        }
        if (message.options.size() == kMaxOptions) {
            return SdStatus::kTooManyOptions;
        }
        SdOption option;
        option.type = type;
        if (option.IsIpv4()) {
            if (length != kIpv4OptionLength) {
                return SdStatus::kBadOptionLength;
            }
            const unsigned char* p = data + offset + kOptionHeadSize + 1;
            option.address = {p[0], p[1], p[2], p[3]};
            option.protocol = p[5];
            option.port = ReadU16(p + 6);
        }
        message.options.push_back(option);
        offset += kOptionHeadSize + length;
    }
    return SdStatus::kOk;
}

std::vector<unsigned char> EncodeSdMessage(const SdMessage& message, std::uint16_t sessionId) {
    const std::vector<unsigned char> payload = EncodeSdPayload(message);
    SomeipHeader header;
    header.serviceId = kSdServiceId;
    header.methodId = kSdMethodId;
    header.clientId = 0;
    header.sessionId = sessionId;
    header.interfaceVersion = 1;
    header.messageType = static_cast<std::uint8_t>(MessageType::kNotification);
    header.returnCode = static_cast<std::uint8_t>(ReturnCode::kOk);
    return EncodeMessage(header, payload.data(), payload.size());
}

bool EntryOptions(const SdMessage& message, const SdEntry& entry,
                  std::vector<const SdOption*>& out) {
    out.clear();
    return AppendRun(message, entry.index1, entry.count1, out) &&
           AppendRun(message, entry.index2, entry.count2, out);
}

SdEntry MakeEntry(SdEntryType type, std::uint16_t serviceId, std::uint16_t instanceId,
                  std::uint8_t majorVersion, std::uint32_t ttl) {
    SdEntry entry;
    entry.type = static_cast<std::uint8_t>(type);
    entry.serviceId = serviceId;
    entry.instanceId = instanceId;
    entry.majorVersion = majorVersion;
    entry.ttl = ttl;
    return entry;
}

SdEntry AckOf(const SdEntry& subscribe) {
    SdEntry ack = subscribe;
    ack.type = static_cast<std::uint8_t>(SdEntryType::kSubscribeEventgroupAck);
    ack.index1 = ack.index2 = ack.count1 = ack.count2 = 0;
    return ack;
}

std::uint8_t AddEndpointOption(SdMessage& message, const std::array<std::uint8_t, 4>& address,
                               L4Protocol protocol, std::uint16_t port, SdOptionType type) {
    SdOption option;
    option.type = static_cast<std::uint8_t>(type);
    option.address = address;
    option.protocol = static_cast<std::uint8_t>(protocol);
    option.port = port;
    message.options.push_back(option);
    return static_cast<std::uint8_t>(message.options.size() - 1);
}

}  // namespace lumo::driver::someip
