// The real daemon under hostile input, stalled clients and a stop under load.
//
// The hostile run is bounded by frames and time: WARDEND_HOSTILE_FRAMES and
// WARDEND_HOSTILE_SECONDS raise the bounds for the long run of scripts/run-soak.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <random>
#include <thread>

#include "binding/serialize/someip_serializer.h"
#include "client/wardend_proxy.h"
#include "platform/driver/someip/sd_message.h"
#include "platform/driver/someip/someip_header.h"
#include "platform/vcc/service_config.h"
#include "records/service_interfaces.h"
#include "tests/integration/daemon_fixture.h"
#include "tests/support/record_builders.h"
#include "tests/unit/someip/someip_peer.h"

namespace {

using vesk::wardend::proxy::ProxyOptions;
using vesk::wardend::proxy::VESKWardendAppServiceProxy;
using vesk::wardend::proxy::VESKWardendToolsServiceProxy;
using namespace std::chrono_literals;
using Bytes = std::vector<unsigned char>;
using Clock = std::chrono::steady_clock;
namespace someip = lumo::driver::someip;

constexpr std::uint16_t kAppPort = 30501;
constexpr std::uint16_t kToolsPort = 30502;
constexpr std::uint16_t kSdPort = 30490;

std::size_t EnvOr(const char* name, std::size_t fallback) {
    const char* value = std::getenv(name);
    return value == nullptr ? fallback
                            : static_cast<std::size_t>(std::strtoull(value, nullptr, 10));
}

std::size_t OpenDescriptors(pid_t pid) {
    std::size_t count = 0;
    if (DIR* dir = ::opendir(("/proc/" + std::to_string(pid) + "/fd").c_str())) {
        while (const dirent* entry = ::readdir(dir)) {
            count += entry->d_name[0] == '.' ? 0 : 1;
        }
        ::closedir(dir);
    }
    return count;
}

sockaddr_in Loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

int ConnectTcp(std::uint16_t port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    const sockaddr_in address = Loopback(port);
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return -1;
    }
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    return fd;
}

template <typename T>
Bytes Serialized(const T& value, std::uint32_t entityId, bool tools) {
    const auto info = lumo::vcc::MakeMethodInfo(
        tools ? vesk::wardend::ToolsServiceIdentifier() : vesk::wardend::AppServiceIdentifier(),
        "1", entityId, lumo::vcc::api::types::DriverType::kSomeip, lumo::vcc::ServiceConfig{});
    lumo::serialize::someip::Serializer<T> writer(value, info->requestConfig);
    Bytes payload(writer.GetSize());
    writer.Serialize(payload.data());
    return payload;
}

Bytes Frame(std::uint16_t service, std::uint16_t method, std::uint8_t type, const Bytes& payload) {
    return wardend::test::someip::Request(service, method, 1, payload, type);
}

vesk::wardend::AppRegisterInfo EventRegistration(const std::string& app, std::uint16_t event) {
    wardend::test::EventShape shape(app, "HostileType", ::getpid(), 0x4000);
    shape.eventId = static_cast<std::uint16_t>(0x8000U | event);
    shape.shortName = "/hostile/" + app + "/instance/with/a/long/name";
    auto info = wardend::test::App(vesk::wardend::AppRegisterInfoType::EVENT, true);
    info.eventInfo = wardend::test::Event(shape, false, true);
    info.eventInfo.text.clear();  // no data type to read
    return info;
}

// Valid messages for every port: a registration, each tools method with a name, a bare
// request, an error and a notification, and the SD entries a client sends.
struct Seeds {
    std::vector<Bytes> app;
    std::vector<Bytes> tools;
    std::vector<Bytes> sd;
};

