// The driver's client against its own server, two driver objects in one process as two
// processes would be.

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "tests/support/memory_log.h"
#include "tests/support/method_calls.h"
#include "tests/support/process.h"
#include "tests/support/wait.h"
#include "tests/unit/someip/someip_test_server.h"

namespace wardend::test::someip {
namespace {

using lumo::driver::someip::SomeipDriver;
using lumo::vcc::driver::CallStatus;
using namespace std::chrono_literals;

// Collects samples; waits for them with a timeout.
class Samples {
public:
    lumo::vcc::driver::SampleHandler Handler() {
        return [this](const unsigned char* payload, std::uint64_t size) {
            std::lock_guard<std::mutex> lock(mutex_);
            samples_.emplace_back(payload, payload + size);
            changed_.notify_all();
        };
    }
    bool WaitFor(const Bytes& sample, std::chrono::milliseconds timeout = 5s) {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] {
            return std::find(samples_.begin(), samples_.end(), sample) != samples_.end();
        });
    }
    std::size_t Count() {
        std::lock_guard<std::mutex> lock(mutex_);
        return samples_.size();
    }

private:
    std::mutex mutex_;  // guards samples_
    std::condition_variable changed_;
    std::vector<Bytes> samples_;
};

class SomeipClientTest : public MemoryLogTest {
protected:
    void SetUp() override {
        MemoryLogTest::SetUp();
        server_ = std::make_unique<TestServer>();
        ASSERT_NE(server_->method, nullptr);
        client_ = std::make_unique<SomeipDriver>(QuickOptions());
    }
    void TearDown() override {
        client_.reset();
        server_.reset();
        MemoryLogTest::TearDown();
    }
    std::shared_ptr<lumo::vcc::driver::MethodClient> MethodClient(std::uint16_t method = kMethod,
                                                                  bool udp = false) {
        auto info = MethodOn(kService, method, 0, server_->sdPort);
        info.someip.udp = udp;
        return client_->CreateMethodClient(info);
    }
    std::shared_ptr<lumo::vcc::driver::EventClient> EventClient(bool udp) {
        auto info = EventOn(kService, kEvent, kEventgroup, 0, server_->sdPort);
        info.someip.udp = udp;
        return client_->CreateEventClient(info);
    }

    std::unique_ptr<TestServer> server_;
    std::unique_ptr<SomeipDriver> client_;
};

TEST_F(SomeipClientTest, CallsOverTcpAndUdpWithSessionsCountingFromOne) {
    auto tcp = MethodClient();
    auto udp = MethodClient(kMethod, true);
    ASSERT_TRUE(tcp->WaitForService(5s));
    for (auto* client : {tcp.get(), udp.get(), tcp.get()}) {
        const auto reply = CallAndWait(*client, "abcd", 2s).value();
        EXPECT_EQ(reply.status, CallStatus::kOk) << reply.reason;
        EXPECT_FALSE(reply.isErrorReply);
        EXPECT_EQ(reply.payload, "ok:abcd");
    }
    const auto seen = server_->Requests();
    ASSERT_EQ(seen.size(), 3U);
    for (std::size_t i = 0; i < seen.size(); ++i) {
        EXPECT_EQ(seen[i].uuid.low, i + 1);
        EXPECT_EQ(seen[i].uuid.high & 0xFFFFU, client_->ClientId());
    }
    EXPECT_EQ(tcp->GetSerializeType(), 2);

    // A call without return reaches the server and leaves the stream in step.
    const Bytes payload = {'x'};
    ASSERT_TRUE(tcp->CallNoReturn(payload.data(), payload.size()));
    EXPECT_EQ(CallAndWait(*tcp, "", 2s).value().status, CallStatus::kOk);
    EXPECT_TRUE(server_->WaitRequests(5));
}

TEST_F(SomeipClientTest, ReplyKindsReachTheHandler) {
    auto client = MethodClient();
    auto unknown = MethodClient(0x0055);
    const auto error = CallAndWait(*client, "E", 2s).value();
    EXPECT_EQ(error.status, CallStatus::kOk);
    EXPECT_TRUE(error.isErrorReply);
    EXPECT_EQ(error.payload, "ok:E");

    const auto refused = CallAndWait(*unknown, "", 2s).value();
    EXPECT_EQ(refused.status, CallStatus::kRefused);
    EXPECT_EQ(refused.reason, "E_UNKNOWN_METHOD");
    EXPECT_EQ(CallAndWait(*client, "N", 100ms).value().status, CallStatus::kTimeout);

    // A reply above the datagram size becomes an error without payload.
    auto udp = MethodClient(kMethod, true);
    const auto tooLarge = CallAndWait(*udp, Answerer::BigReplyRequest(3000), 2s).value();
    EXPECT_EQ(tooLarge.status, CallStatus::kRefused);
    EXPECT_EQ(tooLarge.reason, "E_NOT_OK");
    EXPECT_TRUE(tooLarge.payload.empty());
    EXPECT_TRUE(WaitContaining("UDP reply too large")) << LogDump();

    const auto big = CallAndWait(*udp, std::string(2000, 'x'), 2s).value();
    EXPECT_EQ(big.status, CallStatus::kRefused);
    EXPECT_NE(big.reason.find("exceeds the maximum of 1400"), std::string::npos) << big.reason;
}

