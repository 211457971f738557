#include <gtest/gtest.h>

#include <vector>

#include "platform/driver/someip/sd_message.h"
#include "platform/driver/someip/someip_header.h"

namespace lumo::driver::someip {
namespace {

using Bytes = std::vector<unsigned char>;

TEST(SomeipHeaderTest, EncodesEveryFieldBigEndian) {
    SomeipHeader header;
    header.serviceId = 0x5700;
    header.methodId = 0x0001;
    header.clientId = 0x1234;
    header.sessionId = 0x0002;
    header.interfaceVersion = 1;
    header.messageType = 0x00;
    const unsigned char payload[] = {0xAA, 0xBB, 0xCC};
    const Bytes expected = {
        0x57, 0x00,              // service id
        0x00, 0x01,              // method id
        0x00, 0x00, 0x00, 0x0B,  // length: 8 + 3 payload bytes
        0x12, 0x34,              // client id
        0x00, 0x02,              // session id
        0x01,                    // protocol version
        0x01,                    // interface version
        0x00,                    // message type REQUEST
        0x00,                    // return code E_OK
        0xAA, 0xBB, 0xCC,        // payload
    };
    EXPECT_EQ(EncodeMessage(header, payload, sizeof payload), expected);
    const SomeipHeader decoded = DecodeHeader(expected.data());
    EXPECT_EQ(decoded.length, 11U);
    EXPECT_EQ(decoded.RequestId(), 0x12340002U);
    EXPECT_EQ(decoded.PayloadSize(), 3U);
}

TEST(SomeipHeaderTest, ReplyCopiesIdsAndInterfaceVersion) {
    SomeipHeader request;
    request.serviceId = 0x5701;
    request.methodId = 0x000C;
    request.clientId = 7;
    request.sessionId = 9;
    request.interfaceVersion = 3;
    const Bytes expected = {
        0x57, 0x01, 0x00, 0x0C,  // service, method
        0x00, 0x00, 0x00, 0x08,  // length: header only
        0x00, 0x07, 0x00, 0x09,  // client, session
        0x01, 0x03,              // protocol 1, interface 3 (copied)
        0x81,                    // ERROR
        0x03,                    // E_UNKNOWN_METHOD
    };
    Bytes out(kHeaderSize);
    EncodeHeader(ReplyHeader(request, MessageType::kError, ReturnCode::kUnknownMethod, 0),
                 out.data());
    EXPECT_EQ(out, expected);
}

TEST(SomeipHeaderTest, RecognizesClientAndServerMagicCookies) {
    const Bytes client = {0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x00, 0x08,
                          0xDE, 0xAD, 0xBE, 0xEF, 0x01, 0x01, 0x01, 0x00};
    const Bytes server = {0xFF, 0xFF, 0x80, 0x00, 0x00, 0x00, 0x00, 0x08,
                          0xDE, 0xAD, 0xBE, 0xEF, 0x01, 0x01, 0x02, 0x00};
    EXPECT_TRUE(IsMagicCookie(DecodeHeader(client.data())));
    EXPECT_TRUE(IsMagicCookie(DecodeHeader(server.data())));
    Bytes notCookie = client;
    notCookie[7] = 0x09;
    EXPECT_FALSE(IsMagicCookie(DecodeHeader(notCookie.data())));
}

Bytes Message(std::uint32_t length, std::uint8_t protocol = 1, std::size_t payload = 0) {
    Bytes out = {0x57, 0x00, 0x00, 0x01, 0, 0, 0, 0, 0, 1, 0, 1, protocol, 1, 0, 0};
    WriteU32(out.data() + 4, length);
    out.resize(out.size() + payload, 0x5A);
    return out;
}

// Feeds bytes in pieces of chunk and collects what the framer says.
std::vector<FrameStatus> Frame(StreamFramer& framer, const Bytes& stream, std::size_t chunk,
                               std::vector<std::size_t>* sizes = nullptr) {
    std::vector<FrameStatus> seen;
    std::size_t offset = 0;
    while (offset < stream.size()) {
        const std::size_t n = std::min({chunk, stream.size() - offset, framer.WritableSize()});
        std::copy_n(stream.begin() + static_cast<std::ptrdiff_t>(offset), n, framer.WritableArea());
        framer.Commit(n);
        offset += n;
        for (;;) {
            const unsigned char* message = nullptr;
            std::size_t size = 0;
            SomeipHeader header;
            const FrameStatus status = framer.Next(message, size, header);
            if (status == FrameStatus::kNeedMore) {
                break;
            }
            seen.push_back(status);
            if (status != FrameStatus::kMessage) {
                return seen;
            }
            if (sizes != nullptr) {
                sizes->push_back(size);
            }
        }
    }
    return seen;
}

TEST(StreamFramerTest, SplitsMessagesSharingAndSpanningSegments) {
    Bytes stream = Message(8 + 3, 1, 3);
    const Bytes second = Message(8 + 40000, 1, 40000);  // larger than one read chunk
    stream.insert(stream.end(), second.begin(), second.end());
    const Bytes third = Message(8);
    stream.insert(stream.end(), third.begin(), third.end());
    for (const std::size_t chunk :
         {std::size_t{1}, std::size_t{7}, std::size_t{4096}, stream.size()}) {
        StreamFramer framer(1U << 20U);
        std::vector<std::size_t> sizes;
        const auto seen = Frame(framer, stream, chunk, &sizes);
        EXPECT_EQ(seen.size(), 3U) << "chunk " << chunk;
        EXPECT_EQ(sizes, (std::vector<std::size_t>{19, 40016, 16})) << "chunk " << chunk;
        EXPECT_FALSE(framer.HasPartial());
    }
}

// A tool that asks for a large answer again reads it into the same room; a small message gives
// the room back.
TEST(StreamFramerTest, KeepsTheRoomOfALargeMessageUntilASmallOneFollows) {
    StreamFramer framer(1U << 20U);
    const Bytes large = Message(8 + 40000, 1, 40000);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(Frame(framer, large, 4096), std::vector<FrameStatus>{FrameStatus::kMessage});
        EXPECT_GE(framer.Room(), large.size()) << "round " << round;
    }
    EXPECT_EQ(Frame(framer, Message(8 + 3, 1, 3), 4096),
              std::vector<FrameStatus>{FrameStatus::kMessage});
    EXPECT_EQ(framer.Room(), StreamFramer::kReadChunk);

