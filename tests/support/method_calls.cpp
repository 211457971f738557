#include "tests/support/method_calls.h"

namespace wardend::test {

lumo::vcc::driver::ReplyHandler ReplyCatcher::Handler() const {
    return [state = state_](const lumo::vcc::driver::MethodReply& reply) {
        CaughtReply caught;
        caught.status = reply.status;
        caught.isErrorReply = reply.isErrorReply;
        if (reply.payload != nullptr) {
            caught.payload.assign(reinterpret_cast<const char*>(reply.payload), reply.size);
        }
        caught.reason = reply.reason;
        {
            std::lock_guard<std::mutex> lock(state->mutex);
            state->replies.push_back(std::move(caught));
            ++state->count;
        }
        state->arrived.notify_all();
    };
}

std::optional<CaughtReply> ReplyCatcher::Wait(std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(state_->mutex);
    if (!state_->arrived.wait_for(lock, timeout, [&] { return !state_->replies.empty(); })) {
        return std::nullopt;
    }
    CaughtReply reply = std::move(state_->replies.front());
    state_->replies.pop_front();
    return reply;
}

int ReplyCatcher::Count() const {
    std::lock_guard<std::mutex> lock(state_->mutex);
    return state_->count;
}

std::optional<CaughtReply> CallAndWait(lumo::vcc::driver::MethodClient& client,
                                       const std::string& payload,
                                       std::chrono::milliseconds timeout) {
    const ReplyCatcher catcher;
    client.Call(reinterpret_cast<const unsigned char*>(payload.data()), payload.size(), timeout,
                catcher.Handler());
    return catcher.Wait(timeout + std::chrono::seconds(1));
}

}  // namespace wardend::test