Seeds MakeSeeds() {
    Seeds seeds;
    const Bytes registration = Serialized(EventRegistration("hostile", 1),
                                          vesk::wardend::AppServiceIds::kRegisterAppInfo, false);
    seeds.app.push_back(Frame(0x5700, 0x0001, 0x00, registration));
    seeds.app.push_back(Frame(0x5700, 0x0001, 0x01, registration));
    seeds.app.push_back(Frame(0x5700, 0x8001, 0x02, {}));
    const Bytes name =
        Serialized(ara::core::String("ALL"), vesk::wardend::ToolsServiceIds::kQueryEventInfo, true);
    for (std::uint16_t method = 1; method <= 12; ++method) {
        seeds.tools.push_back(Frame(0x5701, method, 0x00, name));
    }
    seeds.tools.push_back(Frame(0x5701, 0x0004, 0x81, {}));
    someip::SdMessage find;
    find.flags = someip::kSdFlagUnicast | someip::kSdFlagReboot;
    for (const std::uint16_t service : {0x5700, 0x5701}) {
        find.entries.push_back(someip::MakeEntry(someip::SdEntryType::kFindService, service,
                                                 someip::kAnyInstance, someip::kAnyMajor, 3));
    }
    seeds.sd.push_back(someip::EncodeSdMessage(find, 1));
    someip::SdMessage subscribe;
    auto entry = someip::MakeEntry(someip::SdEntryType::kSubscribeEventgroup, 0x5700, 1, 1, 3);
    entry.eventgroupId = 1;
    entry.count1 = 1;
    entry.index1 =
        someip::AddEndpointOption(subscribe, {127, 0, 0, 1}, someip::L4Protocol::kUdp, 40000);
    subscribe.entries.push_back(entry);
    seeds.sd.push_back(someip::EncodeSdMessage(subscribe, 2));
    return seeds;
}

// Mutations that keep most of a valid message: flipped and set bytes, a changed length field,
// truncation, growth, and two messages spliced.
Bytes Mutate(const Bytes& seed, const Bytes& other, std::mt19937& random) {
    Bytes bytes = seed;
    const auto pick = [&random](std::size_t bound) {
        return std::uniform_int_distribution<std::size_t>(0, bound == 0 ? 0 : bound - 1)(random);
    };
    const int rounds = 1 + static_cast<int>(pick(4));
    for (int round = 0; round < rounds && !bytes.empty(); ++round) {
        switch (pick(7)) {
            case 0:
                bytes[pick(bytes.size())] ^= static_cast<unsigned char>(1U << pick(8));
                break;
            case 1:
                bytes[pick(bytes.size())] = static_cast<unsigned char>(pick(256));
                break;
            case 2:
                if (bytes.size() >= 8) {  // the length field: small, large or off by a little
                    const std::uint32_t values[] = {
                        0,          7,          8,
                        0xFFFFFFFF, 0x7FFFFFF0, static_cast<std::uint32_t>(bytes.size() + 1)};
                    const std::uint32_t length = values[pick(6)];
                    for (int i = 0; i < 4; ++i) {
                        bytes[4 + static_cast<std::size_t>(i)] =
                            static_cast<unsigned char>(length >> (24 - 8 * i));
                    }
                }
                break;
            case 3:
                bytes.resize(pick(bytes.size()));
                break;
            case 4:
                bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(pick(bytes.size())),
                             pick(64), static_cast<unsigned char>(pick(256)));
                break;
            case 5:
                bytes.insert(bytes.end(), other.begin(),
                             other.begin() + static_cast<std::ptrdiff_t>(pick(other.size() + 1)));
                break;
            default:
                if (bytes.size() > 16) {  // a payload byte, where the deserializer reads
                    bytes[16 + pick(bytes.size() - 16)] = static_cast<unsigned char>(pick(256));
                }
                break;
        }
    }
    return bytes;
}

// Sends mutated frames to every port of the daemon, over TCP and UDP, reading and dropping
// whatever comes back; reconnects where the daemon closed a stream it could not frame.
class HostilePeer {
public:
    explicit HostilePeer(unsigned seed) : random_(seed), seeds_(MakeSeeds()) {
        udp_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
    }
    ~HostilePeer() {
        for (const int fd : tcp_) {
            if (fd >= 0) {
                ::close(fd);
            }
        }
        ::close(udp_);
    }
    HostilePeer(const HostilePeer&) = delete;
    HostilePeer& operator=(const HostilePeer&) = delete;

    // Connections the daemon closed on a stream it could not frame.
    std::size_t Reconnects() const { return reconnects_; }

