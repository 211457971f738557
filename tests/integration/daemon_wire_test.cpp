// The real daemon on its default SOME/IP endpoints, judged by a raw-socket peer that shares no
// code path with the driver: the error codes on the wire, a broken stream, and the latency switch
// notification over UDP and TCP.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>

#include "client/wardend_proxy.h"
#include "platform/driver/someip/someip_header.h"
#include "records/service_interfaces.h"
#include "tests/integration/daemon_fixture.h"
#include "tests/support/record_builders.h"
#include "tests/support/temp_dir.h"
#include "tests/unit/someip/someip_peer.h"
#include "tests/unit/someip/tshark_capture.h"

namespace wardend::test::someip {
namespace {

using lumo::driver::someip::DecodeHeader;
using lumo::driver::someip::L4Protocol;
using lumo::driver::someip::SdEntry;
using lumo::driver::someip::SdEntryType;
using lumo::driver::someip::SdMessage;
using vesk::wardend::AppServiceIds;
using vesk::wardend::ToolsServiceIds;
using namespace std::chrono_literals;

constexpr std::uint16_t kSdPort = 30490;
constexpr std::uint16_t kAppPort = 30501;
constexpr std::uint16_t kToolsPort = 30502;
constexpr std::uint16_t kAppService = AppServiceIds::kServiceId;
constexpr std::uint16_t kToolsService = ToolsServiceIds::kServiceId;
constexpr std::uint16_t kRegisterAppInfo = 0x0001;
constexpr std::uint16_t kQueryAllDataType = 0x0001;
constexpr std::uint16_t kLatencyEvent = AppServiceIds::kSomeipLatencySwitchEvent;
constexpr std::uint16_t kLatencyEventgroup = AppServiceIds::kSomeipLatencySwitchEventgroup;

// Subscribes a raw peer on 127.0.0.1 to the latency switch; the acknowledgement, if any.
std::optional<SdEntry> Subscribe(RawUdpPeer& sd, std::uint16_t session, L4Protocol protocol,
                                 std::uint16_t port, const char* address = "127.0.0.1") {
    SdMessage message;
    message.flags = 0xC0;  // a peer's first SD message: reboot and unicast
    SdEntry entry =
        lumo::driver::someip::MakeEntry(SdEntryType::kSubscribeEventgroup, kAppService, 1, 1, 5);
    entry.eventgroupId = kLatencyEventgroup;
    entry.index1 = lumo::driver::someip::AddEndpointOption(message, {127, 0, 0, 1}, protocol, port);
    entry.count1 = 1;
    message.entries.push_back(entry);
    EXPECT_TRUE(sd.SendTo(address, kSdPort, SdDatagram(message, session)));
    const auto deadline = std::chrono::steady_clock::now() + 2s;
    while (std::chrono::steady_clock::now() < deadline) {
        auto datagram = sd.Receive(200ms);
        auto answer = datagram ? ParseSd(*datagram) : std::nullopt;
        if (answer && !answer->entries.empty() &&
            answer->entries[0].type ==
                static_cast<std::uint8_t>(SdEntryType::kSubscribeEventgroupAck)) {
            return answer->entries[0];
        }
    }
    return std::nullopt;
}

class DaemonWireTest : public DaemonTest {
protected:
    void SetUp() override {
        DaemonTest::SetUp();
        daemon_ = StartDaemon();
        ASSERT_TRUE(WaitReady(*daemon_)) << daemon_->Stderr();
    }
    void TearDown() override {
        if (daemon_ != nullptr) {
            StopAndExpectCleanExit(*daemon_);
        }
        DaemonTest::TearDown();
    }

