#ifndef TESTS_UNIT_SOMEIP_SOMEIP_TEST_SERVER_H
#define TESTS_UNIT_SOMEIP_SOMEIP_TEST_SERVER_H

// A SOME/IP server made of the driver alone, standing in for a service's skeleton: its method
// answers by the first payload byte ('E' error reply, 'N' no reply, 'B' + size a large reply,
// anything else "ok" and the request's size), and it has one event.

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/driver/someip/someip_driver.h"
#include "platform/vcc/utils/thread_pool.h"
#include "tests/unit/someip/someip_peer.h"

namespace wardend::test::someip {

constexpr std::uint16_t kService = 0x5700;
constexpr std::uint16_t kMethod = 0x0001;
constexpr std::uint16_t kEvent = 0x8001;
constexpr std::uint16_t kEventgroup = 0x0001;

// Small limits and quick timings, so that the tests run in well under a second each.
lumo::driver::someip::SomeipDriverOptions QuickOptions();

// The 17-byte error reply of the binding that the server sends for 'E'.
Bytes ErrorReplyPayload();
// A payload asking for a reply of size bytes.
Bytes BigReplyRequest(std::uint32_t size);

struct SeenRequest {
    lumo::vcc::api::types::Uuid uuid;
    std::uint8_t serializeType{0};
    lumo::vcc::api::types::DriverType driverType{};
    Bytes payload;
};

class TestServer {
public:
    // Binds on the given ports (0: free ones) and offers unless told not to.
    explicit TestServer(const lumo::driver::someip::SomeipDriverOptions& options = QuickOptions(),
                        std::uint16_t port = 0, std::uint16_t sdPort = 0, bool offer = true,
                        std::uint32_t maxMessageSize = 1U << 20U, bool replyFromPool = false,
                        const std::string& address = "127.0.0.1");
    ~TestServer();

    bool SendEvent(const Bytes& payload);
    // Waits until count requests have arrived.
    bool WaitRequests(std::size_t count,
                      std::chrono::milliseconds timeout = std::chrono::seconds(5));
    std::vector<SeenRequest> Requests();

    std::uint16_t port;
    std::uint16_t sdPort;
    std::shared_ptr<lumo::driver::someip::SomeipDriver> driver;
    std::shared_ptr<lumo::vcc::driver::MethodHandler> method;
    std::shared_ptr<lumo::vcc::driver::EventHandler> event;

private:
    void Answer(const lumo::vcc::driver::MethodMsgPtr& msg, const Bytes& payload);

    std::unique_ptr<lumo::vcc::utils::ThreadPool> pool_;
    std::mutex mutex_;  // guards seen_
    std::condition_variable arrived_;
    std::vector<SeenRequest> seen_;
};

}  // namespace wardend::test::someip

#endif
