// The server side judged by a raw-socket peer: answers, error codes on the wire, SD, and the
// refusals that keep a misbehaving peer from hurting the others.

#include <gtest/gtest.h>

#include "platform/driver/someip/someip_header.h"
#include "tests/support/memory_log.h"
#include "tests/unit/someip/someip_test_server.h"

namespace wardend::test::someip {
namespace {

using lumo::driver::someip::DecodeHeader;
using lumo::driver::someip::kSdFlagReboot;
using lumo::driver::someip::L4Protocol;
using lumo::driver::someip::SdEntry;
using lumo::driver::someip::SdEntryType;
using lumo::driver::someip::SdMessage;

SdMessage Find(std::uint16_t service, std::uint16_t instance, std::uint8_t major) {
    SdMessage find;
    find.flags = 0xC0;  // reboot and unicast, as a peer sends before its first wrap
    SdEntry entry =
        lumo::driver::someip::MakeEntry(SdEntryType::kFindService, service, instance, major, 3);
    entry.minorVersion = 0xFFFFFFFF;
    find.entries.push_back(entry);
    return find;
}

class SomeipServerTest : public MemoryLogTest {
protected:
    void SetUp() override {
        MemoryLogTest::SetUp();
        server_ = std::make_unique<TestServer>();
        ASSERT_NE(server_->method, nullptr);
    }
    void TearDown() override {
        server_.reset();
        MemoryLogTest::TearDown();
    }

    SdEntry Subscribe(std::uint16_t eventgroup, std::uint32_t ttl, SdMessage& message,
                      L4Protocol protocol, std::uint16_t port) {
        SdEntry entry =
            lumo::driver::someip::MakeEntry(SdEntryType::kSubscribeEventgroup, kService, 1, 1, ttl);
        entry.counter = 3;
        entry.eventgroupId = eventgroup;
        entry.index1 =
            lumo::driver::someip::AddEndpointOption(message, {127, 0, 0, 1}, protocol, port);
        entry.count1 = 1;
        return entry;
    }

    // Sends one subscription from sd and returns the answering entry, if any.
    std::optional<SdEntry> SubscribeFrom(RawUdpPeer& sd, std::uint16_t session,
                                         std::uint16_t eventgroup, std::uint32_t ttl,
                                         L4Protocol protocol, std::uint16_t port) {
        SdMessage message;
        message.flags = 0xC0;  // reboot and unicast, as a peer sends before its first wrap
        message.entries.push_back(Subscribe(eventgroup, ttl, message, protocol, port));
        sd.SendTo(server_->sdPort, SdDatagram(message, session));
        // Cyclic offers may come in between; a missing answer shows within half a second.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
        for (;;) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            auto datagram = left.count() > 0 ? sd.Receive(left) : std::nullopt;
            if (!datagram) {
                return std::nullopt;
            }
            auto answer = ParseSd(*datagram);
            if (answer && !answer->entries.empty() &&
                answer->entries[0].type ==
                    static_cast<std::uint8_t>(SdEntryType::kSubscribeEventgroupAck)) {
                return answer->entries[0];
            }
        }
    }