// Requests are bounded by the message size, replies by the larger reply size: a query over a
// fleet's tables answers with megabytes.
TEST_F(SomeipClientTest, RepliesAreBoundedByTheReplySizeNotTheRequestSize) {
    auto info = MethodOn(kService, kMethod, 0, server_->sdPort);
    info.someip.maxReplySize = 3U << 20U;
    auto client = client_->CreateMethodClient(info);
    ASSERT_TRUE(client->WaitForService(5s));
    // Twice: a reply the socket does not take at once goes out in parts, and the connection
    // must stand on a frame boundary after it.
    for (int round = 0; round < 2; ++round) {
        const auto big = CallAndWait(*client, Answerer::BigReplyRequest(2U << 20U), 10s).value();
        EXPECT_EQ(big.status, CallStatus::kOk) << big.reason;
        ASSERT_EQ(big.payload.size(), 2U << 20U);
        std::size_t wrong = 0;
        for (std::size_t i = 0; i < big.payload.size(); ++i) {
            wrong += static_cast<char>(big.payload[i]) != Answerer::BigReplyByte(i) ? 1 : 0;
        }
        EXPECT_EQ(wrong, 0U) << "round " << round;
    }

    EXPECT_NE(CallAndWait(*client, Answerer::BigReplyRequest(4U << 20U), 10s).value().status,
              CallStatus::kOk);
    EXPECT_TRUE(WaitContaining("message too large")) << LogDump();
}

int ThreadsNamed(const std::string& name) {
    int count = 0;
    for (const auto& thread : Threads(getpid())) {
        count += thread.name == name ? 1 : 0;
    }
    return count;
}

// A process that links the driver but has no SOME/IP entity pays no thread and no tick; a
// service nobody offers is not reachable.
TEST_F(SomeipClientTest, TheIoThreadStartsWithTheFirstEntity) {
    const int before = ThreadsNamed("someip_io");
    {
        SomeipDriver driver(QuickOptions());
        EXPECT_EQ(ThreadsNamed("someip_io"), before);
        auto client = driver.CreateMethodClient(MethodOn(0x7777, 1, 0, server_->sdPort));
        EXPECT_EQ(ThreadsNamed("someip_io"), before + 1);
        EXPECT_FALSE(client->WaitForService(100ms));
        const auto reply = CallAndWait(*client, "", 150ms).value();
        EXPECT_EQ(reply.status, CallStatus::kNotReachable);
        EXPECT_FALSE(reply.reason.empty());
        EXPECT_FALSE(client->CallNoReturn(nullptr, 0));
    }
    EXPECT_EQ(ThreadsNamed("someip_io"), before);
}

TEST_F(SomeipClientTest, SubscribersOverTcpAndUdpGetEventsUntilTheyUnsubscribe) {
    auto tcp = EventClient(false);
    auto udp = EventClient(true);
    Samples tcpSamples;
    Samples udpSamples;
    ASSERT_TRUE(tcp->Subscribe(tcpSamples.Handler()));
    ASSERT_TRUE(udp->Subscribe(udpSamples.Handler()));
    ASSERT_TRUE(WaitUntil([&] { return tcp->IsSubscribed() && udp->IsSubscribed(); }));
    ASSERT_TRUE(server_->SendEvent({7, 7}));
    EXPECT_TRUE(tcpSamples.WaitFor({7, 7}));
    EXPECT_TRUE(udpSamples.WaitFor({7, 7}));
    EXPECT_EQ(tcpSamples.Count(), 1U);  // each on its own transport only

    udp->Unsubscribe();
    EXPECT_FALSE(udp->IsSubscribed());
    ASSERT_TRUE(server_->SendEvent({8}));
    EXPECT_TRUE(tcpSamples.WaitFor({8}));
    EXPECT_EQ(udpSamples.Count(), 1U);
}

