#include "tests/unit/skeleton/fake_driver.h"

#include <chrono>

namespace wardend::test {

bool FakeMethodHandler::ReplyData(unsigned char* buffer, const lumo::vcc::driver::SizeRecord& size,
                                  const lumo::vcc::driver::MethodMsgPtr& /*msg*/, bool /*flag*/) {
    Keep(buffer, size.length, false);
    return true;
}

bool FakeMethodHandler::ReplyError(unsigned char* buffer, std::uint64_t size,
                                   const lumo::vcc::driver::MethodMsgPtr& /*msg*/, bool /*flag*/) {
    Keep(buffer, size, true);
    return true;
}

void FakeMethodHandler::Keep(unsigned char* buffer, std::uint64_t size, bool isError) {
    std::lock_guard<std::mutex> lock(mutex_);
    replies_.push_back(Reply{isError, std::vector<unsigned char>(buffer, buffer + size)});
    delete[] buffer;
    changed_.notify_all();
}

unsigned char* FakeMethodHandler::AllocateBuffer(const lumo::vcc::driver::SizeRecord& size,
                                                 const lumo::vcc::api::types::MethodMsg& /*msg*/) {
    std::lock_guard<std::mutex> lock(mutex_);
    ++allocations_;
    return new unsigned char[size.length == 0 ? 1 : size.length]();
}

void FakeMethodHandler::ReturnLoan(const unsigned char* payload) {
    std::lock_guard<std::mutex> lock(mutex_);
    loans_.erase(payload);
    changed_.notify_all();
}

void FakeMethodHandler::SetReceiveHandler(lumo::vcc::driver::ReceiveHandler handler) {
    std::lock_guard<std::mutex> lock(mutex_);
    receiveHandler_ = std::move(handler);
}

void FakeMethodHandler::SetStats(std::shared_ptr<lumo::vcc::utils::stats::Stats> /*stats*/) {}

ara::core::String FakeMethodHandler::GetStatisticsText(
    lumo::vcc::driver::DriverType /*driver*/) const {
    return "fake\n";
}

lumo::vcc::driver::MethodMsgPtr FakeMethodHandler::Deliver(
    const std::vector<unsigned char>& payload, std::uint8_t serializeType, std::uint8_t e2eStatus,
    bool nullPayload) {
    auto msg = std::make_shared<lumo::vcc::api::types::MethodMsg>();
    msg->driverType = lumo::vcc::api::types::DriverType::kSomeip;
    msg->serializeType = serializeType;
    msg->e2eCheckStatus = e2eStatus;
    lumo::vcc::driver::ReceiveHandler handler;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        handler = receiveHandler_;
        if (!nullPayload) {
            auto bytes = std::make_unique<std::vector<unsigned char>>(payload);
            bytes->reserve(1);  // a non-null data pointer even for an empty payload
            msg->payload = bytes->data();
            msg->size = payload.size();
            loans_.emplace(msg->payload, std::move(bytes));
        }
    }
    if (handler) {
        handler(msg);
    }
    return msg;
}

bool FakeMethodHandler::HasReceiveHandler() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<bool>(receiveHandler_);
}

bool FakeMethodHandler::WaitForReplies(std::size_t count) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(10),
                             [&] { return replies_.size() >= count; });
}

std::vector<FakeMethodHandler::Reply> FakeMethodHandler::Replies() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return replies_;
}

std::size_t FakeMethodHandler::OpenLoans() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return loans_.size();
}

bool FakeMethodHandler::WaitForLoansReturned() const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return loans_.empty(); });
}

std::size_t FakeMethodHandler::Allocations() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return allocations_;
}

bool FakeEventHandler::SendEvent(unsigned char* buffer, std::uint64_t size,
                                 lumo::vcc::api::types::internal::SampleInfoImpl& /*sampleInfo*/) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!fails_) {
        sent_.emplace_back(buffer, buffer + size);
    }
    delete[] buffer;
    return !fails_;
}

unsigned char* FakeEventHandler::AllocateBuffer(std::uint64_t size) {
    return new unsigned char[size == 0 ? 1 : size]();
}

std::vector<std::vector<unsigned char>> FakeEventHandler::Sent() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return sent_;
}

std::shared_ptr<lumo::vcc::driver::MethodHandler> FakeDriver::CreateMethodHandler(
    const lumo::vcc::api::types::MethodInfo& info) {
    auto handler = std::make_shared<FakeMethodHandler>();
    std::lock_guard<std::mutex> lock(mutex_);
    methods_[info.entityId] = handler;
    return handler;
}

std::shared_ptr<lumo::vcc::driver::EventHandler> FakeDriver::CreateEventHandler(
    const lumo::vcc::api::types::EventInfo& info) {
    auto handler = std::make_shared<FakeEventHandler>(serializeType_, eventsFail_);
    std::lock_guard<std::mutex> lock(mutex_);
    events_[info.entityId] = handler;
    return handler;
}

std::shared_ptr<FakeMethodHandler> FakeDriver::Method(std::uint32_t entityId) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = methods_.find(entityId);
    return it == methods_.end() ? nullptr : it->second;
}

std::shared_ptr<FakeEventHandler> FakeDriver::Event(std::uint32_t entityId) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = events_.find(entityId);
    return it == events_.end() ? nullptr : it->second;
}

}  // namespace wardend::test