    // Half a message is kept, not framed.
    const Bytes half = Message(8 + 100, 1, 50);
    EXPECT_TRUE(Frame(framer, half, 10).empty());
    EXPECT_TRUE(framer.HasPartial());
    EXPECT_EQ(framer.Buffered(), half.size());
}

TEST(StreamFramerTest, RefusesWhatCannotBeFramedBeforeReadingIt) {
    struct Case {
        const char* name;
        Bytes bytes;
        FrameStatus expected;
    };
    const std::vector<Case> cases = {
        {"length below 8", Message(7), FrameStatus::kBadLength},
        {"length 0", Message(0), FrameStatus::kBadLength},
        {"above the maximum", Message(1000 - 8 + 1), FrameStatus::kTooLarge},
        {"length 0xFFFFFFFF", Message(0xFFFFFFFFU), FrameStatus::kTooLarge},
        {"protocol version 2", Message(8, 2), FrameStatus::kWrongProtocol},
    };
    for (const Case& c : cases) {
        StreamFramer framer(1000);
        const auto seen = Frame(framer, c.bytes, c.bytes.size());
        ASSERT_EQ(seen.size(), 1U) << c.name;
        EXPECT_EQ(seen[0], c.expected) << c.name;
    }
    StreamFramer exact(1000);
    EXPECT_EQ(Frame(exact, Message(1000 - 8, 1, 1000 - 16), 100),
              std::vector<FrameStatus>{FrameStatus::kMessage});
}

TEST(DatagramReaderTest, ReadsWholeMessagesAndDropsTheRestAtABadLength) {
    Bytes datagram = Message(8 + 2, 1, 2);
    const Bytes second = Message(8);
    datagram.insert(datagram.end(), second.begin(), second.end());
    Bytes truncated = Message(8 + 100, 1, 10);  // claims more than the datagram holds
    datagram.insert(datagram.end(), truncated.begin(), truncated.end());
    DatagramReader reader(datagram.data(), datagram.size());
    const unsigned char* message = nullptr;
    std::size_t size = 0;
    SomeipHeader header;
    EXPECT_EQ(reader.Next(message, size, header), FrameStatus::kMessage);
    EXPECT_EQ(size, 18U);
    EXPECT_EQ(reader.Next(message, size, header), FrameStatus::kMessage);
    EXPECT_EQ(size, 16U);
    EXPECT_EQ(reader.Next(message, size, header), FrameStatus::kBadLength);
    EXPECT_EQ(reader.Next(message, size, header), FrameStatus::kNeedMore);

    const Bytes shortOne = {0x57, 0x00, 0x00};
    DatagramReader tooShort(shortOne.data(), shortOne.size());
    EXPECT_EQ(tooShort.Next(message, size, header), FrameStatus::kBadLength);
}

// An offer of service 0x5700 instance 1 with a TCP and a UDP endpoint, as the server sends it.
const Bytes kOfferPayload = {
    0xC0, 0x00, 0x00, 0x00,  // flags: reboot, unicast; 3 reserved
    0x00, 0x00, 0x00, 0x10,  // entries array: 16 bytes
    0x01,                    // OfferService
    0x00, 0x00,              // first option of run 1 and 2
    0x20,                    // run 1: 2 options, run 2: none
    0x57, 0x00,              // service id
    0x00, 0x01,              // instance id
    0x01,                    // major version
    0x00, 0x00, 0x03,        // TTL 3 s
    0x00, 0x00, 0x00, 0x00,  // minor version
    0x00, 0x00, 0x00, 0x18,  // options array: 24 bytes
    0x00, 0x09, 0x04, 0x00,  // length 9, IPv4 endpoint, reserved
    0x7F, 0x00, 0x00, 0x01,  // 127.0.0.1
    0x00, 0x06, 0x77, 0x25,  // reserved, TCP, port 30501
    0x00, 0x09, 0x04, 0x00,  // length 9, IPv4 endpoint, reserved
    0x7F, 0x00, 0x00, 0x01,  // 127.0.0.1
    0x00, 0x11, 0x77, 0x25,  // reserved, UDP, port 30501
};

TEST(SdMessageTest, EncodesAnOfferWithTwoEndpointOptions) {
    SdMessage message;
    message.flags = kSdFlagReboot | kSdFlagUnicast;
    SdEntry entry;
    entry.type = static_cast<std::uint8_t>(SdEntryType::kOfferService);
    entry.serviceId = 0x5700;
    entry.instanceId = 1;
    entry.majorVersion = 1;
    entry.ttl = 3;
    entry.index1 = AddEndpointOption(message, {127, 0, 0, 1}, L4Protocol::kTcp, 30501);
    AddEndpointOption(message, {127, 0, 0, 1}, L4Protocol::kUdp, 30501);
    entry.count1 = 2;
    message.entries.push_back(entry);
    EXPECT_EQ(EncodeSdPayload(message), kOfferPayload);

    SdMessage decoded;
    ASSERT_EQ(DecodeSdPayload(kOfferPayload.data(), kOfferPayload.size(), decoded), SdStatus::kOk);
    ASSERT_EQ(decoded.entries.size(), 1U);
    EXPECT_EQ(decoded.entries[0].serviceId, 0x5700);
    EXPECT_EQ(decoded.entries[0].ttl, 3U);
    std::vector<const SdOption*> options;
    ASSERT_TRUE(EntryOptions(decoded, decoded.entries[0], options));
    ASSERT_EQ(options.size(), 2U);
    EXPECT_EQ(options[0]->protocol, 0x06);
    EXPECT_EQ(options[1]->protocol, 0x11);
    EXPECT_EQ(options[1]->port, 30501);
}

TEST(SdMessageTest, EncodesASubscribeEntryWithCounterAndEventgroup) {
    SdMessage message;
    SdEntry entry;
    entry.type = static_cast<std::uint8_t>(SdEntryType::kSubscribeEventgroup);
    entry.serviceId = 0x5700;
    entry.instanceId = 1;
    entry.majorVersion = 1;
    entry.ttl = 0xFFFFFF;
    entry.counter = 0x0A;
    entry.eventgroupId = 0x0001;
    message.entries.push_back(entry);
    const Bytes expected = {
        0x40, 0x00, 0x00, 0x00,  // flags: unicast
        0x00, 0x00, 0x00, 0x10,  // entries: 16 bytes
        0x06, 0x00, 0x00, 0x00,  // SubscribeEventgroup, no options
        0x57, 0x00, 0x00, 0x01,  // service, instance
        0x01, 0xFF, 0xFF, 0xFF,  // major, TTL forever
        0x00, 0x0A,              // reserved, 4 reserved bits and counter 10
        0x00, 0x01,              // eventgroup
        0x00, 0x00, 0x00, 0x00,  // no options
    };
    EXPECT_EQ(EncodeSdPayload(message), expected);
    SdMessage decoded;
    ASSERT_EQ(DecodeSdPayload(expected.data(), expected.size(), decoded), SdStatus::kOk);
    EXPECT_EQ(decoded.entries[0].counter, 0x0A);
    EXPECT_EQ(decoded.entries[0].eventgroupId, 1);
}

TEST(SdMessageTest, RefusesLengthsThatDoNotFit) {
    struct Case {
        const char* name;
        std::size_t offset;
        unsigned char value;
        SdStatus expected;
    };
    const std::vector<Case> cases = {
        {"entries length not a multiple of 16", 7, 0x11, SdStatus::kBadEntriesLength},
        {"entries length past the end", 6, 0x01, SdStatus::kBadEntriesLength},
        {"options length past the end", 27, 0x19, SdStatus::kBadOptionsLength},
        {"IPv4 option of length 8", 29, 0x08, SdStatus::kBadOptionLength},
        {"option length past the options", 29, 0x30, SdStatus::kBadOptionLength},
        {"option length 0", 29, 0x00, SdStatus::kBadOptionLength},
    };
    for (const Case& c : cases) {
        Bytes bytes = kOfferPayload;
        bytes[c.offset] = c.value;
        SdMessage decoded;
        EXPECT_EQ(DecodeSdPayload(bytes.data(), bytes.size(), decoded), c.expected) << c.name;
    }
    for (std::size_t size = 0; size < kOfferPayload.size(); ++size) {
        SdMessage decoded;
        EXPECT_NE(DecodeSdPayload(kOfferPayload.data(), size, decoded), SdStatus::kOk) << size;
    }
}

TEST(SdMessageTest, SkipsUnknownOptionsButKeepsTheirPlace) {
    Bytes bytes(kOfferPayload.begin(), kOfferPayload.begin() + 24);
    const Bytes options = {
        0x00, 0x00, 0x00, 0x17,                    // options: 23 bytes
        0x00, 0x04, 0x01, 0x00, 0xAB, 0xCD, 0xEF,  // configuration option (type 1), 3 bytes
        0x00, 0x09, 0x04, 0x00, 0x7F, 0x00, 0x00, 0x01, 0x00, 0x06, 0x77, 0x25,  // TCP
        0x00, 0x01, 0x77, 0x00,  // unknown type 0x77, just the reserved byte
    };
    bytes.insert(bytes.end(), options.begin(), options.end());
    SdMessage decoded;
    ASSERT_EQ(DecodeSdPayload(bytes.data(), bytes.size(), decoded), SdStatus::kOk);
    ASSERT_EQ(decoded.options.size(), 3U);
    EXPECT_FALSE(decoded.options[0].IsIpv4());
    EXPECT_EQ(decoded.options[1].port, 30501);
    // The entry references options 0 and 1; an entry past the end is refused.
    std::vector<const SdOption*> refs;
    EXPECT_TRUE(EntryOptions(decoded, decoded.entries[0], refs));
    SdEntry beyond = decoded.entries[0];
    beyond.index1 = 2;
    EXPECT_FALSE(EntryOptions(decoded, beyond, refs));
}

}  // namespace
}  // namespace lumo::driver::someip