    std::unique_ptr<ChildProcess> daemon_;
};

TEST_F(DaemonWireTest, EveryErrorCodeGoesBackOnTcpAndUdp) {
    struct Case {
        const char* name;
        Bytes request;
        std::uint8_t returnCode;
        std::size_t payloadSize;
    };
    const std::vector<Case> cases{
        {"unknown service", Request(0x1234, kRegisterAppInfo, 1), 0x02, 0},
        {"unknown method", Request(kAppService, 0x0055, 2), 0x03, 0},
        {"event id as method", Request(kAppService, kLatencyEvent, 3), 0x03, 0},
        {"interface version 2", Request(kAppService, kRegisterAppInfo, 4, {}, 0x00, 1, 2), 0x08, 0},
        {"a RESPONSE sent to the server", Request(kAppService, kRegisterAppInfo, 5, {}, 0x80), 0x0A,
         0},
        // A registration cut short: the binding's 17-byte error reply, as E_NOT_OK.
        {"malformed argument", Request(kAppService, kRegisterAppInfo, 6, {0x01, 0x00}), 0x01, 17},
    };
    RawTcpPeer tcp;
    ASSERT_TRUE(tcp.Connect(kAppPort));
    RawUdpPeer udp;
    for (const auto& c : cases) {
        ASSERT_TRUE(tcp.Send(c.request));
        ASSERT_TRUE(udp.SendTo(kAppPort, c.request));
        for (auto answer : {tcp.Receive(), udp.Receive()}) {
            ASSERT_TRUE(answer) << c.name;
            const auto header = DecodeHeader(answer->data());
            const auto asked = DecodeHeader(c.request.data());
            EXPECT_EQ(header.messageType, 0x81) << c.name;
            EXPECT_EQ(header.returnCode, c.returnCode) << c.name;
            EXPECT_EQ(header.RequestId(), asked.RequestId()) << c.name;
            EXPECT_EQ(header.methodId, asked.methodId) << c.name;
            EXPECT_EQ(answer->size() - 16, c.payloadSize) << c.name;
        }
    }
    // A wrong protocol version is answered, and then the TCP connection closes.
    ASSERT_TRUE(tcp.Send(Request(kAppService, kRegisterAppInfo, 7, {}, 0x00, 2)));
    const auto answer = tcp.Receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(DecodeHeader(answer->data()).returnCode, 0x07);
    EXPECT_TRUE(tcp.WaitClosed());
}

TEST_F(DaemonWireTest, AStreamThatCannotBeFramedIsClosedAndTheNextClientIsServed) {
    RawTcpPeer broken;
    ASSERT_TRUE(broken.Connect(kToolsPort));
    ASSERT_TRUE(broken.Send({0x57, 0x01, 0x00, 0x01, 0x00, 0x00, 0x00, 0x07,  // length 7
                             0x42, 0x42, 0x00, 0x01, 0x01, 0x01, 0x00, 0x00}));
    EXPECT_TRUE(broken.WaitClosed());
    RawTcpPeer next;
    ASSERT_TRUE(next.Connect(kToolsPort));
    ASSERT_TRUE(next.Send(Request(kToolsService, kQueryAllDataType, 1)));
    const auto answer = next.Receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(DecodeHeader(answer->data()).messageType, 0x80);
    EXPECT_EQ(DecodeHeader(answer->data()).returnCode, 0x00);
}

// The client library over SOME/IP: every method answers, and the switch reaches its subscriber
// and raw subscribers over UDP and TCP.
TEST_F(DaemonWireTest, EveryMethodAnswersAndTheLatencySwitchReachesEverySubscriber) {
    vesk::wardend::proxy::VESKWardendAppServiceProxy app;
    vesk::wardend::proxy::VESKWardendToolsServiceProxy tools;
    ASSERT_TRUE(app.WaitForService(10s));
    std::atomic<int> switched{0};  // the service id of the last switch seen
    ASSERT_TRUE(app.SubscribeLatencySwitch([&switched](const vesk::wardend::LatencySwitch& sample) {
        switched = sample.index.serviceId;
    }));
    const auto registered = app.RegisterAppInfo(NodeApp("someipNode", getpid())).GetResult();
    ASSERT_TRUE(registered.HasValue());
    EXPECT_EQ(registered.Value().result, 0);
    const auto nodes = tools.QueryNodeInfo("someipNode").GetResult();
    ASSERT_TRUE(nodes.HasValue());
    ASSERT_EQ(nodes.Value().nodeInfos.size(), 1U);
    EXPECT_EQ(nodes.Value().nodeInfos[0].pid, getpid());
    ExpectEveryQueryAnswers(tools);

    RawUdpPeer sd;
    RawUdpPeer udpEvents;
    RawTcpPeer tcpEvents;
    ASSERT_TRUE(tcpEvents.Connect(kAppPort));
    // The daemon takes a TCP subscription only for a connection it has seen a message on.
    ASSERT_TRUE(tcpEvents.Send(Request(kAppService, 0x0055, 1)));
    ASSERT_TRUE(tcpEvents.Receive());
    for (const auto& [session, protocol, port] :
         {std::tuple{1, L4Protocol::kUdp, udpEvents.LocalPort()},
          std::tuple{2, L4Protocol::kTcp, tcpEvents.LocalPort()}}) {
        const auto ack = Subscribe(sd, static_cast<std::uint16_t>(session), protocol, port);
        ASSERT_TRUE(ack);
        EXPECT_EQ(ack->ttl, 5U);
    }

    // The library's subscription is acknowledged asynchronously: switch until a sample arrives.
    vesk::wardend::LatencySwitch latencySwitch;
    latencySwitch.mode = vesk::wardend::LatencyMode::kOn;
    latencySwitch.index.serviceId = 0x4242;
    EXPECT_TRUE(WaitUntil(
        [&] {
            EXPECT_TRUE(tools.SwitchLatencyMode(latencySwitch).GetResult().HasValue());
            return WaitUntil([&] { return switched.load() == 0x4242; }, 200ms);
        },
        10s))
        << "no latency switch reached the SOME/IP subscriber";
    app.UnsubscribeLatencySwitch();

    for (auto notification : {udpEvents.Receive(), tcpEvents.Receive()}) {
        ASSERT_TRUE(notification);
        const auto header = DecodeHeader(notification->data());
        EXPECT_EQ(header.serviceId, kAppService);
        EXPECT_EQ(header.methodId, kLatencyEvent);
        EXPECT_EQ(header.messageType, 0x02);
        EXPECT_EQ(header.returnCode, 0x00);
        const Bytes payload(notification->begin() + 16, notification->end());
        const Bytes serviceId{0x42, 0x42};
        EXPECT_NE(std::search(payload.begin(), payload.end(), serviceId.begin(), serviceId.end()),
                  payload.end())
            << "the switch's index is in the notification";
    }
}

// A whole session with the daemon on an address of its own, captured and judged by tshark.
class DaemonCaptureTest : public DaemonTest {
protected:
    static constexpr const char* kAddress = "127.0.0.4";
};

TEST_F(DaemonCaptureTest, AWholeSessionDecodesInTsharkWithoutMalformedFrames) {
    if (!MayCapture()) {
        GTEST_SKIP() << "capturing on lo needs root or CAP_NET_RAW; the wire capture check is "
                        "skipped";
    }
    const std::string tshark = Tshark();
    ASSERT_FALSE(tshark.empty()) << "tshark is missing: scripts/bootstrap installs it";
    WriteConfig(std::string(R"({"Log": {"level": "info"}, "Services": {
        "someip": {"sdAddress": ")") +
                kAddress + R"("},
        "App": {"address": ")" +
                kAddress + R"("}, "Tools": {"address": ")" + kAddress + R"("}}})");
    TempDir captureDir;
    LoopbackCapture capture(tshark, kAddress, captureDir.Path() + "/wardend.pcapng");
    ASSERT_TRUE(capture.Started()) << capture.Stderr();

