#include "tests/unit/someip/someip_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>

namespace wardend::test::someip {

namespace {

using lumo::driver::someip::ReadU32;

sockaddr_in Loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

std::uint16_t BoundPort(int fd) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

bool Readable(int fd, std::chrono::milliseconds timeout) {
    pollfd entry{fd, POLLIN, 0};
    return ::poll(&entry, 1, static_cast<int>(timeout.count())) > 0;
}

}  // namespace

std::uint16_t FreePort() {
    // A port the kernel picked (a bind to port 0) comes from its local range, and the kernel
    // may hand it to any other socket, a connect's source port say, before the test binds it.
    // Below that range, and below the daemon's own ports from 30490 on, only another test's
    // pick can take it; each process starts at a place of its own.
    constexpr std::uint32_t kFirst = 20000;
    constexpr std::uint32_t kSpan = 10000;
    static std::atomic<std::uint32_t> next{static_cast<std::uint32_t>(::getpid()) * 7919U};
    for (int attempt = 0; attempt < 200; ++attempt) {
        const auto port = static_cast<std::uint16_t>(kFirst + next.fetch_add(1) % kSpan);
        const int tcp = ::socket(AF_INET, SOCK_STREAM, 0);
        const int udp = ::socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in address = Loopback(port);
        const bool free = ::bind(tcp, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
                          ::bind(udp, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
        ::close(tcp);
        ::close(udp);
        if (free) {
            return port;
        }
    }
    return 0;
}

Bytes Request(std::uint16_t service, std::uint16_t method, std::uint16_t session,
              const Bytes& payload, std::uint8_t type, std::uint8_t protocol,
              std::uint8_t interface) {
    SomeipHeader header;
    header.serviceId = service;
    header.methodId = method;
    header.clientId = 0x4242;
    header.sessionId = session;
    header.protocolVersion = protocol;
    header.interfaceVersion = interface;
    header.messageType = type;
    return lumo::driver::someip::EncodeMessage(header, payload.data(), payload.size());
}

RawTcpPeer::~RawTcpPeer() {
    Close();
}

bool RawTcpPeer::Connect(std::uint16_t port) {
    Close();
    fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
    const int one = 1;
    ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    sockaddr_in address = Loopback(port);
    return ::connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

bool RawTcpPeer::Send(const Bytes& bytes) const {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(n);
    }
    return true;
}

std::optional<Bytes> RawTcpPeer::Receive(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        if (buffer_.size() >= 16) {
            const std::size_t whole = ReadU32(buffer_.data() + 4) + 8U;
            if (buffer_.size() >= whole) {
                Bytes message(buffer_.begin(),
                              buffer_.begin() + static_cast<std::ptrdiff_t>(whole));
                buffer_.erase(buffer_.begin(),
                              buffer_.begin() + static_cast<std::ptrdiff_t>(whole));
                return message;
            }
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || !Readable(fd_, left)) {
            return std::nullopt;
        }
        unsigned char chunk[4096];
        const ssize_t n = ::recv(fd_, chunk, sizeof chunk, 0);
        if (n <= 0) {
            return std::nullopt;
        }
        buffer_.insert(buffer_.end(), chunk, chunk + n);
    }
}

bool RawTcpPeer::WaitClosed(std::chrono::milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || !Readable(fd_, left)) {
            return false;
        }
        unsigned char chunk[4096];
        const ssize_t n = ::recv(fd_, chunk, sizeof chunk, 0);
        if (n <= 0) {
            return true;
        }
    }
}

std::uint16_t RawTcpPeer::LocalPort() const {
    return BoundPort(fd_);
}

void RawTcpPeer::Close() {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
    buffer_.clear();
}

RawUdpPeer::RawUdpPeer() : fd_(::socket(AF_INET, SOCK_DGRAM, 0)) {
    sockaddr_in address = Loopback(0);
    if (::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ADD_FAILURE() << "raw UDP peer cannot bind";
    }
}

