#ifndef TESTS_UNIT_SKELETON_FAKE_DRIVER_H
#define TESTS_UNIT_SKELETON_FAKE_DRIVER_H

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
                   const lumo::vcc::driver::MethodMsgPtr& msg, bool flag) override;
    bool ReplyError(unsigned char* buffer, std::uint64_t size,
                    const lumo::vcc::driver::MethodMsgPtr& msg, bool flag) override;
    unsigned char* AllocateBuffer(const lumo::vcc::driver::SizeRecord& size,
                                  const lumo::vcc::api::types::MethodMsg& msg) override;
    void ReturnLoan(const unsigned char* payload) override;
    void SetReceiveHandler(lumo::vcc::driver::ReceiveHandler handler) override;
    void SetStats(std::shared_ptr<lumo::vcc::utils::stats::Stats> stats) override;
    ara::core::String GetStatisticsText(lumo::vcc::driver::DriverType driver) const override;

    // Hands a request to the binding, as a driver thread would. The payload is copied and
    // stays alive until its loan comes back.
    lumo::vcc::driver::MethodMsgPtr Deliver(const std::vector<unsigned char>& payload,
                                            std::uint8_t serializeType, std::uint8_t e2eStatus = 0,
                                            bool nullPayload = false);
    bool HasReceiveHandler() const;
    // Waits until `count` replies have arrived.
    bool WaitForReplies(std::size_t count) const;
    std::vector<Reply> Replies() const;
    std::size_t OpenLoans() const;
    // Waits until every request's loan has come back.
    bool WaitForLoansReturned() const;
    std::size_t Allocations() const;

private:
    void Keep(unsigned char* buffer, std::uint64_t size, bool isError);

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
                   lumo::vcc::api::types::internal::SampleInfoImpl& sampleInfo) override;
    unsigned char* AllocateBuffer(std::uint64_t size) override;
    std::uint8_t GetSerializeType() const override { return serializeType_; }
    bool IsReady() const override { return true; }

    std::vector<std::vector<unsigned char>> Sent() const;

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
        const lumo::vcc::api::types::MethodInfo& info) override;
    std::shared_ptr<lumo::vcc::driver::EventHandler> CreateEventHandler(
        const lumo::vcc::api::types::EventInfo& info) override;
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

    std::shared_ptr<FakeMethodHandler> Method(std::uint32_t entityId) const;
    std::shared_ptr<FakeEventHandler> Event(std::uint32_t entityId) const;

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