    std::unique_ptr<TestServer> server_;
};

TEST_F(SomeipServerTest, TcpRequestGetsResponseWithTheRequestIdsAndTheMessageGetsTheUuid) {
    RawTcpPeer peer;
    ASSERT_TRUE(peer.Connect(server_->port));
    ASSERT_TRUE(peer.Send(Request(kService, kMethod, 0x0007, {1, 2, 3})));
    auto reply = peer.Receive();
    ASSERT_TRUE(reply);
    const Bytes expected = {0x57, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x0E,  // length 8 + 6
                            0x42, 0x42, 0x00, 0x07, 0x01, 0x01, 0x80, 0x00,  // RESPONSE, E_OK
                            'o',  'k',  ':',  1,    2,    3};
    EXPECT_EQ(*reply, expected);
    const auto seen = server_->Requests();
    ASSERT_EQ(seen.size(), 1U);
    EXPECT_EQ(seen[0].uuid.high & 0xFFFFU, 0x4242U);
    EXPECT_EQ(seen[0].uuid.low, 7U);
    EXPECT_EQ(seen[0].serializeType, 2);
    EXPECT_EQ(seen[0].driverType, lumo::vcc::api::types::DriverType::kSomeip);
    EXPECT_EQ(seen[0].payload, "\x01\x02\x03");
}

// Nothing answers a magic cookie, a notification, a request without return or an error.
TEST_F(SomeipServerTest, OnlyRequestsAreAnswered) {
    RawTcpPeer peer;
    ASSERT_TRUE(peer.Connect(server_->port));
    ASSERT_TRUE(peer.Send({0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x00, 0x08,  // client's cookie
                           0xDE, 0xAD, 0xBE, 0xEF, 0x01, 0x01, 0x01, 0x00}));
    ASSERT_TRUE(peer.Send(Request(0x1234, kMethod, 1, {}, 0x02)));  // notification
    ASSERT_TRUE(peer.Send(Request(0x1234, kMethod, 2, {}, 0x01)));  // no return
    ASSERT_TRUE(peer.Send(Request(kService, 0x0055, 3, {}, 0x01)));
    ASSERT_TRUE(peer.Send(Request(0x1234, kMethod, 4, {}, 0x81)));       // error
    ASSERT_TRUE(peer.Send(Request(kService, kMethod, 5, {'x'}, 0x01)));  // served, no reply
    ASSERT_TRUE(peer.Send(Request(kService, kMethod, 6)));
    EXPECT_EQ(HeaderOf(peer.Receive()).sessionId, 6);
    EXPECT_EQ(server_->Requests().size(), 2U);
}

TEST_F(SomeipServerTest, WrongProtocolVersionIsAnsweredThenTheTcpConnectionCloses) {
    RawTcpPeer tcp;
    ASSERT_TRUE(tcp.Connect(server_->port));
    ASSERT_TRUE(tcp.Send(Request(kService, kMethod, 1, {}, 0x00, 2)));
    const SomeipHeader answer = HeaderOf(tcp.Receive());
    EXPECT_EQ(answer.returnCode, 0x07);
    EXPECT_EQ(answer.protocolVersion, 1);
    EXPECT_TRUE(tcp.WaitClosed());

    RawUdpPeer udp;
    ASSERT_TRUE(udp.SendTo(server_->port, Request(kService, kMethod, 2, {}, 0x00, 2)));
    EXPECT_EQ(HeaderOf(udp.Receive()).returnCode, 0x07);
    // UDP carries on.
    ASSERT_TRUE(udp.SendTo(server_->port, Request(kService, kMethod, 3)));
    EXPECT_EQ(HeaderOf(udp.Receive()).returnCode, 0x00);
}

TEST_F(SomeipServerTest, HalfAMessageThatStallsIsClosedAfterTheTimeout) {
    RawTcpPeer peer;
    ASSERT_TRUE(peer.Connect(server_->port));
    Bytes request = Request(kService, kMethod, 1, Bytes(100, 1));
    request.resize(60);
    ASSERT_TRUE(peer.Send(request));
    EXPECT_TRUE(peer.WaitClosed(std::chrono::seconds(3)));
    EXPECT_TRUE(WaitContaining("incomplete message timed out")) << LogDump();
}

TEST_F(SomeipServerTest, ConnectionsAboveTheLimitAreRefused) {
    std::vector<std::unique_ptr<RawTcpPeer>> peers;
    for (std::size_t i = 0; i < QuickOptions().maxConnections; ++i) {
        peers.push_back(std::make_unique<RawTcpPeer>());
        ASSERT_TRUE(peers.back()->Connect(server_->port));
        // An answer proves the server has taken the connection.
        ASSERT_TRUE(peers.back()->Send(Request(kService, kMethod, 1)));
        ASSERT_TRUE(peers.back()->Receive());
    }
    RawTcpPeer extra;
    ASSERT_TRUE(extra.Connect(server_->port));
    EXPECT_TRUE(extra.WaitClosed());
    EXPECT_TRUE(WaitContaining("Connection refused: limit of 4 reached")) << LogDump();
    peers.pop_back();
    RawTcpPeer again;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    bool served = false;
    while (!served && std::chrono::steady_clock::now() < deadline) {
        served = again.Connect(server_->port) && again.Send(Request(kService, kMethod, 2)) &&
                 again.Receive(std::chrono::milliseconds(200)).has_value();
    }
    EXPECT_TRUE(served);
}

TEST_F(SomeipServerTest, AClientThatNeverReadsIsDroppedWhileOthersAreServed) {
    RawTcpPeer lazy;
    ASSERT_TRUE(lazy.Connect(server_->port));
    // Far more reply bytes than the socket buffers and the send queue hold.
    const std::string big = Answerer::BigReplyRequest(20000);
    const Bytes request = Request(kService, kMethod, 1, Bytes(big.begin(), big.end()));
    RawTcpPeer busy;
    ASSERT_TRUE(busy.Connect(server_->port));
    bool dropped = false;
    for (int i = 0; i < 2000 && !dropped; ++i) {
        if (!lazy.Send(request)) {
            break;
        }
        if (i % 50 == 0) {
            ASSERT_TRUE(busy.Send(Request(kService, kMethod, static_cast<std::uint16_t>(i + 2))));
            ASSERT_TRUE(busy.Receive()) << "request " << i;
            dropped = CountContaining("Send queue full, connection dropped") > 0;
        }
    }
    EXPECT_TRUE(WaitContaining("Send queue full, connection dropped")) << LogDump();
}

TEST_F(SomeipServerTest, FindServiceGetsAUnicastOfferWithBothEndpointsUntilTheStopOffer) {
    RawUdpPeer sd;
    const SdMessage find = Find(kService, 0xFFFF, 0xFF);
    ASSERT_TRUE(sd.SendTo(server_->sdPort, SdDatagram(find, 1)));
    auto datagram = sd.Receive();
    ASSERT_TRUE(datagram);
    const auto header = DecodeHeader(datagram->data());
    EXPECT_EQ(header.serviceId, 0xFFFF);
    EXPECT_EQ(header.methodId, 0x8100);
    EXPECT_EQ(header.sessionId, 1);
    auto offer = ParseSd(*datagram);
    ASSERT_TRUE(offer);
    EXPECT_NE(offer->flags & kSdFlagReboot, 0);
    ASSERT_EQ(offer->entries.size(), 1U);
    EXPECT_EQ(offer->entries[0].type, 0x01);
    EXPECT_EQ(offer->entries[0].instanceId, 1);
    EXPECT_GT(offer->entries[0].ttl, 0U);
    std::vector<const lumo::driver::someip::SdOption*> options;
    ASSERT_TRUE(lumo::driver::someip::EntryOptions(*offer, offer->entries[0], options));
    ASSERT_EQ(options.size(), 2U);
    EXPECT_EQ(options[0]->protocol, 0x06);
    EXPECT_EQ(options[0]->port, server_->port);
    EXPECT_EQ(options[1]->protocol, 0x11);
    EXPECT_EQ(options[1]->port, server_->port);
    // The peer is now known: cyclic offers follow without asking, with growing sessions.
    EXPECT_GT(HeaderOf(sd.Receive(std::chrono::seconds(2))).sessionId, 1);

    // Stopping the offer tells the known peer, and requests are refused from then on.
    server_->driver->StopOfferService(kService, "1");
    bool stopped = false;
    while (!stopped) {
        datagram = sd.Receive(std::chrono::seconds(2));
        ASSERT_TRUE(datagram);
        auto message = ParseSd(*datagram);
        stopped = message && message->entries.size() == 1 && message->entries[0].ttl == 0;
    }
    RawTcpPeer tcp;
    ASSERT_TRUE(tcp.Connect(server_->port));
    ASSERT_TRUE(tcp.Send(Request(kService, kMethod, 1)));
    EXPECT_EQ(HeaderOf(tcp.Receive()).returnCode, 0x04);  // E_NOT_READY
}

// A UDP subscription ends when its subscriber stops it, and when its peer reboots.
TEST_F(SomeipServerTest, UdpSubscriberIsAckedGetsNotificationsAndLosesThemOnStopOrReboot) {
    RawUdpPeer sd;
    RawUdpPeer events;
    auto ack = SubscribeFrom(sd, 1, kEventgroup, 3, L4Protocol::kUdp, events.LocalPort());
    ASSERT_TRUE(ack);
    EXPECT_EQ(ack->ttl, 3U);
    EXPECT_EQ(ack->counter, 3);
    EXPECT_EQ(ack->eventgroupId, kEventgroup);
    ASSERT_TRUE(server_->SendEvent({9, 8, 7}));
    auto notification = events.Receive();
    ASSERT_TRUE(notification);
    const auto header = DecodeHeader(notification->data());
    EXPECT_EQ(header.methodId, kEvent);
    EXPECT_EQ(header.messageType, 0x02);
    EXPECT_EQ(header.returnCode, 0x00);
    EXPECT_EQ(Bytes(notification->begin() + 16, notification->end()), (Bytes{9, 8, 7}));

    EXPECT_FALSE(SubscribeFrom(sd, 2, kEventgroup, 0, L4Protocol::kUdp, events.LocalPort()));
    ASSERT_TRUE(server_->SendEvent({1}));
    EXPECT_FALSE(events.Receive(std::chrono::milliseconds(200)));

    ASSERT_TRUE(SubscribeFrom(sd, 5, kEventgroup, 3, L4Protocol::kUdp, events.LocalPort()));
    // The same peer starts again: reboot flag with a session that does not grow.
    const SdMessage find = Find(0x9999, 0xFFFF, 0xFF);
    ASSERT_TRUE(sd.SendTo(server_->sdPort, SdDatagram(find, 1)));
    EXPECT_TRUE(WaitContaining("SD peer restarted")) << LogDump();
    ASSERT_TRUE(server_->SendEvent({2}));
    EXPECT_FALSE(events.Receive(std::chrono::milliseconds(200)));
}

TEST_F(SomeipServerTest, TcpSubscriptionNeedsItsConnectionAndGetsEventsOnIt) {
    RawUdpPeer sd;
    RawTcpPeer tcp;
    ASSERT_TRUE(tcp.Connect(server_->port));
    // A port with no connection behind it is refused.
    auto nack = SubscribeFrom(sd, 1, kEventgroup, 3, L4Protocol::kTcp, 1);
    ASSERT_TRUE(nack);
    EXPECT_EQ(nack->ttl, 0U);
    // The connection must be established on the server's side before the subscription.
    ASSERT_TRUE(tcp.Send(Request(kService, kMethod, 1)));
    ASSERT_TRUE(tcp.Receive());
    auto ack = SubscribeFrom(sd, 2, kEventgroup, 3, L4Protocol::kTcp, tcp.LocalPort());
    ASSERT_TRUE(ack);
    EXPECT_EQ(ack->ttl, 3U);
    ASSERT_TRUE(server_->SendEvent({5}));
    EXPECT_EQ(HeaderOf(tcp.Receive()).methodId, kEvent);
    // An unknown eventgroup is refused.
    auto unknown = SubscribeFrom(sd, 3, 0x0077, 3, L4Protocol::kTcp, tcp.LocalPort());
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->ttl, 0U);
    EXPECT_TRUE(WaitContaining("Subscription refused: unknown eventgroup")) << LogDump();
}

