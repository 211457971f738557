#ifndef PLATFORM_DRIVER_DDS_DDS_SERVER_H
#define PLATFORM_DRIVER_DDS_DDS_SERVER_H

// The server side of the DDS driver: one request reader and one reply writer per method, one
// writer per event, all on the daemon's participant.
//
// Locks: DdsMethodHandler::mutex_ and handlerMutex_ are never held together, nor while
// Cyclone is called (a local reader's listener runs on the writing thread).

#include <dds/dds.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <unordered_set>

#include "platform/driver/dds/dds_envelope.h"
#include "platform/driver/dds/dds_executor.h"
#include "platform/driver/dds/dds_participant.h"
#include "platform/vcc/driver/driver.h"
#include "platform/vcc/utils/stats.h"

namespace lumo::driver::dds {

namespace api = lumo::vcc::api;

using vcc::driver::MethodMsgPtr;

// What a request leaves in MethodMsg::replyRoute: where its reply goes.
struct DdsReplyRoute {
    api::types::Uuid uuid;
    bool noReturn{false};
};

class DdsMethodHandler final : public vcc::driver::MethodHandler,
                               public std::enable_shared_from_this<DdsMethodHandler> {
public:
    // A request waits while the service is not offered yet, or while the caller's reply reader
    // is not discovered yet (its reply would be lost); at most this long, this many per method.
    static constexpr std::chrono::seconds kParkTime{10};
    static constexpr std::size_t kMaxParked = 256;

    // Creates the reply writer and the request reader of info.dds.topic for the daemon
    // instance `instance`. Null, with a log line, on failure.
    static std::shared_ptr<DdsMethodHandler> Create(const api::types::MethodInfo& info,
                                                    const ara::core::String& instance,
                                                    std::shared_ptr<DdsParticipant> participant,
                                                    std::shared_ptr<DdsExecutor> executor);
    ~DdsMethodHandler() override;

    // flag is not used on DDS.
    bool ReplyData(unsigned char* buffer, const vcc::driver::SizeRecord& size,
                   const MethodMsgPtr& msg, bool flag) override;
    bool ReplyError(unsigned char* buffer, std::uint64_t size, const MethodMsgPtr& msg,
                    bool flag) override;
    unsigned char* AllocateBuffer(const vcc::driver::SizeRecord& size,
                                  const api::types::MethodMsg& msg) override;
    void ReturnLoan(const unsigned char* payload) override;
    // Also waits for a call of the old handler that runs on another thread: once it returns,
    // the old handler is not running and will not run (so its owner may go).
    void SetReceiveHandler(vcc::driver::ReceiveHandler handler) override;
    void SetStats(std::shared_ptr<vcc::utils::stats::Stats> stats) override;
    ara::core::String GetStatisticsText(api::types::DriverType driver) const override;

    std::uint16_t ServiceId() const { return serviceId_; }
    const ara::core::String& ServiceInstance() const { return serviceInstance_; }
    // Offered: parked requests go to the handler. Withdrawn: requests are answered "not
    // offered". Any thread; the requests go on from the driver thread.
    void SetOffered(bool offered);
    // Deletes the reader and the writer; parked requests are dropped. Idempotent.
    void Close();

private:
    enum class OfferState : std::uint8_t { kNotYet, kOffered, kWithdrawn };
    struct Parked {
        MethodMsgPtr msg;
        std::chrono::steady_clock::time_point arrival;
    };

    DdsMethodHandler(const api::types::MethodInfo& info, ara::core::String instance,
                     std::shared_ptr<DdsParticipant> participant,
                     std::shared_ptr<DdsExecutor> executor);

    static void OnRequests(dds_entity_t reader, void* arg);
    static void OnReplyMatch(dds_entity_t writer, dds_publication_matched_status_t status,
                             void* arg);
    void TakeRequests();
    void Receive(const Envelope& envelope);
    void Accept(const MethodMsgPtr& msg);
    void Dispatch(const MethodMsgPtr& msg);
    // Driver thread: after a discovery change of the reply writer, or the offer.
    void RescanClients();
    void FlushParked();
    void SweepParked();
    // Called with mutex_ held.
    void ParkLocked(const MethodMsgPtr& msg);
    bool SendReply(unsigned char* buffer, std::uint64_t size, const MethodMsgPtr& msg,
                   std::uint32_t flags);
    void Refuse(const Envelope& envelope, EnvelopeFault fault);

    const std::uint16_t serviceId_;
    const std::uint32_t entityId_;
    const ara::core::String serviceInstance_;
    const ara::core::String instance_;  // the daemon's
    const ara::core::String topic_;     // the stem
    const ara::core::String refuseTag_;
    const std::shared_ptr<DdsParticipant> participant_;
    const std::shared_ptr<DdsExecutor> executor_;
    dds_entity_t reader_{0};
    dds_entity_t writer_{0};

    mutable std::mutex handlerMutex_;  // guards handler_, running_ and stats_
    std::condition_variable handlerIdle_;
    std::shared_ptr<const vcc::driver::ReceiveHandler> handler_;
    std::size_t running_{0};  // calls of a receive handler under way
    std::shared_ptr<vcc::utils::stats::Stats> stats_;

    std::mutex mutex_;  // guards every member below
    bool closed_{false};
    OfferState offer_{OfferState::kNotYet};
    std::unordered_set<std::uint64_t> clients_;  // ids of the reply readers matched
    std::deque<Parked> parked_;
    std::unordered_map<std::uint64_t, std::size_t> parkedPerClient_;
    bool sweepScheduled_{false};

    std::atomic<std::uint64_t> received_{0};
    std::atomic<std::uint64_t> otherInstance_{0};
    std::atomic<std::uint64_t> refused_{0};
    std::atomic<std::uint64_t> parkedCount_{0};
    std::atomic<std::uint64_t> dropped_{0};
    std::atomic<std::uint64_t> replies_{0};
    std::atomic<std::uint64_t> replyFailures_{0};
};

class DdsEventHandler final : public vcc::driver::EventHandler {
public:
    static constexpr std::int32_t kDepth = 16;

