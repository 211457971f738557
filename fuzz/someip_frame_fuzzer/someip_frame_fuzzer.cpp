// The SOME/IP stream framer and datagram reader over arbitrary bytes. The first byte chooses
// the read size the stream arrives in; the rest is the stream, and also one datagram. Every
// message handed out must lie within what was read and match its length field; the framer's
// buffer must never pass the largest message allowed plus one read.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/driver/someip/someip_header.h"

namespace {

using lumo::driver::someip::DatagramReader;
using lumo::driver::someip::FrameStatus;
using lumo::driver::someip::kHeaderSize;
using lumo::driver::someip::SomeipHeader;
using lumo::driver::someip::StreamFramer;

constexpr std::uint32_t kMaxMessage = 4096;

void Require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

void CheckMessage(const unsigned char* message, std::size_t size, const SomeipHeader& header) {
    Require(size >= kHeaderSize);
    Require(size == static_cast<std::size_t>(header.length) + 8U);
    Require(lumo::driver::someip::DecodeHeader(message).length == header.length);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) {
        return 0;
    }
    const std::size_t chunk = 1U + data[0] * 37U;
    const std::uint8_t* stream = data + 1;
    const std::size_t length = size - 1;

    StreamFramer framer(kMaxMessage);
    std::size_t offset = 0;
    bool broken = false;
    while (offset < length && !broken) {
        const std::size_t n =
            std::min<std::size_t>({chunk, length - offset, framer.WritableSize()});
        Require(n > 0);
        std::memcpy(framer.WritableArea(), stream + offset, n);
        framer.Commit(n);
        offset += n;
        for (;;) {
            const unsigned char* message = nullptr;
            std::size_t messageSize = 0;
            SomeipHeader header;
            const FrameStatus status = framer.Next(message, messageSize, header);
            if (status == FrameStatus::kNeedMore) {
                Require(framer.WritableSize() > 0);
                break;
            }
            if (status != FrameStatus::kMessage) {
                broken = true;
                break;
            }
            Require(messageSize <= kMaxMessage);
            CheckMessage(message, messageSize, header);
        }
        Require(framer.Buffered() <= kMaxMessage + StreamFramer::kReadChunk);
    }

    DatagramReader reader(stream, length);
    std::size_t seen = 0;
    for (;;) {
        const unsigned char* message = nullptr;
        std::size_t messageSize = 0;
        SomeipHeader header;
        if (reader.Next(message, messageSize, header) != FrameStatus::kMessage) {
            break;
        }
        Require(message >= stream && message + messageSize <= stream + length);
        CheckMessage(message, messageSize, header);
        seen += messageSize;
        Require(seen <= length);
    }
    return 0;
}