TEST_F(SomeipServerTest, SubscriptionEndsAtTtlExpiry) {
    RawUdpPeer sd;
    RawUdpPeer events;
    ASSERT_TRUE(SubscribeFrom(sd, 1, kEventgroup, 1, L4Protocol::kUdp, events.LocalPort()));
    ASSERT_TRUE(server_->SendEvent({1}));
    ASSERT_TRUE(events.Receive());
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(4);
    bool expired = false;
    while (!expired && std::chrono::steady_clock::now() < deadline) {
        server_->SendEvent({2});
        expired = !events.Receive(std::chrono::milliseconds(100)).has_value();
    }
    EXPECT_TRUE(expired);
}

TEST(SomeipMulticastTest, OffersGoToTheConfiguredGroup) {
    constexpr const char* kGroup = "239.255.87.1";
    const std::uint16_t port = FreePort();
    const std::uint16_t sdPort = FreePort();
    RawUdpPeer member(kGroup, sdPort);
    lumo::driver::someip::SomeipDriver driver(QuickOptions());
    auto info = MethodOn(kService, kMethod, port, sdPort);
    info.someip.sdMulticast = kGroup;
    auto method = driver.CreateMethodHandler(info);
    ASSERT_NE(method, nullptr);
    method->SetReceiveHandler([](const lumo::vcc::driver::MethodMsgPtr&) {});
    ASSERT_TRUE(driver.OfferService(kService, "1"));
    auto datagram = member.Receive(std::chrono::seconds(2));
    ASSERT_TRUE(datagram);
    auto offer = ParseSd(*datagram);
    ASSERT_TRUE(offer);
    ASSERT_EQ(offer->entries.size(), 1U);
    EXPECT_EQ(offer->entries[0].type, 0x01);
    EXPECT_EQ(offer->entries[0].serviceId, kService);
    method->SetReceiveHandler(nullptr);
}

TEST_F(SomeipServerTest, BrokenSdDatagramsAreLoggedAndDropped) {
    RawUdpPeer sd;
    Bytes broken = SdDatagram(SdMessage{}, 1);
    broken[16 + 7] = 0x20;  // entries array longer than the datagram
    ASSERT_TRUE(sd.SendTo(server_->sdPort, broken));
    ASSERT_TRUE(sd.SendTo(server_->sdPort, {0x01, 0x02}));
    EXPECT_TRUE(WaitContaining("SD message dropped: bad entries length")) << LogDump();
    EXPECT_TRUE(WaitContaining("SD datagram dropped: length below 8")) << LogDump();
}

TEST_F(SomeipServerTest, ATakenPortFailsTheHandlerCreation) {
    lumo::driver::someip::SomeipDriver other(QuickOptions());
    EXPECT_EQ(other.CreateMethodHandler(MethodOn(0x5701, 1, server_->port, FreePort())), nullptr);
    EXPECT_GT(CountContaining("Create method handler failed"), 0U) << LogDump();
}

}  // namespace
}  // namespace wardend::test::someip
