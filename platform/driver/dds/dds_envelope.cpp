#include "platform/driver/dds/dds_envelope.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace lumo::driver::dds {

using ara::core::String;

String RequestTopic(const String& stem) {
    return stem + "/Request";
}

String ReplyTopic(const String& stem) {
    return stem + "/Reply";
}

String ServerParticipantUserData(const String& instance) {
    std::array<char, 256> host{};
    if (gethostname(host.data(), host.size() - 1) != 0) {
        host[0] = '\0';
    }
    return "wardend;instance=" + instance + ";host=" + host.data() +
           ";pid=" + std::to_string(getpid());
}

String EndpointUserData(const String& instance) {
    return "instance=" + instance;
}

String ClientUserData(std::uint64_t clientId) {
    std::array<char, 17> hex{};
    std::snprintf(hex.data(), hex.size(), "%016llx", static_cast<unsigned long long>(clientId));
    return String("client=") + hex.data();
}

std::optional<String> UserDataValue(const void* data, std::size_t size, const String& key) {
    if (data == nullptr) {
        return std::nullopt;
    }
    const String text(static_cast<const char*>(data), size);
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find(';', start);
        if (end == String::npos) {
            end = text.size();
        }
        const String field = text.substr(start, end - start);
        if (field.size() > key.size() && field.compare(0, key.size(), key) == 0 &&
            field[key.size()] == '=') {
            return field.substr(key.size() + 1);
        }
        start = end + 1;
    }
    return std::nullopt;
}

std::optional<std::uint64_t> ParseClientId(const String& text) {
    if (text.empty() || text.size() > 16) {
        return std::nullopt;
    }
    std::uint64_t value = 0;
    for (char c : text) {
        std::uint64_t digit = 0;
        if (c >= '0' && c <= '9') {
            digit = static_cast<std::uint64_t>(c - '0');
        } else if (c >= 'a' && c <= 'f') {
            digit = static_cast<std::uint64_t>(c - 'a') + 10U;
        } else {
            return std::nullopt;
        }
        value = (value << 4U) | digit;
    }
    return value;
}

const char* EnvelopeFaultText(EnvelopeFault fault) {
    switch (fault) {
        case EnvelopeFault::kNone:
            return "none";
        case EnvelopeFault::kWrongIds:
            return "unknown service or entity id";
        case EnvelopeFault::kUnknownFlags:
            return "unknown flags";
        case EnvelopeFault::kBadPayload:
            return "bad payload length";
        case EnvelopeFault::kNoClient:
            return "no client id";
    }
    return "unknown";
}

EnvelopeFault CheckEnvelope(const Envelope& envelope, std::uint16_t serviceId,
                            std::uint32_t entityId, bool isRequest) {
    if (envelope.serviceId != serviceId || envelope.entityId != entityId) {
        return EnvelopeFault::kWrongIds;
    }
    if ((envelope.flags & ~kKnownFlags) != 0) {
        return EnvelopeFault::kUnknownFlags;
    }
    if (envelope.payload._length > kMaxPayloadSize ||
        (envelope.payload._length > 0 && envelope.payload._buffer == nullptr)) {
        return EnvelopeFault::kBadPayload;
    }
    if (isRequest && (envelope.flags & kFlagNoReturn) == 0 && envelope.uuidHigh == 0) {
        return EnvelopeFault::kNoClient;
    }
    return EnvelopeFault::kNone;
}

bool InstanceIs(const Envelope& envelope, const String& instance) {
    const std::size_t length = strnlen(envelope.instance, sizeof(envelope.instance));
    return length == instance.size() &&
           std::memcmp(envelope.instance, instance.data(), length) == 0;
}

void SetInstance(Envelope& envelope, const String& instance) {
    const std::size_t length = std::min(instance.size(), kMaxInstanceLength);
    std::memcpy(envelope.instance, instance.data(), length);
    envelope.instance[length] = '\0';
}

const ara::tessel::common::log::Log& CmLog() {
    static const std::shared_ptr<ara::tessel::common::log::Log> log =
        ara::tessel::common::log::Log::GetLog("CM");
    return *log;
}

}  // namespace lumo::driver::dds
