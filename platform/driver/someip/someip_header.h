#ifndef PLATFORM_DRIVER_SOMEIP_SOMEIP_HEADER_H
#define PLATFORM_DRIVER_SOMEIP_SOMEIP_HEADER_H

// The 16-byte SOME/IP header and the framing of messages on a TCP stream and in a UDP datagram.
// Pure functions over bytes: no sockets, nothing trusted that came from the wire.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/memory/byte_buffer.h"

namespace lumo::driver::someip {

constexpr std::size_t kHeaderSize = 16;
// The length field counts the 8 header bytes behind it plus the payload.
constexpr std::uint32_t kLengthFieldCovers = 8;
constexpr std::uint8_t kProtocolVersion = 1;
constexpr std::uint16_t kSdServiceId = 0xFFFF;
constexpr std::uint16_t kSdMethodId = 0x8100;
constexpr std::uint16_t kEventBit = 0x8000;

enum class MessageType : std::uint8_t {
    kRequest = 0x00,
    kRequestNoReturn = 0x01,
    kNotification = 0x02,
    kResponse = 0x80,
    kError = 0x81,
};
constexpr std::uint8_t kTpFlag = 0x20;

enum class ReturnCode : std::uint8_t {
    kOk = 0x00,
    kNotOk = 0x01,
    kUnknownService = 0x02,
    kUnknownMethod = 0x03,
    kNotReady = 0x04,
    kNotReachable = 0x05,
    kTimeout = 0x06,
    kWrongProtocolVersion = 0x07,
    kWrongInterfaceVersion = 0x08,
    kMalformedMessage = 0x09,
    kWrongMessageType = 0x0A,
};

// "E_OK", "E_UNKNOWN_METHOD", ...; "E_UNKNOWN(0x..)" style text is left to the caller.
const char* ReturnCodeName(std::uint8_t code) noexcept;
// True for the five message types and their TP variants.
bool IsKnownMessageType(std::uint8_t type) noexcept;

struct SomeipHeader {
    std::uint16_t serviceId{0};
    std::uint16_t methodId{0};
    std::uint32_t length{kLengthFieldCovers};
    std::uint16_t clientId{0};
    std::uint16_t sessionId{0};
    std::uint8_t protocolVersion{kProtocolVersion};
    std::uint8_t interfaceVersion{0};
    std::uint8_t messageType{0};
    std::uint8_t returnCode{0};

    std::uint32_t RequestId() const noexcept {
        return (static_cast<std::uint32_t>(clientId) << 16U) | sessionId;
    }
    std::uint32_t PayloadSize() const noexcept {
        return length >= kLengthFieldCovers ? length - kLengthFieldCovers : 0;
    }
};

// Writes the 16 bytes at out (big-endian fields).
void EncodeHeader(const SomeipHeader& header, unsigned char* out) noexcept;
// Reads the 16 bytes at in; the caller has checked that 16 bytes are there.
SomeipHeader DecodeHeader(const unsigned char* in) noexcept;
// The header of a reply (RESPONSE or ERROR) to request: ids and interface version copied.
SomeipHeader ReplyHeader(const SomeipHeader& request, MessageType type, ReturnCode code,
                         std::uint32_t payloadSize) noexcept;
// A whole message: header (length set from payload) followed by the payload.
std::vector<unsigned char> EncodeMessage(SomeipHeader header, const unsigned char* payload,
                                         std::size_t payloadSize);

// The magic cookies a peer may put into a TCP stream to resynchronize; they are dropped.
bool IsMagicCookie(const SomeipHeader& header) noexcept;

enum class FrameStatus : std::uint8_t {
    kMessage,        // a whole message is there
    kNeedMore,       // not yet a whole message
    kBadLength,      // length field below 8: the stream cannot be framed
    kTooLarge,       // above the configured maximum: refused without reading it
    kWrongProtocol,  // protocol version other than 1; the header is readable
};

const char* FrameStatusName(FrameStatus status) noexcept;

// Frames a TCP byte stream. Bytes are read straight into WritableArea(); the buffer grows to
// at most the largest message allowed, so a peer cannot make it grow beyond that.
class StreamFramer {
public:
    static constexpr std::size_t kReadChunk = std::size_t{16} * 1024;

