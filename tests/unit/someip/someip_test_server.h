#ifndef TESTS_UNIT_SOMEIP_SOMEIP_TEST_SERVER_H
#define TESTS_UNIT_SOMEIP_SOMEIP_TEST_SERVER_H

// A SOME/IP server made of the driver alone, standing in for a service's skeleton: its method
// is answered by an Answerer with the prefix "ok", and it has one event.

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "platform/driver/someip/someip_driver.h"
#include "tests/support/answerer.h"
#include "tests/unit/someip/someip_peer.h"

namespace wardend::test::someip {

constexpr std::uint16_t kService = 0x5700;
constexpr std::uint16_t kMethod = 0x0001;
constexpr std::uint16_t kEvent = 0x8001;
constexpr std::uint16_t kEventgroup = 0x0001;

// Small limits and quick timings, so that the tests run in well under a second each.
lumo::driver::someip::SomeipDriverOptions QuickOptions();

class TestServer {
public:
    // Binds on the given ports (0: free ones) and offers unless told not to.
    explicit TestServer(const lumo::driver::someip::SomeipDriverOptions& options = QuickOptions(),
                        std::uint16_t port = 0, std::uint16_t sdPort = 0, bool offer = true,
                        std::uint32_t maxMessageSize = 1U << 20U, bool replyFromPool = false,
                        const std::string& address = "127.0.0.1");
    ~TestServer();

    bool SendEvent(const Bytes& payload);
    bool WaitRequests(std::size_t count) const { return answerer_->WaitRequests(count); }
    std::vector<Answerer::Request> Requests() const { return answerer_->Requests(); }

    std::uint16_t port;
    std::uint16_t sdPort;
    std::shared_ptr<lumo::driver::someip::SomeipDriver> driver;
    std::shared_ptr<lumo::vcc::driver::MethodHandler> method;
    std::shared_ptr<lumo::vcc::driver::EventHandler> event;

private:
    std::unique_ptr<Answerer> answerer_;
};

}  // namespace wardend::test::someip

#endif
