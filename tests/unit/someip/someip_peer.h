#ifndef TESTS_UNIT_SOMEIP_SOMEIP_PEER_H
#define TESTS_UNIT_SOMEIP_SOMEIP_PEER_H

// A minimal SOME/IP peer over plain sockets, written for the tests so that the driver is judged
// by something that shares none of its code paths, and the entity configurations they use.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/driver/someip/sd_message.h"
#include "platform/driver/someip/someip_header.h"
#include "platform/vcc/api/types/entity_info.h"

namespace wardend::test::someip {

using Bytes = std::vector<unsigned char>;
using lumo::driver::someip::SomeipHeader;

// A port free for both TCP and UDP on 127.0.0.1 (found by binding both, then released).
std::uint16_t FreePort();

// A request header of service, method, client 0x4242, the session, protocol 1, interface 1.
Bytes Request(std::uint16_t service, std::uint16_t method, std::uint16_t session,
              const Bytes& payload = {}, std::uint8_t type = 0x00, std::uint8_t protocol = 1,
              std::uint8_t interface = 1);

class RawTcpPeer {
public:
    RawTcpPeer() = default;
    ~RawTcpPeer();
    RawTcpPeer(const RawTcpPeer&) = delete;
    RawTcpPeer& operator=(const RawTcpPeer&) = delete;

    bool Connect(std::uint16_t port);
    bool Send(const Bytes& bytes) const;
    // One whole SOME/IP message, or nothing within the timeout (or when closed).
    std::optional<Bytes> Receive(std::chrono::milliseconds timeout = std::chrono::seconds(5));
    // True when the server closes the connection within the timeout.
    bool WaitClosed(std::chrono::milliseconds timeout = std::chrono::seconds(5)) const;
    std::uint16_t LocalPort() const;
    void Close();

private:
    int fd_{-1};
    Bytes buffer_;
};

class RawUdpPeer {
public:
    RawUdpPeer();
    // A peer on port of any address, in the multicast group through the loopback interface.
    RawUdpPeer(const char* group, std::uint16_t port);
    ~RawUdpPeer();
    RawUdpPeer(const RawUdpPeer&) = delete;
    RawUdpPeer& operator=(const RawUdpPeer&) = delete;

    bool SendTo(std::uint16_t port, const Bytes& bytes) const;
    bool SendTo(const char* address, std::uint16_t port, const Bytes& bytes) const;
    // fromPort, when given, gets the sender's port.
    std::optional<Bytes> Receive(std::chrono::milliseconds timeout = std::chrono::seconds(5),
                                 std::uint16_t* fromPort = nullptr) const;
    std::uint16_t LocalPort() const;

private:
    int fd_{-1};
};

// The header of a message that came; a test failure, and a default header, when none did.
SomeipHeader HeaderOf(const std::optional<Bytes>& message);

// An SD message as a raw peer sends it, with its own session counter.
Bytes SdDatagram(const lumo::driver::someip::SdMessage& message, std::uint16_t session);
// The SD payload of a datagram, when it is one.
std::optional<lumo::driver::someip::SdMessage> ParseSd(const Bytes& datagram);

// Entity configuration of a test service on the given ports.
lumo::vcc::api::types::MethodInfo MethodOn(std::uint16_t service, std::uint16_t method,
                                           std::uint16_t port, std::uint16_t sdPort);
lumo::vcc::api::types::EventInfo EventOn(std::uint16_t service, std::uint16_t event,
                                         std::uint16_t eventgroup, std::uint16_t port,
                                         std::uint16_t sdPort);

}  // namespace wardend::test::someip

#endif