    std::size_t Run(std::size_t frames, Clock::duration limit) {
        const auto deadline = Clock::now() + limit;
        std::size_t sent = 0;
        while (sent < frames && Clock::now() < deadline) {
            const std::size_t target = sent % 5;
            const bool app = target % 2 == 0;
            const auto& pool = target == 4 ? seeds_.sd : (app ? seeds_.app : seeds_.tools);
            const Bytes frame =
                Mutate(pool[sent % pool.size()], pool[(sent / pool.size()) % pool.size()], random_);
            if (target == 4) {
                SendUdp(kSdPort, frame);
            } else if (target < 2) {
                SendTcp(app ? 0 : 1, app ? kAppPort : kToolsPort, frame);
            } else {
                SendUdp(app ? kAppPort : kToolsPort, frame);
            }
            ++sent;
        }
        return sent;
    }

private:
    void SendUdp(std::uint16_t port, const Bytes& frame) const {
        const sockaddr_in address = Loopback(port);
        (void)::sendto(udp_, frame.data(), frame.size(), 0,
                       reinterpret_cast<const sockaddr*>(&address), sizeof address);
        Drain(udp_);
    }

    void SendTcp(std::size_t slot, std::uint16_t port, const Bytes& frame) {
        int& fd = tcp_[slot];
        if (fd < 0) {
            fd = ConnectTcp(port);
            ++reconnects_;
        }
        if (fd < 0) {
            return;
        }
        const ssize_t written = ::send(fd, frame.data(), frame.size(), MSG_NOSIGNAL);
        if ((written < 0 && errno != EAGAIN) || !Drain(fd)) {
            ::close(fd);
            fd = -1;
        }
    }

    // False when the peer closed.
    static bool Drain(int fd) {
        unsigned char buffer[4096];
        for (;;) {
            const ssize_t got = ::recv(fd, buffer, sizeof buffer, MSG_DONTWAIT);
            if (got == 0) {
                return false;
            }
            if (got < 0) {
                return errno == EAGAIN || errno == EWOULDBLOCK;
            }
        }
    }

    std::mt19937 random_;
    Seeds seeds_;
    int udp_{-1};
    int tcp_[2] = {-1, -1};
    std::size_t reconnects_{0};
};

class DaemonLoadTest : public wardend::test::DaemonTest {
protected:
    // Waits until the daemon holds no more descriptors than before, as closed peers are
    // noticed one by one.
    static bool DescriptorsBackTo(pid_t pid, std::size_t idle) {
        return wardend::test::WaitUntil([&] { return OpenDescriptors(pid) <= idle; }, 10s);
    }
};

TEST_F(DaemonLoadTest, MutatedFramesOnEveryPortLeaveTheDaemonAnsweringWithNoDescriptorLeft) {
    auto daemon = StartDaemon();
    ASSERT_TRUE(WaitReady(*daemon)) << daemon->Stderr();
    VESKWardendToolsServiceProxy tools;
    ASSERT_TRUE(tools.WaitForService(10s));
    ASSERT_TRUE(tools.QueryNodeInfo("ALL").GetResult().HasValue());
    const std::size_t idle = OpenDescriptors(daemon->Pid());

    const std::size_t frames = EnvOr("WARDEND_HOSTILE_FRAMES", 20000);
    const std::size_t seconds = EnvOr("WARDEND_HOSTILE_SECONDS", 8);
    std::size_t sent = 0;
    std::size_t connections = 0;
    const auto start = Clock::now();
    {
        HostilePeer peer(20261123U);
        sent = peer.Run(frames, std::chrono::seconds(seconds));
        connections = peer.Reconnects();
    }
    std::printf(
        "hostile input: %zu mutated frames and SD datagrams in %.1f s, over %zu TCP "
        "connections\n",
        sent, std::chrono::duration<double>(Clock::now() - start).count(), connections);
    ASSERT_FALSE(daemon->WaitExit(0ms).has_value()) << daemon->Stderr();
    // Traffic control may still refuse within its window: ask until an answer comes.
    bool answered = false;
    for (int attempt = 0; attempt < 20 && !answered; ++attempt) {
        answered = tools.QueryNodeInfo("ALL").GetResult().HasValue();
        if (!answered) {
            std::this_thread::sleep_for(100ms);
        }
    }
    EXPECT_TRUE(answered);
    EXPECT_TRUE(DescriptorsBackTo(daemon->Pid(), idle))
        << OpenDescriptors(daemon->Pid()) << " descriptors, " << idle << " when idle";
    StopAndExpectCleanExit(*daemon);
}

