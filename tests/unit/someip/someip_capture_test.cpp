// A whole exchange between the driver's server and client, captured on the loopback interface
// and judged by tshark's SOME/IP and SOME/IP-SD dissectors: every frame decodes, nothing is
// malformed or truncated.

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "tests/support/temp_dir.h"
#include "tests/unit/someip/someip_test_server.h"
#include "tests/unit/someip/tshark_capture.h"

namespace wardend::test::someip {
namespace {

using lumo::driver::someip::SomeipDriver;
using lumo::vcc::driver::CallStatus;
using lumo::vcc::driver::MethodReply;
using namespace std::chrono_literals;

// The server lives on its own loopback address, so that the SD port the dissector knows is
// free there whatever else runs on 127.0.0.1.
constexpr const char* kServerAddress = "127.0.0.3";
constexpr std::uint16_t kSdPort = 30490;

CallStatus Call(lumo::vcc::driver::MethodClient& client, const Bytes& payload) {
    std::promise<CallStatus> done;
    auto status = done.get_future();
    client.Call(payload.data(), payload.size(), 2s,
                [&done](const MethodReply& reply) { done.set_value(reply.status); });
    return status.get();
}

TEST(SomeipCaptureTest, AWholeExchangeDecodesInTsharkWithoutMalformedFrames) {
    if (!MayCapture()) {
        GTEST_SKIP() << "capturing on lo needs root or CAP_NET_RAW; the wire capture check is "
                        "skipped";
    }
    const std::string tshark = Tshark();
    ASSERT_FALSE(tshark.empty()) << "tshark is missing: scripts/bootstrap installs it";
    TempDir dir;
    const std::uint16_t port = FreePort();
    LoopbackCapture capture(tshark, kServerAddress, dir.Path() + "/someip.pcapng");
    ASSERT_TRUE(capture.Started()) << capture.Stderr();

    {
        auto options = QuickOptions();
        options.cyclicOfferDelay = 100ms;
        TestServer server(options, port, kSdPort, true, 1U << 20U, false, kServerAddress);
        ASSERT_NE(server.method, nullptr) << "127.0.0.3:" << kSdPort << " not free";
        SomeipDriver client(options);
        auto configure = [&](lumo::vcc::api::types::EntityInfo& info, bool udp) {
            info.someip.sdAddress = kServerAddress;
            info.someip.udp = udp;
        };
        auto tcpInfo = MethodOn(kService, kMethod, 0, kSdPort);
        configure(tcpInfo, false);
        auto udpInfo = tcpInfo;
        configure(udpInfo, true);
        auto tcp = client.CreateMethodClient(tcpInfo);
        auto udp = client.CreateMethodClient(udpInfo);
        ASSERT_TRUE(tcp->WaitForService(5s));
        EXPECT_EQ(Call(*tcp, Bytes(40, 1)), CallStatus::kOk);
        EXPECT_EQ(Call(*tcp, {'E'}), CallStatus::kOk);  // an error reply
        EXPECT_EQ(Call(*udp, Bytes(20, 2)), CallStatus::kOk);

        std::vector<std::shared_ptr<lumo::vcc::driver::EventClient>> subscribers;
        std::atomic<int> samples{0};
        for (const bool viaUdp : {false, true}) {
            auto info = EventOn(kService, kEvent, kEventgroup, 0, kSdPort);
            configure(info, viaUdp);
            subscribers.push_back(client.CreateEventClient(info));
            ASSERT_TRUE(subscribers.back()->Subscribe(
                [&samples](const unsigned char*, std::uint64_t) { ++samples; }));
        }
        const auto deadline = std::chrono::steady_clock::now() + 5s;
        while (!(subscribers[0]->IsSubscribed() && subscribers[1]->IsSubscribed()) &&
               std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(5ms);
        }
        ASSERT_TRUE(server.SendEvent({1, 2, 3, 4}));
        while (samples.load() < 2 && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(5ms);
        }
        EXPECT_EQ(samples.load(), 2);
    }
    ASSERT_TRUE(capture.Stop());

    const RunResult detail = capture.Detail({port}, kSdPort);
    ASSERT_EQ(detail.exitCode, 0) << detail.err;
    EXPECT_EQ(LoopbackCapture::FirstMark(detail.out), "");
    const RunResult table = capture.Rows({port}, kSdPort);
    ASSERT_EQ(table.exitCode, 0) << table.err;
    // What must be there: SD find, offer, subscribe, ack; a request, a response, an error, and
    // a notification over TCP (6) and over UDP (17).
    const std::string& rows = table.out;
    auto has = [&rows](const std::string& text) { return rows.find(text) != std::string::npos; };
    EXPECT_TRUE(has("17;0x02;0x00;0x00")) << "SD FindService\n" << rows;
    EXPECT_TRUE(has("17;0x02;0x00;0x01")) << "SD OfferService\n" << rows;
    EXPECT_TRUE(has("17;0x02;0x00;0x06")) << "SD SubscribeEventgroup\n" << rows;
    EXPECT_TRUE(has("17;0x02;0x00;0x07")) << "SD SubscribeEventgroupAck\n" << rows;
    EXPECT_TRUE(has("6;0x00;0x00;;0x5700")) << "request over TCP\n" << rows;
    EXPECT_TRUE(has("6;0x80;0x00;;0x5700")) << "response over TCP\n" << rows;
    EXPECT_TRUE(has("6;0x81;0x01;;0x5700")) << "error reply over TCP\n" << rows;
    EXPECT_TRUE(has("17;0x80;0x00;;0x5700")) << "response over UDP\n" << rows;
    EXPECT_TRUE(has("6;0x02;0x00;;0x5700")) << "notification over TCP\n" << rows;
    EXPECT_TRUE(has("17;0x02;0x00;;0x5700")) << "notification over UDP\n" << rows;
}

}  // namespace
}  // namespace wardend::test::someip
