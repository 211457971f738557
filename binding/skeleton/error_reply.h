#ifndef BINDING_SKELETON_ERROR_REPLY_H
#define BINDING_SKELETON_ERROR_REPLY_H

#include <cstdint>

#include "platform/core/error_code.h"
#include "platform/serialize/serialize_config.h"

namespace lumo::vcc {

// The reply that carries an error code: the number 12, the number 1, the domain id (8 bytes)
// and the code (4 bytes). The support data is not sent.
inline constexpr std::uint32_t kErrorReplySize = 17;

// SOME/IP rules write in `order`; DDS rules in the host's order. A null buffer logs the copy
// failure of that family.
void WriteErrorReply(unsigned char* buffer, const ara::core::ErrorCode& error, bool someip,
                     serialize::ByteOrder order);

// Reads an error reply back (client side); false when it is not one.
bool ReadErrorReply(const unsigned char* buffer, std::uint64_t size, bool someip,
                    serialize::ByteOrder order, std::uint64_t& domainId, std::int32_t& code);

}  // namespace lumo::vcc

#endif
