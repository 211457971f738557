#ifndef BINDING_SERIALIZE_SERIALIZE_LOG_H
#define BINDING_SERIALIZE_SERIALIZE_LOG_H

// The log contexts of the serializers. Lines that a peer can trigger (reading a stream) carry a
// tag and kPeerLimit; lines about our own values carry an empty tag.

#include "platform/log/log.h"

namespace lumo::serialize {

inline constexpr ara::tessel::common::log::LogLimitConfig kPeerLimit{500};

const ara::tessel::common::log::Log& SomeipLog();       // "SOMEIPSerialize"
const ara::tessel::common::log::Log& DdsLog();          // "DDSSerialize"
const ara::tessel::common::log::Log& TlvLog();          // "TlvSerialize"
const ara::tessel::common::log::Log& S2SLog();          // "S2SSerialize"
const ara::tessel::common::log::Log& SizeCounterLog();  // "SerializeSizeCounter"

// A peer-triggered line is tagged with its own fixed text, so that a flood of one message is
// limited without hiding a different one.

}  // namespace lumo::serialize

#endif
