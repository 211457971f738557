#ifndef PLATFORM_DRIVER_SOMEIP_SOMEIP_DRIVER_H
#define PLATFORM_DRIVER_SOMEIP_SOMEIP_DRIVER_H

// The SOME/IP driver: SOME/IP over TCP and UDP and SOME/IP-SD, server side (method and event
// handlers, offers) and client side (method and event clients), over standalone Asio.
//
// One I/O thread ("someip_io") per driver object runs every socket; all of the driver's state
// lives on it. Calls that may block (creating handlers and clients, offering, WaitForService,
// Subscribe, Unsubscribe) hand their work to that thread and wait for it; calls that never
// block (replies, events, Call) only queue work for it or, when a connection is idle, write it
// themselves. The destructor withdraws the offers, closes every socket and joins the thread; it
// must not run inside one of the driver's own callbacks.
//
// Client id: SomeipDriverOptions::clientId, or when 0 a number made from the process id and a
// per-process counter of driver objects, never 0 or 0xFFFF. Session ids count from 1 and wrap
// to 1, one counter per driver. On the server side MethodMsg.uuid.high is the request's client
// id in its low 16 bits and the driver's number of the connection (or UDP peer) above them;
// uuid.low is the session id.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/core/string.h"
#include "platform/vcc/driver/driver.h"

namespace lumo::driver::someip {

struct SomeipDriverOptions {
    std::uint16_t clientId{0};
    // The local address of the client's UDP and SD sockets (the address subscriptions name).
    ara::core::String clientAddress{"127.0.0.1"};

    // Server side robustness limits. Connections and SD peers are sized for a machine of a few
    // hundred applications, each keeping its connection and renewing its offers.
    std::size_t maxConnections{256};                        // per service endpoint
    std::size_t maxSendQueueBytes{4U << 20U};               // per connection, then it is dropped
    std::chrono::milliseconds partialMessageTimeout{5000};  // half a message, then closed
    std::chrono::milliseconds sendStallTimeout{10000};      // unsent bytes with no progress
    std::size_t maxOutstandingRequests{4096};               // per method, loaned to the binding
    std::size_t maxRequestsInFlight{16};  // per TCP connection, then reading waits; per UDP
                                          // peer, then refused
    std::size_t maxSdPeers{256};          // SD peers that receive cyclic offers

    // Timing of the housekeeping: the I/O thread wakes for the next deadline it knows (offers,
    // expiries, timeouts), no sooner than `tick` after the last time and no later than
    // `idleTick`, so that an idle driver seldom wakes.
    std::chrono::milliseconds tick{10};
    std::chrono::milliseconds idleTick{500};

    // Offers.
    std::chrono::milliseconds initialDelayMin{10};
    std::chrono::milliseconds initialDelayMax{50};
    std::chrono::milliseconds repetitionBaseDelay{20};
    std::uint32_t repetitionsMax{3};
    std::chrono::milliseconds cyclicOfferDelay{1000};
    std::uint32_t offerTtlSeconds{3};

    // Client side.
    std::uint32_t subscribeTtlSeconds{3};
    std::chrono::milliseconds findDelayMin{20};    // first FindService repetition
    std::chrono::milliseconds findDelayMax{1000};  // doubling up to this
    std::chrono::milliseconds subscribeAckTimeout{1000};
    std::size_t maxPendingCalls{8192};
};

class SomeipDriver final : public vcc::driver::Driver {
public:
    explicit SomeipDriver(SomeipDriverOptions options = {});
    ~SomeipDriver() override;
    SomeipDriver(const SomeipDriver&) = delete;
    SomeipDriver& operator=(const SomeipDriver&) = delete;

    vcc::driver::DriverType Type() const override { return vcc::driver::DriverType::kSomeip; }

    std::shared_ptr<vcc::driver::MethodHandler> CreateMethodHandler(
        const vcc::api::types::MethodInfo& info) override;
    std::shared_ptr<vcc::driver::EventHandler> CreateEventHandler(
        const vcc::api::types::EventInfo& info) override;
    bool OfferService(std::uint16_t serviceId, const ara::core::String& instanceId) override;
    void StopOfferService(std::uint16_t serviceId, const ara::core::String& instanceId) override;

    std::shared_ptr<vcc::driver::MethodClient> CreateMethodClient(
        const vcc::api::types::MethodInfo& info) override;
    std::shared_ptr<vcc::driver::EventClient> CreateEventClient(
        const vcc::api::types::EventInfo& info) override;

    std::uint16_t ClientId() const noexcept;

    class Core;

private:
    std::shared_ptr<Core> core_;
};

}  // namespace lumo::driver::someip

#endif