    auto daemon = StartDaemon();
    ASSERT_TRUE(WaitReady(*daemon)) << daemon->Stderr();
    {
        vesk::wardend::proxy::VESKWardendAppServiceProxy app;
        vesk::wardend::proxy::VESKWardendToolsServiceProxy tools;
        std::atomic<int> switches{0};
        ASSERT_TRUE(app.SubscribeLatencySwitch(
            [&switches](const vesk::wardend::LatencySwitch&) { ++switches; }));
        EXPECT_TRUE(app.RegisterAppInfo(NodeApp("captured", getpid())).GetResult().HasValue());
        ExpectEveryQueryAnswers(tools);
        EXPECT_TRUE(tools.QueryNodeInfo("captured").GetResult().HasValue());

        // Over UDP, and an error reply: from a raw peer.
        RawUdpPeer udp;
        ASSERT_TRUE(udp.SendTo(kAddress, kToolsPort, Request(kToolsService, kQueryAllDataType, 1)));
        EXPECT_TRUE(udp.Receive());
        ASSERT_TRUE(
            udp.SendTo(kAddress, kAppPort, Request(kAppService, kRegisterAppInfo, 2, {0x01})));
        EXPECT_TRUE(udp.Receive());
        // A raw UDP subscriber beside the client library's TCP one.
        RawUdpPeer sd;
        RawUdpPeer udpEvents;
        ASSERT_TRUE(Subscribe(sd, 1, L4Protocol::kUdp, udpEvents.LocalPort(), kAddress));

        // The client library subscribes asynchronously: switch until a sample arrives.
        vesk::wardend::LatencySwitch latencySwitch;
        latencySwitch.mode = vesk::wardend::LatencyMode::kOn;
        EXPECT_TRUE(WaitUntil(
            [&] {
                EXPECT_TRUE(tools.SwitchLatencyMode(latencySwitch).GetResult().HasValue());
                return WaitUntil([&] { return switches.load() > 0; }, 100ms);
            },
            5s));
        EXPECT_TRUE(udpEvents.Receive());
        app.UnsubscribeLatencySwitch();
    }
    StopAndExpectCleanExit(*daemon);
    ASSERT_TRUE(capture.Stop());

