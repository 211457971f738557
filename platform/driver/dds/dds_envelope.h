#ifndef PLATFORM_DRIVER_DDS_DDS_ENVELOPE_H
#define PLATFORM_DRIVER_DDS_DDS_ENVELOPE_H

// What the DDS driver writes around a payload, and how it reads that back without trusting it.
//
// Topics. A method with the topic stem S has the request topic "S/Request" and the reply topic
// "S/Reply"; an event's topic is its stem. All carry wardend::dds::Envelope (idl/envelope.idl).
//
// Routing. A request names the daemon instance that must answer; every daemon on the domain
// reads it and only that one answers. Replies and events name the daemon that sent them. The
// request's uuid is the client's: high = the id of the calling MethodClient (random, non-zero,
// also announced in its reply reader's user data), low = the call's sequence number from 1.
// Every client of a method reads every reply of that method and keeps those with its own id.
//
// User data. The server's participant: "wardend;instance=<id>;host=<host name>;pid=<pid>"; its
// request readers, reply writers and event writers: "instance=<id>"; a client's reply reader:
// "client=<id as 16 hex digits>".

#include <cstddef>
#include <cstdint>
#include <optional>

#include "generated/dds/idl/envelope.h"
#include "platform/core/string.h"
#include "platform/log/log.h"

namespace lumo::driver::dds {

using Envelope = wardend_dds_Envelope;

enum EnvelopeFlag : std::uint32_t {
    kFlagErrorReply = 0x1U,  // reply: the payload is the binding's error reply
    kFlagNoReturn = 0x2U,    // request: the caller expects no reply
    kFlagNotOffered = 0x4U,  // reply: the service is not offered; no payload
};
inline constexpr std::uint32_t kKnownFlags = kFlagErrorReply | kFlagNoReturn | kFlagNotOffered;

// The longest instance id an envelope carries (the IDL bound).
inline constexpr std::size_t kMaxInstanceLength = sizeof(Envelope::instance) - 1;
// The largest payload the driver sends or accepts: the records of both services stay far below.
inline constexpr std::uint64_t kMaxPayloadSize = std::uint64_t{16} * 1024 * 1024;

ara::core::String RequestTopic(const ara::core::String& stem);
ara::core::String ReplyTopic(const ara::core::String& stem);

ara::core::String ServerParticipantUserData(const ara::core::String& instance);
ara::core::String EndpointUserData(const ara::core::String& instance);
ara::core::String ClientUserData(std::uint64_t clientId);
// The value of key in user data of the form "word;key=value;..."; nothing when absent.
std::optional<ara::core::String> UserDataValue(const void* data, std::size_t size,
                                               const ara::core::String& key);
std::optional<std::uint64_t> ParseClientId(const ara::core::String& text);

// Why an envelope is refused; kNone when it may be used.
enum class EnvelopeFault : std::uint8_t {
    kNone,
    kWrongIds,      // service or entity id is not the topic's
    kUnknownFlags,  // a flag bit this driver does not know
    kBadPayload,    // larger than kMaxPayloadSize, or a length without bytes
    kNoClient,      // a request that wants a reply names no client
};
const char* EnvelopeFaultText(EnvelopeFault fault);

EnvelopeFault CheckEnvelope(const Envelope& envelope, std::uint16_t serviceId,
                            std::uint32_t entityId, bool isRequest);
bool InstanceIs(const Envelope& envelope, const ara::core::String& instance);
void SetInstance(Envelope& envelope, const ara::core::String& instance);

// The driver's log context, "CM", and the limit of lines that a peer can trigger.
const ara::tessel::common::log::Log& CmLog();
inline constexpr ara::tessel::common::log::LogLimitConfig kPeerLimit{500};

}  // namespace lumo::driver::dds

#endif