TEST_F(DaemonLoadTest, StalledAndNonReadingClientsDoNotStallAnother) {
    auto daemon = StartDaemon();
    ASSERT_TRUE(WaitReady(*daemon)) << daemon->Stderr();
    VESKWardendAppServiceProxy app;
    VESKWardendToolsServiceProxy tools;
    ASSERT_TRUE(app.WaitForService(10s));
    ASSERT_TRUE(tools.WaitForService(10s));
    // Large answers, so that a client that never reads fills its socket at once.
    for (std::uint16_t event = 0; event < 200; ++event) {
        const auto answer = app.RegisterAppInfo(EventRegistration("stall", event)).GetResult();
        ASSERT_TRUE(answer.HasValue() && answer.Value().result == 0) << event;
    }

    const Bytes query = Frame(0x5701, 0x0004, 0x00,
                              Serialized(ara::core::String("ALL"),
                                         vesk::wardend::ToolsServiceIds::kQueryEventInfo, true));
    const int halfFrame = ConnectTcp(kToolsPort);
    ASSERT_GE(halfFrame, 0);
    ASSERT_EQ(::send(halfFrame, query.data(), query.size() / 2, MSG_NOSIGNAL),
              static_cast<ssize_t>(query.size() / 2));
    const int nonReader = ConnectTcp(kToolsPort);
    ASSERT_GE(nonReader, 0);
    // About 4 MB of answers: past the socket buffers, into the daemon's send queue. Past its
    // limit of open requests the rest waits in its socket, not ahead of the other client's calls.
    for (int i = 0; i < 100; ++i) {
        (void)::send(nonReader, query.data(), query.size(), MSG_NOSIGNAL);
    }

    ProxyOptions options;
    options.timeout = 2s;
    VESKWardendToolsServiceProxy other(options);
    Clock::duration slowest{};
    for (int i = 0; i < 20; ++i) {
        const auto start = Clock::now();
        auto nodes = other.QueryNodeInfo("ALL").GetResult();
        slowest = std::max(slowest, Clock::now() - start);
        ASSERT_TRUE(nodes.HasValue())
            << "call " << i << ": " << vesk::wardend::proxy::DescribeError(nodes.Error());
    }
    std::printf("the other client's slowest of 20 calls: %lld ms\n",
                static_cast<long long>(
                    std::chrono::duration_cast<std::chrono::milliseconds>(slowest).count()));
    ::close(halfFrame);
    ::close(nonReader);
    StopAndExpectCleanExit(*daemon);
}

TEST_F(DaemonLoadTest, SigtermWhileEightClientsHammerExitsCleanlyAndPromptly) {
    auto daemon = StartDaemon();
    ASSERT_TRUE(WaitReady(*daemon)) << daemon->Stderr();
    {
        VESKWardendToolsServiceProxy probe;
        ASSERT_TRUE(probe.WaitForService(10s));
    }
    std::atomic<bool> stop{false};
    std::atomic<int> answered{0};
    std::vector<std::thread> clients;
    clients.reserve(8);
    for (int c = 0; c < 8; ++c) {
        clients.emplace_back([&stop, &answered, c] {
            ProxyOptions options;
            options.timeout = 500ms;
            VESKWardendAppServiceProxy client(options);
            VESKWardendToolsServiceProxy tools(options);
            const auto info = EventRegistration("hammer" + std::to_string(c), 1);
            while (!stop) {
                const bool ok = c % 2 == 0 ? client.RegisterAppInfo(info).GetResult().HasValue()
                                           : tools.QueryEventInfo("ALL").GetResult().HasValue();
                answered += ok ? 1 : 0;
            }
        });
    }
    const auto hammering = Clock::now() + 20s;
    while (answered < 200 && Clock::now() < hammering) {
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_GE(answered, 200) << "the clients got too few answers before the stop";
    const auto start = Clock::now();
    ASSERT_TRUE(daemon->Signal(SIGTERM));
    // One second is the bound; a sanitizer build gets more.
    const auto code = daemon->WaitExit(5s);
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    stop = true;
    for (auto& client : clients) {
        client.join();
    }
    ASSERT_TRUE(code.has_value()) << "still running after " << took.count() << " ms";
    EXPECT_EQ(*code, 0) << daemon->Stderr();
    std::printf("stop under load: exit %d after %lld ms\n", *code,
                static_cast<long long>(took.count()));
}

}  // namespace