    const std::vector<std::uint16_t> ports{kAppPort, kToolsPort};
    const RunResult detail = capture.Detail(ports, kSdPort);
    ASSERT_EQ(detail.exitCode, 0) << detail.err;
    EXPECT_EQ(LoopbackCapture::FirstMark(detail.out), "");
    const RunResult table = capture.Rows(ports, kSdPort);
    ASSERT_EQ(table.exitCode, 0) << table.err;
    const std::string& rows = table.out;
    auto has = [&rows](const std::string& text) { return rows.find(text) != std::string::npos; };
    EXPECT_TRUE(has("17;0x02;0x00;0x00")) << "SD FindService\n" << rows;
    EXPECT_TRUE(has("17;0x02;0x00;0x01")) << "SD OfferService\n" << rows;
    EXPECT_TRUE(has("17;0x02;0x00;0x06")) << "SD SubscribeEventgroup\n" << rows;
    EXPECT_TRUE(has("17;0x02;0x00;0x07")) << "SD SubscribeEventgroupAck\n" << rows;
    EXPECT_TRUE(has("6;0x80;0x00;;0x5700;0x0001")) << "RegisterAppInfo\n" << rows;
    for (int method = 1; method <= 12; ++method) {
        char row[32];
        std::snprintf(row, sizeof(row), "6;0x80;0x00;;0x5701;0x%04x", method);
        EXPECT_TRUE(has(row)) << "response of tools method " << method << "\n" << rows;
    }
    EXPECT_TRUE(has("17;0x80;0x00;;0x5701")) << "response over UDP\n" << rows;
    EXPECT_TRUE(has("17;0x81;0x01;;0x5700")) << "error reply over UDP\n" << rows;
    EXPECT_TRUE(has("6;0x02;0x00;;0x5700;0x8001")) << "notification over TCP\n" << rows;
    EXPECT_TRUE(has("17;0x02;0x00;;0x5700;0x8001")) << "notification over UDP\n" << rows;
}

}  // namespace
}  // namespace wardend::test::someip