RawUdpPeer::RawUdpPeer(const char* group, std::uint16_t port)
    : fd_(::socket(AF_INET, SOCK_DGRAM, 0)) {
    const int one = 1;
    ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in address = Loopback(port);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    ip_mreq membership{};
    ::inet_pton(AF_INET, group, &membership.imr_multiaddr);
    membership.imr_interface.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::setsockopt(fd_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) != 0) {
        ADD_FAILURE() << "raw UDP peer cannot join " << group;
    }
}

RawUdpPeer::~RawUdpPeer() {
    ::close(fd_);
}

bool RawUdpPeer::SendTo(std::uint16_t port, const Bytes& bytes) const {
    return SendTo("127.0.0.1", port, bytes);
}

bool RawUdpPeer::SendTo(const char* address, std::uint16_t port, const Bytes& bytes) const {
    sockaddr_in to = Loopback(port);
    ::inet_pton(AF_INET, address, &to.sin_addr);
    return ::sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&to),
                    sizeof to) == static_cast<ssize_t>(bytes.size());
}

std::optional<Bytes> RawUdpPeer::Receive(std::chrono::milliseconds timeout,
                                         std::uint16_t* fromPort) const {
    if (!Readable(fd_, timeout)) {
        return std::nullopt;
    }
    Bytes datagram(65536);
    sockaddr_in from{};
    socklen_t fromSize = sizeof from;
    const ssize_t n = ::recvfrom(fd_, datagram.data(), datagram.size(), 0,
                                 reinterpret_cast<sockaddr*>(&from), &fromSize);
    if (n < 0) {
        return std::nullopt;
    }
    if (fromPort != nullptr) {
        *fromPort = ntohs(from.sin_port);
    }
    datagram.resize(static_cast<std::size_t>(n));
    return datagram;
}

std::uint16_t RawUdpPeer::LocalPort() const {
    return BoundPort(fd_);
}

SomeipHeader HeaderOf(const std::optional<Bytes>& message) {
    if (!message || message->size() < lumo::driver::someip::kHeaderSize) {
        ADD_FAILURE() << "no SOME/IP message came";
        return {};
    }
    return lumo::driver::someip::DecodeHeader(message->data());
}

Bytes SdDatagram(const lumo::driver::someip::SdMessage& message, std::uint16_t session) {
    return lumo::driver::someip::EncodeSdMessage(message, session);
}

std::optional<lumo::driver::someip::SdMessage> ParseSd(const Bytes& datagram) {
    if (datagram.size() < 16 || datagram[0] != 0xFF || datagram[1] != 0xFF) {
        return std::nullopt;
    }
    lumo::driver::someip::SdMessage message;
    if (lumo::driver::someip::DecodeSdPayload(datagram.data() + 16, datagram.size() - 16,
                                              message) != lumo::driver::someip::SdStatus::kOk) {
        return std::nullopt;
    }
    return message;
}

namespace {

void Fill(lumo::vcc::api::types::EntityInfo& info, std::uint16_t service, std::uint16_t member,
          std::uint16_t port, std::uint16_t sdPort) {
    info.driverType = lumo::vcc::api::types::DriverType::kSomeip;
    info.serviceId = service;
    info.instanceId = "1";
    info.someip.serviceId = service;
    info.someip.instanceId = 1;
    info.someip.memberId = member;
    info.someip.port = port;
    info.someip.sdPort = sdPort;
}

}  // namespace

lumo::vcc::api::types::MethodInfo MethodOn(std::uint16_t service, std::uint16_t method,
                                           std::uint16_t port, std::uint16_t sdPort) {
    lumo::vcc::api::types::MethodInfo info;
    Fill(info, service, method, port, sdPort);
    return info;
}

lumo::vcc::api::types::EventInfo EventOn(std::uint16_t service, std::uint16_t event,
                                         std::uint16_t eventgroup, std::uint16_t port,
                                         std::uint16_t sdPort) {
    lumo::vcc::api::types::EventInfo info;
    Fill(info, service, event, port, sdPort);
    info.someip.eventgroupId = eventgroup;
    return info;
}

}  // namespace wardend::test::someip
