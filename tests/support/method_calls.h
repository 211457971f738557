#ifndef TESTS_SUPPORT_METHOD_CALLS_H
#define TESTS_SUPPORT_METHOD_CALLS_H

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/vcc/driver/driver.h"

namespace wardend::test {

// A reply as a test keeps it: the payload copied out of the handler call.
struct CaughtReply {
    lumo::vcc::driver::CallStatus status{lumo::vcc::driver::CallStatus::kTimeout};
    bool isErrorReply{false};
    std::string payload;
    std::string reason;
};

// Catches the replies of calls made with Handler(); safe when the reply comes after the catcher
// is gone.
class ReplyCatcher {
public:
    lumo::vcc::driver::ReplyHandler Handler() const;
    // The first reply not yet waited for, or nothing within timeout.
    std::optional<CaughtReply> Wait(std::chrono::milliseconds timeout) const;
    // How many replies came, waited for or not.
    int Count() const;

private:
    struct State {
        mutable std::mutex mutex;  // guards replies and count
        std::condition_variable arrived;
        std::deque<CaughtReply> replies;
        int count{0};
    };
    std::shared_ptr<State> state_{std::make_shared<State>()};
};

// Calls with payload and waits for the reply (at most timeout plus a second).
std::optional<CaughtReply> CallAndWait(lumo::vcc::driver::MethodClient& client,
                                       const std::string& payload,
                                       std::chrono::milliseconds timeout);

}  // namespace wardend::test

#endif