    explicit StreamFramer(std::uint32_t maxMessageSize);

    // Room for at least one more read, at the end of the buffered bytes.
    unsigned char* WritableArea() noexcept { return buffer_.data() + end_; }
    std::size_t WritableSize() const noexcept { return buffer_.size() - end_; }
    void Commit(std::size_t count) noexcept;

    // Looks at the next message. On kMessage, message and size give the whole message (header
    // included) until the next call; on kWrongProtocol, header is filled in.
    FrameStatus Next(const unsigned char*& message, std::size_t& size, SomeipHeader& header);
    // True while bytes of an incomplete message are buffered.
    bool HasPartial() const noexcept { return end_ > begin_; }
    std::size_t Buffered() const noexcept { return end_ - begin_; }
    // Bytes of room the framer holds.
    std::size_t Room() const noexcept { return buffer_.size(); }

private:
    // Moves the unread bytes to the front and makes room for need bytes in all.
    void MakeRoom(std::size_t need);

    std::uint32_t maxMessageSize_;
    lumo::memory::ByteBuffer buffer_;  // grown without zeroing: only what arrives is written
    std::size_t begin_{0};
    std::size_t end_{0};
    std::size_t lastWhole_{0};  // the size of the last message handed out
};

// Walks the messages of one UDP datagram. A length below 8 or past the datagram's end ends the
// walk (the rest of the datagram is dropped), as does a protocol version other than 1 after
// its header was handed out.
class DatagramReader {
public:
    DatagramReader(const unsigned char* data, std::size_t size) noexcept
        : data_(data), size_(size) {}
    FrameStatus Next(const unsigned char*& message, std::size_t& messageSize,
                     SomeipHeader& header) noexcept;
    // Bytes left unread after a walk that ended early.
    std::size_t Remaining() const noexcept { return size_ - offset_; }

private:
    const unsigned char* data_;
    std::size_t size_;
    std::size_t offset_{0};
};

// Big-endian helpers shared with the SD codec.
inline std::uint16_t ReadU16(const unsigned char* p) noexcept {
    return static_cast<std::uint16_t>((p[0] << 8U) | p[1]);
}
inline std::uint32_t ReadU24(const unsigned char* p) noexcept {
    return (static_cast<std::uint32_t>(p[0]) << 16U) | (static_cast<std::uint32_t>(p[1]) << 8U) |
           p[2];
}
inline std::uint32_t ReadU32(const unsigned char* p) noexcept {
    return (static_cast<std::uint32_t>(p[0]) << 24U) | (static_cast<std::uint32_t>(p[1]) << 16U) |
           (static_cast<std::uint32_t>(p[2]) << 8U) | p[3];
}
inline void WriteU16(unsigned char* p, std::uint16_t v) noexcept {
    p[0] = static_cast<unsigned char>(v >> 8U);
    p[1] = static_cast<unsigned char>(v);
}
inline void WriteU24(unsigned char* p, std::uint32_t v) noexcept {
    p[0] = static_cast<unsigned char>(v >> 16U);
    p[1] = static_cast<unsigned char>(v >> 8U);
    p[2] = static_cast<unsigned char>(v);
}
inline void WriteU32(unsigned char* p, std::uint32_t v) noexcept {
    p[0] = static_cast<unsigned char>(v >> 24U);
    p[1] = static_cast<unsigned char>(v >> 16U);
    p[2] = static_cast<unsigned char>(v >> 8U);
    p[3] = static_cast<unsigned char>(v);
}

}  // namespace lumo::driver::someip

#endif
