#include "platform/driver/someip/someip_header.h"

#include <algorithm>
#include <cstring>

namespace lumo::driver::someip {

const char* ReturnCodeName(std::uint8_t code) noexcept {
    switch (static_cast<ReturnCode>(code)) {
        case ReturnCode::kOk:
            return "E_OK";
        case ReturnCode::kNotOk:
            return "E_NOT_OK";
        case ReturnCode::kUnknownService:
            return "E_UNKNOWN_SERVICE";
        case ReturnCode::kUnknownMethod:
            return "E_UNKNOWN_METHOD";
        case ReturnCode::kNotReady:
            return "E_NOT_READY";
        case ReturnCode::kNotReachable:
            return "E_NOT_REACHABLE";
        case ReturnCode::kTimeout:
            return "E_TIMEOUT";
        case ReturnCode::kWrongProtocolVersion:
            return "E_WRONG_PROTOCOL_VERSION";
        case ReturnCode::kWrongInterfaceVersion:
            return "E_WRONG_INTERFACE_VERSION";
        case ReturnCode::kMalformedMessage:
            return "E_MALFORMED_MESSAGE";
        case ReturnCode::kWrongMessageType:
            return "E_WRONG_MESSAGE_TYPE";
    }
    return "E_UNKNOWN_RETURN_CODE";
}

bool IsKnownMessageType(std::uint8_t type) noexcept {
    switch (static_cast<MessageType>(type & static_cast<std::uint8_t>(~kTpFlag))) {
        case MessageType::kRequest:
        case MessageType::kRequestNoReturn:
        case MessageType::kNotification:
        case MessageType::kResponse:
        case MessageType::kError:
            return true;
    }
    return false;
}

void EncodeHeader(const SomeipHeader& header, unsigned char* out) noexcept {
    WriteU16(out, header.serviceId);
    WriteU16(out + 2, header.methodId);
    WriteU32(out + 4, header.length);
    WriteU16(out + 8, header.clientId);
    WriteU16(out + 10, header.sessionId);
    out[12] = header.protocolVersion;
    out[13] = header.interfaceVersion;
    out[14] = header.messageType;
    out[15] = header.returnCode;
}

SomeipHeader DecodeHeader(const unsigned char* in) noexcept {
    SomeipHeader header;
    header.serviceId = ReadU16(in);
    header.methodId = ReadU16(in + 2);
    header.length = ReadU32(in + 4);
    header.clientId = ReadU16(in + 8);
    header.sessionId = ReadU16(in + 10);
    header.protocolVersion = in[12];
    header.interfaceVersion = in[13];
    header.messageType = in[14];
    header.returnCode = in[15];
    return header;
}

SomeipHeader ReplyHeader(const SomeipHeader& request, MessageType type, ReturnCode code,
                         std::uint32_t payloadSize) noexcept {
    SomeipHeader reply = request;
    reply.length = kLengthFieldCovers + payloadSize;
    reply.protocolVersion = kProtocolVersion;
    reply.messageType = static_cast<std::uint8_t>(type);
    reply.returnCode = static_cast<std::uint8_t>(code);
    return reply;
}

std::vector<unsigned char> EncodeMessage(SomeipHeader header, const unsigned char* payload,
                                         std::size_t payloadSize) {
    std::vector<unsigned char> out(kHeaderSize + payloadSize);
    header.length = static_cast<std::uint32_t>(kLengthFieldCovers + payloadSize);
    EncodeHeader(header, out.data());
    if (payloadSize > 0) {
        std::memcpy(out.data() + kHeaderSize, payload, payloadSize);
    }
    return out;
}

bool IsMagicCookie(const SomeipHeader& header) noexcept {
    return header.serviceId == 0xFFFF && (header.methodId == 0x0000 || header.methodId == 0x8000) &&
           header.length == kLengthFieldCovers && header.clientId == 0xDEAD &&
           header.sessionId == 0xBEEF;
}

const char* FrameStatusName(FrameStatus status) noexcept {
    switch (status) {
        case FrameStatus::kMessage:
            return "message";
        case FrameStatus::kNeedMore:
            return "incomplete";
        case FrameStatus::kBadLength:
            return "length below 8";
        case FrameStatus::kTooLarge:
            return "message too large";
        case FrameStatus::kWrongProtocol:
            return "wrong protocol version";
    }
    return "unknown";
}

namespace {

// The checks both framers make on a header that is wholly there.
FrameStatus CheckHeader(const SomeipHeader& header, std::uint64_t maxMessageSize) noexcept {
    if (header.length < kLengthFieldCovers) {
        return FrameStatus::kBadLength;
    }
    if (header.protocolVersion != kProtocolVersion) {
        return FrameStatus::kWrongProtocol;
    }
    if (static_cast<std::uint64_t>(header.length) + kLengthFieldCovers > maxMessageSize) {
        return FrameStatus::kTooLarge;
    }
    return FrameStatus::kMessage;
}

}  // namespace

StreamFramer::StreamFramer(std::uint32_t maxMessageSize)
    : maxMessageSize_(std::max<std::uint32_t>(maxMessageSize, kHeaderSize)),
      buffer_(std::min<std::size_t>(kReadChunk, maxMessageSize_)) {}

void StreamFramer::Commit(std::size_t count) noexcept {
    end_ += std::min(count, buffer_.size() - end_);
}

void StreamFramer::MakeRoom(std::size_t need) {
    if (begin_ > 0) {
        std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
    }
    if (buffer_.size() < need) {
        buffer_.resize(need);
    }
}

FrameStatus StreamFramer::Next(const unsigned char*& message, std::size_t& size,
                               SomeipHeader& header) {
    const std::size_t available = end_ - begin_;
    if (available < kHeaderSize) {
        // Keep room for a read: the header's bytes move to the front when the end is near.
        if (buffer_.size() - end_ < kHeaderSize) {
            MakeRoom(std::min<std::size_t>(kReadChunk, maxMessageSize_));
        }
        if (available == 0) {
            begin_ = end_ = 0;
            // The room of a large message is kept for the next one (a tool that asks for a
            // large answer again would otherwise have every page of it mapped in anew), and
            // given back once a small message has gone through.
            if (buffer_.size() > kReadChunk && lastWhole_ <= kReadChunk) {
                buffer_.resize(kReadChunk);
                buffer_.shrink_to_fit();
            }
        }
        return FrameStatus::kNeedMore;
    }
    header = DecodeHeader(buffer_.data() + begin_);
    const FrameStatus status = CheckHeader(header, maxMessageSize_);
    if (status != FrameStatus::kMessage) {
        return status;
    }
    const std::size_t whole = static_cast<std::size_t>(header.length) + kLengthFieldCovers;
    if (available < whole) {
        // The message is within the maximum: room for all of it, plus a chunk for what follows.
        if (buffer_.size() - begin_ < whole) {
            MakeRoom(std::max(whole, std::min<std::size_t>(kReadChunk, maxMessageSize_)));
        }
        return FrameStatus::kNeedMore;
    }
    message = buffer_.data() + begin_;
    size = whole;
    begin_ += whole;
    lastWhole_ = whole;
    return FrameStatus::kMessage;
}

FrameStatus DatagramReader::Next(const unsigned char*& message, std::size_t& messageSize,
                                 SomeipHeader& header) noexcept {
    const std::size_t available = size_ - offset_;
    if (available == 0) {
        return FrameStatus::kNeedMore;
    }
    if (available < kHeaderSize) {
        offset_ = size_;
        return FrameStatus::kBadLength;
    }
    header = DecodeHeader(data_ + offset_);
    FrameStatus status = CheckHeader(header, available);
    if (status == FrameStatus::kTooLarge) {
        status = FrameStatus::kBadLength;  // past the datagram's end
    }
    if (status != FrameStatus::kMessage) {
        offset_ = size_;
        return status;
    }
    message = data_ + offset_;
    messageSize = static_cast<std::size_t>(header.length) + kLengthFieldCovers;
    offset_ += messageSize;
    return FrameStatus::kMessage;
}

}  // namespace lumo::driver::someip
