#ifndef PLATFORM_DRIVER_PROLOC_PROLOC_DRIVER_H
#define PLATFORM_DRIVER_PROLOC_PROLOC_DRIVER_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "platform/driver/proloc/proloc_entity_index.h"
#include "platform/driver/proloc/proloc_memory_manager.h"
#include "platform/driver/proloc/spare_nodes.h"
#include "platform/vcc/driver/driver.h"

namespace lumo::driver::proloc {

class ProlocMethodHandler;
struct PendingCall;

// Completes calls with kTimeout at their deadlines, on its thread "proloc_timer", started with
// the first call. A call that completes before its deadline leaves the timer at once, so the
// timer holds only the calls in flight.
class ProlocCallTimer {
public:
    ProlocCallTimer() = default;
    ~ProlocCallTimer();
    ProlocCallTimer(const ProlocCallTimer&) = delete;
    ProlocCallTimer& operator=(const ProlocCallTimer&) = delete;

    void Schedule(std::chrono::steady_clock::time_point deadline,
                  const std::shared_ptr<PendingCall>& call);
    void Cancel(PendingCall& call);
    std::size_t Scheduled() const;
    // Joins the thread; calls still scheduled are not completed by it any more.
    void Stop();

private:
    using Deadlines =
        std::multimap<std::chrono::steady_clock::time_point, std::weak_ptr<PendingCall>>;

    void Run();

    mutable std::mutex mutex_;  // guards every member below and each PendingCall's timer fields
    std::condition_variable wake_;
    Deadlines deadlines_;
    SpareNodes<Deadlines> spareDeadlines_;
    // When the thread wakes next by itself: an earlier deadline must wake it, a later one not.
    std::chrono::steady_clock::time_point wakeAt_{std::chrono::steady_clock::time_point::max()};
    bool stopping_{false};
    std::thread thread_;
};

// The in-process driver: client and server live in one process and pass typed records through
// the binding's stores, so nothing is serialized. A request's payload is the key of its record
// in the request store and a reply's the key of its result in the reply store.
//
// A call runs the server's receive handler on the caller's thread; replies come on the thread
// that completes the server's future, timeouts on the driver's timer thread.
class ProlocDriver final : public vcc::driver::Driver,
                           public std::enable_shared_from_this<ProlocDriver> {
public:
    ProlocDriver() = default;
    ~ProlocDriver() override;

    vcc::driver::DriverType Type() const override { return vcc::driver::DriverType::kProloc; }

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

    bool IsOffered(std::uint16_t serviceId, const ara::core::String& instanceId) const;
    // Notifies signal at every later offer of the service; true when it is offered now.
    bool WatchOffer(std::uint16_t serviceId, const ara::core::String& instanceId,
                    const std::shared_ptr<vcc::driver::ServiceFoundSignal>& signal);
    // The server of an offered method, or null.
    std::shared_ptr<ProlocMethodHandler> FindOfferedServer(const ProlocEntityIndex& index) const;
    // Changes whenever an offer or a server does, so that a client may keep the server it found
    // until then instead of looking it up on every call.
    std::uint64_t OfferGeneration() const { return generation_.load(std::memory_order_acquire); }
    // Completes the call with kTimeout at the deadline unless it completed before.
    void ScheduleTimeout(std::chrono::steady_clock::time_point deadline,
                         const std::shared_ptr<PendingCall>& call);
    // The calls whose deadline the timer still watches: those in flight.
    std::size_t PendingTimeouts() const { return timer_->Scheduled(); }

private:
    mutable std::mutex mutex_;  // guards servers_, offered_ and watchers_; bumps generation_
    std::atomic<std::uint64_t> generation_{1};
    std::map<ProlocEntityIndex, std::weak_ptr<ProlocMethodHandler>> servers_;
    std::set<std::pair<std::uint16_t, ara::core::String>> offered_;
    std::map<std::pair<std::uint16_t, ara::core::String>,
             std::vector<std::weak_ptr<vcc::driver::ServiceFoundSignal>>>
        watchers_;
    const std::shared_ptr<ProlocCallTimer> timer_ = std::make_shared<ProlocCallTimer>();
};

// A call in flight: completed once, by its reply or by its timeout.
struct PendingCall {
    ProlocEntityIndex index;
    vcc::driver::ReplyHandler handler;
    std::atomic<bool> done{false};
    // Set by Schedule; the entry is valid while scheduled, both guarded by the timer's mutex.
    std::shared_ptr<ProlocCallTimer> timer;
    std::multimap<std::chrono::steady_clock::time_point, std::weak_ptr<PendingCall>>::iterator
        timerEntry;
    bool scheduled{false};

    // False when the call was completed before; then the handler is not called.
    bool Complete(const vcc::driver::MethodReply& reply);
};

// The server side of one method.
class ProlocMethodHandler final : public vcc::driver::MethodHandler {
public:
    explicit ProlocMethodHandler(ProlocEntityIndex index) : index_(std::move(index)) {}

    bool ReplyData(unsigned char* buffer, const vcc::driver::SizeRecord& size,
                   const vcc::driver::MethodMsgPtr& msg, bool flag) override;
    bool ReplyError(unsigned char* buffer, std::uint64_t size, const vcc::driver::MethodMsgPtr& msg,
                    bool flag) override;
    // Replies travel through the reply store: there is nothing to allocate.
    unsigned char* AllocateBuffer(const vcc::driver::SizeRecord& size,
                                  const vcc::api::types::MethodMsg& msg) override;
    void ReturnLoan(const unsigned char* payload) override;
    void SetReceiveHandler(vcc::driver::ReceiveHandler handler) override;
    void SetProlocMemory(std::shared_ptr<ProlocMethodManager> memory) override;
    void SetStats(std::shared_ptr<vcc::utils::stats::Stats> stats) override;
    ara::core::String GetStatisticsText(vcc::driver::DriverType driver) const override;

    // Client side: hands a request to the receive handler, on the caller's thread. False when
    // no handler is installed.
    bool Deliver(const vcc::driver::MethodMsgPtr& msg,
                 const std::shared_ptr<ProlocMethodManager>& requestMemory);

private:
    bool Reply(const unsigned char* key, std::uint64_t size, const vcc::driver::MethodMsgPtr& msg);

    const ProlocEntityIndex index_;
    mutable std::mutex mutex_;  // guards every member below
    // Shared, so that a request copies a reference and not the handler.
    std::shared_ptr<const vcc::driver::ReceiveHandler> receiveHandler_;
    std::shared_ptr<ProlocMethodManager> replyMemory_;
    // Request keys handed out and not yet returned, with the store they came from.
    using RequestLoans = std::map<const unsigned char*, std::shared_ptr<ProlocMethodManager>>;
    RequestLoans requestLoans_;
    SpareNodes<RequestLoans> spareLoans_;
    std::uint64_t requests_{0};
    std::uint64_t replies_{0};
    std::uint64_t lateReplies_{0};
};

}  // namespace lumo::driver::proloc

#endif
