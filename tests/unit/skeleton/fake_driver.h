#ifndef TESTS_UNIT_SKELETON_FAKE_DRIVER_H
#define TESTS_UNIT_SKELETON_FAKE_DRIVER_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/vcc/driver/driver.h"

namespace wardend::test {

// A driver that keeps what the binding hands it: replies with their bytes, returned loans,
// events. Requests are injected with Deliver.
class FakeMethodHandler final : public lumo::vcc::driver::MethodHandler {
public:
    struct Reply {
        bool isError{false};
        std::vector<unsigned char> bytes;
    };

    bool ReplyData(unsigned char* buffer, const lumo::vcc::driver::SizeRecord& size,
                   const lumo::vcc::driver::MethodMsgPtr& /*msg*/, bool /*flag*/) override {
        Keep(buffer, size.length, false);
        return true;
    }
    bool ReplyError(unsigned char* buffer, std::uint64_t size,
                    const lumo::vcc::driver::MethodMsgPtr& /*msg*/, bool /*flag*/) override {
        Keep(buffer, size, true);
        return true;
    }
    unsigned char* AllocateBuffer(const lumo::vcc::driver::SizeRecord& size,
                                  const lumo::vcc::api::types::MethodMsg& /*msg*/) override {
        std::lock_guard<std::mutex> lock(mutex_);
        ++allocations_;
        return new unsigned char[size.length == 0 ? 1 : size.length]();
    }
    void ReturnLoan(const unsigned char* payload) override {
        std::lock_guard<std::mutex> lock(mutex_);
        loans_.erase(payload);
        changed_.notify_all();
    }
    void SetReceiveHandler(lumo::vcc::driver::ReceiveHandler handler) override {
        std::lock_guard<std::mutex> lock(mutex_);
        receiveHandler_ = std::move(handler);
    }
    void SetStats(std::shared_ptr<lumo::vcc::utils::stats::Stats> /*stats*/) override {}
    ara::core::String GetStatisticsText(lumo::vcc::driver::DriverType /*driver*/) const override {
        return "fake\n";
    }

    // Hands a request to the binding, as a driver thread would. The payload is copied and
    // stays alive until its loan comes back.
    lumo::vcc::driver::MethodMsgPtr Deliver(const std::vector<unsigned char>& payload,
                                            std::uint8_t serializeType, std::uint8_t e2eStatus = 0,
                                            bool nullPayload = false) {
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
    bool HasReceiveHandler() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return static_cast<bool>(receiveHandler_);
    }
    // Waits until `count` replies have arrived.
    bool WaitForReplies(std::size_t count) const {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(10),
                                 [&] { return replies_.size() >= count; });
    }
    std::vector<Reply> Replies() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return replies_;
    }
    std::size_t OpenLoans() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return loans_.size();
    }
    // Waits until every request's loan has come back.
    bool WaitForLoansReturned() const {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, std::chrono::seconds(10), [&] { return loans_.empty(); });
    }
    std::size_t Allocations() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return allocations_;
    }

private:
    void Keep(unsigned char* buffer, std::uint64_t size, bool isError) {
        std::lock_guard<std::mutex> lock(mutex_);
        replies_.push_back(Reply{isError, std::vector<unsigned char>(buffer, buffer + size)});
        delete[] buffer;
        changed_.notify_all();
    }

    mutable std::mutex mutex_;  // guards every member below
    mutable std::condition_variable changed_;
    lumo::vcc::driver::ReceiveHandler receiveHandler_;
    std::map<const unsigned char*, std::unique_ptr<std::vector<unsigned char>>> loans_;
    std::vector<Reply> replies_;
    std::size_t allocations_{0};
};

class FakeEventHandler final : public lumo::vcc::driver::EventHandler {
public:
    FakeEventHandler(std::uint8_t serializeType, bool fails)
        : serializeType_(serializeType), fails_(fails) {}

    bool SendEvent(unsigned char* buffer, std::uint64_t size,
                   lumo::vcc::api::types::internal::SampleInfoImpl& /*sampleInfo*/) override {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!fails_) {
            sent_.emplace_back(buffer, buffer + size);
        }
        delete[] buffer;
        return !fails_;
    }
    unsigned char* AllocateBuffer(std::uint64_t size) override {
        return new unsigned char[size == 0 ? 1 : size]();
    }
    std::uint8_t GetSerializeType() const override { return serializeType_; }
    bool IsReady() const override { return true; }

    std::vector<std::vector<unsigned char>> Sent() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return sent_;
    }

private:
    const std::uint8_t serializeType_;
    const bool fails_;
    mutable std::mutex mutex_;  // guards sent_
    std::vector<std::vector<unsigned char>> sent_;
};

class FakeDriver final : public lumo::vcc::driver::Driver {
public:
    FakeDriver(lumo::vcc::driver::DriverType type, std::uint8_t serializeType, bool eventsFail)
        : type_(type), serializeType_(serializeType), eventsFail_(eventsFail) {}

    lumo::vcc::driver::DriverType Type() const override { return type_; }
    std::shared_ptr<lumo::vcc::driver::MethodHandler> CreateMethodHandler(
        const lumo::vcc::api::types::MethodInfo& info) override {
        auto handler = std::make_shared<FakeMethodHandler>();
        std::lock_guard<std::mutex> lock(mutex_);
        methods_[info.entityId] = handler;
        return handler;
    }
    std::shared_ptr<lumo::vcc::driver::EventHandler> CreateEventHandler(
        const lumo::vcc::api::types::EventInfo& info) override {
        auto handler = std::make_shared<FakeEventHandler>(serializeType_, eventsFail_);
        std::lock_guard<std::mutex> lock(mutex_);
        events_[info.entityId] = handler;
        return handler;
    }
    bool OfferService(std::uint16_t, const ara::core::String&) override { return true; }
    void StopOfferService(std::uint16_t, const ara::core::String&) override {}
    std::shared_ptr<lumo::vcc::driver::MethodClient> CreateMethodClient(
        const lumo::vcc::api::types::MethodInfo&) override {
        return nullptr;
    }
    std::shared_ptr<lumo::vcc::driver::EventClient> CreateEventClient(
        const lumo::vcc::api::types::EventInfo&) override {
        return nullptr;
    }

    std::shared_ptr<FakeMethodHandler> Method(std::uint32_t entityId) const {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = methods_.find(entityId);
        return it == methods_.end() ? nullptr : it->second;
    }
    std::shared_ptr<FakeEventHandler> Event(std::uint32_t entityId) const {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = events_.find(entityId);
        return it == events_.end() ? nullptr : it->second;
    }

private:
    const lumo::vcc::driver::DriverType type_;
    const std::uint8_t serializeType_;
    const bool eventsFail_;
    mutable std::mutex mutex_;  // guards the maps
    std::map<std::uint32_t, std::shared_ptr<FakeMethodHandler>> methods_;
    std::map<std::uint32_t, std::shared_ptr<FakeEventHandler>> events_;
};

}  // namespace wardend::test

#endif