    // Creates the writer of info.dds.topic. Null, with a log line, on failure.
    static std::shared_ptr<DdsEventHandler> Create(const api::types::EventInfo& info,
                                                   const ara::core::String& instance,
                                                   std::shared_ptr<DdsParticipant> participant);
    ~DdsEventHandler() override;

    bool SendEvent(unsigned char* buffer, std::uint64_t size,
                   api::types::internal::SampleInfoImpl& sampleInfo) override;
    unsigned char* AllocateBuffer(std::uint64_t size) override;
    std::uint8_t GetSerializeType() const override { return 0; }
    bool IsDdsEnabled() const override { return true; }
    bool IsReady() const override;

    std::uint16_t ServiceId() const { return serviceId_; }
    const ara::core::String& ServiceInstance() const { return serviceInstance_; }
    void SetOffered(bool offered);
    void Close();
    std::uint64_t SentCount() const { return sent_; }

private:
    DdsEventHandler(const api::types::EventInfo& info, ara::core::String instance,
                    std::shared_ptr<DdsParticipant> participant, dds_entity_t writer);

    const std::uint16_t serviceId_;
    const std::uint32_t entityId_;
    const ara::core::String serviceInstance_;
    const ara::core::String instance_;
    const ara::core::String topic_;
    const std::shared_ptr<DdsParticipant> participant_;
    const dds_entity_t writer_;
    std::atomic<bool> offered_{false};
    std::atomic<bool> closed_{false};
    std::atomic<std::uint64_t> sequence_{0};
    std::atomic<std::uint64_t> sent_{0};
};

}  // namespace lumo::driver::dds

#endif