// A TCP and a UDP subscription to one eventgroup are two subscriptions on the wire: a server
// that acknowledges only the UDP one leaves the TCP one unacknowledged. The SD side is a raw
// peer; the TCP endpoint it offers is the test server's, so that the connection opens.
TEST_F(SomeipClientTest, AnAcknowledgementReachesOnlyTheSubscriptionItAnswers) {
    using namespace lumo::driver::someip;
    const std::uint16_t sdPort = FreePort();
    const RawUdpPeer sd("239.255.87.2", sdPort);
    auto tcpInfo = EventOn(kService, kEvent, kEventgroup, 0, sdPort);
    auto udpInfo = tcpInfo;
    udpInfo.someip.udp = true;
    auto tcp = client_->CreateEventClient(tcpInfo);
    auto udp = client_->CreateEventClient(udpInfo);
    Samples samples;
    ASSERT_TRUE(tcp->Subscribe(samples.Handler()));
    ASSERT_TRUE(udp->Subscribe(samples.Handler()));

    // Both subscribes are in before the UDP one is acknowledged, so that both wait for an ack.
    std::uint16_t clientSd = 0;
    std::uint16_t session = 1;
    bool offered = false;
    int subscribes = 0;
    SdMessage ack;
    const auto until = std::chrono::steady_clock::now() + 5s;
    while (subscribes < 2 && std::chrono::steady_clock::now() < until) {
        const auto datagram = sd.Receive(200ms, &clientSd);
        const auto message = datagram ? ParseSd(*datagram) : std::nullopt;
        if (!message) {
            continue;
        }
        for (const SdEntry& entry : message->entries) {
            if (entry.type == static_cast<std::uint8_t>(SdEntryType::kFindService) && !offered) {
                SdMessage offer;
                SdEntry entryOut = MakeEntry(SdEntryType::kOfferService, kService, 1, 1, 30);
                entryOut.index1 =
                    AddEndpointOption(offer, {127, 0, 0, 1}, L4Protocol::kTcp, server_->port);
                AddEndpointOption(offer, {127, 0, 0, 1}, L4Protocol::kUdp, server_->port);
                entryOut.count1 = 2;
                offer.entries.push_back(entryOut);
                ASSERT_TRUE(sd.SendTo(clientSd, SdDatagram(offer, session++)));
                offered = true;
            } else if (entry.type == static_cast<std::uint8_t>(SdEntryType::kSubscribeEventgroup)) {
                std::vector<const SdOption*> endpoints;
                ASSERT_TRUE(EntryOptions(*message, entry, endpoints));
                ASSERT_EQ(endpoints.size(), 1U);
                ++subscribes;
                if (endpoints[0]->protocol == static_cast<std::uint8_t>(L4Protocol::kUdp)) {
                    ack.entries.push_back(AckOf(entry));
                }
            }
        }
    }
    ASSERT_EQ(subscribes, 2) << LogDump();
    ASSERT_EQ(ack.entries.size(), 1U);
    ASSERT_TRUE(sd.SendTo(clientSd, SdDatagram(ack, session++)));
    ASSERT_TRUE(WaitUntil([&] { return udp->IsSubscribed(); }));
    std::this_thread::sleep_for(100ms);  // an ack taken by the wrong subscription would be in
    EXPECT_FALSE(tcp->IsSubscribed());
}

TEST_F(SomeipClientTest, SubscriptionIsRenewedBeforeItsTtlRunsOut) {
    auto options = QuickOptions();
    options.subscribeTtlSeconds = 1;
    client_ = std::make_unique<SomeipDriver>(options);
    auto events = EventClient(true);
    Samples samples;
    ASSERT_TRUE(events->Subscribe(samples.Handler()));
    ASSERT_TRUE(WaitUntil([&] { return events->IsSubscribed(); }));
    // Well past the TTL the server still sends to us.
    const auto until = std::chrono::steady_clock::now() + 2500ms;
    std::uint8_t n = 0;
    while (std::chrono::steady_clock::now() < until) {
        ASSERT_TRUE(server_->SendEvent({n}));
        ASSERT_TRUE(samples.WaitFor({n}, 1s)) << "sample " << int{n};
        ++n;
        std::this_thread::sleep_for(100ms);
    }
}

TEST_F(SomeipClientTest, AfterTheServerRestartsCallsAndSubscriptionsComeBackByThemselves) {
    auto client = MethodClient();
    auto events = EventClient(false);
    std::atomic<int> found{0};
    client->SetServiceFoundHandler([&found] { ++found; });
    Samples samples;
    ASSERT_TRUE(events->Subscribe(samples.Handler()));
    ASSERT_EQ(CallAndWait(*client, "", 2s).value().status, CallStatus::kOk);
    ASSERT_TRUE(WaitUntil([&] { return events->IsSubscribed(); }));
    EXPECT_EQ(found.load(), 1);
    const ReplyCatcher pending;
    client->Call(reinterpret_cast<const unsigned char*>("N"), 1, 10s, pending.Handler());
    ASSERT_TRUE(server_->WaitRequests(2));

    const std::uint16_t port = server_->port;
    const std::uint16_t sdPort = server_->sdPort;
    server_.reset();
    // The call still open on the closed connection ends long before its timeout.
    const auto ended = pending.Wait(5s);
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->status, CallStatus::kNotReachable);
    EXPECT_NE(ended->reason.find("connection to 127.0.0.1:"), std::string::npos) << ended->reason;
    EXPECT_TRUE(WaitUntil([&] { return !events->IsSubscribed(); }));
    server_ = std::make_unique<TestServer>(QuickOptions(), port, sdPort);
    ASSERT_NE(server_->method, nullptr);

    EXPECT_TRUE(WaitUntil(
        [&] { return CallAndWait(*client, "", 200ms).value().status == CallStatus::kOk; }));
    ASSERT_TRUE(WaitUntil([&] { return events->IsSubscribed(); }));
    ASSERT_TRUE(server_->SendEvent({3}));
    EXPECT_TRUE(samples.WaitFor({3}));
    // The restarted server lost what the client told it: the client hears of it once.
    EXPECT_EQ(found.load(), 2);
    client->SetServiceFoundHandler(nullptr);
}

}  // namespace
}  // namespace wardend::test::someip
