#ifndef TESTS_SUPPORT_ANSWERER_H
#define TESTS_SUPPORT_ANSWERER_H

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/vcc/driver/driver.h"
#include "platform/vcc/utils/thread_pool.h"

namespace wardend::test {

// Answers the requests that reach a driver's method handler, standing in for a service's
// skeleton: the receive handler copies the request and gives its buffer back, then a pool thread
// of the answerer replies (or the driver's thread itself, unpooled). The payload says how: one
// that begins with 'N' gets no reply, 'E' an error reply, 'B' and a big-endian 32-bit size a
// reply of that many bytes (BigReplyByte(i) at i, so that a byte out of place shows); any other
// gets the prefix, ':' and the payload back.
class Answerer {
public:
    struct Request {
        lumo::vcc::api::types::Uuid uuid;
        lumo::vcc::api::types::DriverType driverType{};
        std::uint8_t serializeType{0};
        std::string payload;
    };

    Answerer(std::shared_ptr<lumo::vcc::driver::MethodHandler> handler, std::string prefix,
             bool pooled = true);
    ~Answerer();
    Answerer(const Answerer&) = delete;
    Answerer& operator=(const Answerer&) = delete;

    std::vector<Request> Requests() const;
    int Count() const;
    // Waits until count requests have arrived.
    bool WaitRequests(std::size_t count,
                      std::chrono::milliseconds timeout = std::chrono::seconds(5)) const;

    // A payload asking for a reply of size bytes.
    static std::string BigReplyRequest(std::uint32_t size);
    static char BigReplyByte(std::size_t index) { return static_cast<char>(index % 251U); }

private:
    void Answer(const lumo::vcc::driver::MethodMsgPtr& msg, const std::string& payload);

    std::shared_ptr<lumo::vcc::driver::MethodHandler> handler_;
    const std::string prefix_;
    mutable std::mutex mutex_;  // guards requests_
    mutable std::condition_variable arrived_;
    std::vector<Request> requests_;
    std::unique_ptr<lumo::vcc::utils::ThreadPool> pool_;
};

}  // namespace wardend::test

#endif
