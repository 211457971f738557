// The SOME/IP-SD payload decoder over arbitrary bytes. Whatever decodes must have every option
// reference checked, and must encode and decode again to the same entries.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "platform/driver/someip/sd_message.h"

namespace {

using namespace lumo::driver::someip;  // NOLINT(google-build-using-namespace)

void Require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

bool SameEntry(const SdEntry& a, const SdEntry& b) {
    return a.type == b.type && a.index1 == b.index1 && a.index2 == b.index2 &&
           a.count1 == b.count1 && a.count2 == b.count2 && a.serviceId == b.serviceId &&
           a.instanceId == b.instanceId && a.majorVersion == b.majorVersion && a.ttl == b.ttl &&
           a.minorVersion == b.minorVersion && a.counter == b.counter &&
           a.eventgroupId == b.eventgroupId;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    SdMessage message;
    if (DecodeSdPayload(data, size, message) != SdStatus::kOk) {
        return 0;
    }
    Require(message.entries.size() * kSdEntrySize <= size);
    std::vector<const SdOption*> options;
    for (const SdEntry& entry : message.entries) {
        if (EntryOptions(message, entry, options)) {
            for (const SdOption* option : options) {
                Require(option >= message.options.data() &&
                        option < message.options.data() + message.options.size());
            }
        }
    }
    const std::vector<unsigned char> encoded = EncodeSdPayload(message);
    SdMessage again;
    Require(DecodeSdPayload(encoded.data(), encoded.size(), again) == SdStatus::kOk);
    Require(again.flags == message.flags);
    Require(again.entries.size() == message.entries.size());
    Require(again.options.size() == message.options.size());
    for (std::size_t i = 0; i < message.entries.size(); ++i) {
        Require(SameEntry(again.entries[i], message.entries[i]));
    }
    return 0;
}
