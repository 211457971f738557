#include "platform/driver/proloc/proloc_driver.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <sstream>

#include "platform/log/log.h"

namespace lumo::driver::proloc {

namespace {

using vcc::api::types::DriverType;
using vcc::api::types::SerializeType;
using vcc::driver::CallStatus;
using vcc::driver::MethodReply;
using LogLimit = ara::tessel::common::log::LogLimitConfig;

constexpr auto kSerializeType = static_cast<std::uint8_t>(SerializeType::kProloc);
// Samples a subscriber may leave unread before the oldest is dropped.
constexpr unsigned long kEventCacheSize = 16;

std::shared_ptr<ara::tessel::common::log::Log> Logger() {
    return ara::tessel::common::log::Log::GetLog("CM");
}

MethodReply Failure(CallStatus status, ara::core::String reason) {
    MethodReply reply;
    reply.status = status;
    reply.serializeType = kSerializeType;
    reply.reason = std::move(reason);
    return reply;
}

class ProlocEventHandler final : public vcc::driver::EventHandler {
public:
    ProlocEventHandler(std::weak_ptr<ProlocDriver> driver, std::uint16_t serviceId,
                       ara::core::String instanceId)
        : driver_(std::move(driver)), serviceId_(serviceId), instanceId_(std::move(instanceId)) {}

    // In-process samples go to the event store as typed values; bytes have no way in.
    bool SendEvent(unsigned char* buffer, std::uint64_t /*size*/,
                   vcc::api::types::internal::SampleInfoImpl& /*sampleInfo*/) override {
        delete[] buffer;
        Logger()->LogWarn("Proloc_SendEvent", LogLimit{})
            << "[ProlocEventHandler][In-process events are sent through the event store]";
        return false;
    }
    unsigned char* AllocateBuffer(std::uint64_t /*size*/) override { return nullptr; }
    std::uint8_t GetSerializeType() const override { return kSerializeType; }
    bool IsReady() const override {
        auto driver = driver_.lock();
        return driver != nullptr && driver->IsOffered(serviceId_, instanceId_);
    }

private:
    std::weak_ptr<ProlocDriver> driver_;
    std::uint16_t serviceId_;
    ara::core::String instanceId_;
};

class ProlocMethodClient final : public vcc::driver::MethodClient {
public:
    ProlocMethodClient(std::weak_ptr<ProlocDriver> driver, ProlocEntityIndex index)
        : driver_(std::move(driver)), index_(std::move(index)) {}

    void Call(const unsigned char* payload, std::uint64_t size, std::chrono::milliseconds timeout,
              vcc::driver::ReplyHandler handler) override {
        auto driver = driver_.lock();
        std::shared_ptr<ProlocMethodManager> requestMemory;
        auto server = Resolve(driver, requestMemory);
        if (server == nullptr) {
            ReturnRequest(requestMemory, payload);
            handler(Failure(CallStatus::kNotReachable, "service not offered in this process [" +
                                                           index_.GetProlocInfo() + "]"));
            return;
        }
        auto call = std::make_shared<PendingCall>();
        call->index = index_;
        call->handler = std::move(handler);
        auto msg = std::make_shared<vcc::api::types::MethodMsg>();
        msg->payload = payload;
        msg->size = size;
        msg->driverType = DriverType::kProloc;
        msg->serializeType = kSerializeType;
        msg->uuid.high = static_cast<std::uint64_t>(index_.entityId);
        msg->uuid.low = NextSequence();
        msg->replyRoute = call;
        driver->ScheduleTimeout(std::chrono::steady_clock::now() + timeout, call);
        if (!server->Deliver(msg, requestMemory)) {
            ReturnRequest(requestMemory, payload);
            (void)call->Complete(
                Failure(CallStatus::kNotReachable,
                        "method has no receive handler [" + index_.GetProlocInfo() + "]"));
        }
    }

    bool CallNoReturn(const unsigned char* payload, std::uint64_t size) override {
        auto driver = driver_.lock();
        std::shared_ptr<ProlocMethodManager> requestMemory;
        auto server = Resolve(driver, requestMemory);
        auto msg = std::make_shared<vcc::api::types::MethodMsg>();
        msg->payload = payload;
        msg->size = size;
        msg->driverType = DriverType::kProloc;
        msg->serializeType = kSerializeType;
        msg->uuid.low = NextSequence();
        if (server == nullptr || !server->Deliver(msg, requestMemory)) {
            ReturnRequest(requestMemory, payload);
            return false;
        }
        return true;
    }

    bool WaitForService(std::chrono::milliseconds timeout) override {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        for (;;) {
            auto driver = driver_.lock();
            if (driver != nullptr && driver->FindOfferedServer(index_) != nullptr) {
                return true;
            }
            if (std::chrono::steady_clock::now() >= deadline) {
                return false;
            }
            // Offers in the same process come from start-up code; a short poll is enough.
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }

    void SetServiceFoundHandler(std::function<void()> handler) override {
        const bool watch = static_cast<bool>(handler);
        found_->Set(std::move(handler));
        auto driver = driver_.lock();
        if (watch && driver != nullptr &&
            driver->WatchOffer(index_.serviceId, index_.instanceId, found_)) {
            found_->Notify();
        }
    }

    std::uint8_t GetSerializeType() const override { return kSerializeType; }

    void SetProlocMemory(std::shared_ptr<ProlocMethodManager> memory) override {
        std::lock_guard<std::mutex> lock(mutex_);
        requestMemory_ = std::move(memory);
    }

private:
    static std::uint64_t NextSequence() {
        static std::atomic<std::uint64_t> sequence{0};
        return ++sequence;
    }

    // The request store, and the offered server or null. The server found last is kept with
    // the driver's offer generation and is looked up again only when that has changed.
    std::shared_ptr<ProlocMethodHandler> Resolve(const std::shared_ptr<ProlocDriver>& driver,
                                                 std::shared_ptr<ProlocMethodManager>& memory) {
        const std::uint64_t generation = driver == nullptr ? 0 : driver->OfferGeneration();
        std::lock_guard<std::mutex> lock(mutex_);
        memory = requestMemory_;
        if (driver == nullptr) {
            return nullptr;
        }
        if (generation != serverGeneration_) {
            server_ = driver->FindOfferedServer(index_);
            serverGeneration_ = generation;
        }
        return server_.lock();
    }

    void ReturnRequest(const std::shared_ptr<ProlocMethodManager>& memory,
                       const unsigned char* payload) const {
        if (memory != nullptr && payload != nullptr) {
            memory->ReturnLoan(payload, index_);
        }
    }

    std::weak_ptr<ProlocDriver> driver_;
    const ProlocEntityIndex index_;
    std::mutex mutex_;  // guards requestMemory_, server_ and serverGeneration_
    std::shared_ptr<ProlocMethodManager> requestMemory_;
    std::weak_ptr<ProlocMethodHandler> server_;
    std::uint64_t serverGeneration_{0};  // none yet: the driver's start at 1
    const std::shared_ptr<vcc::driver::ServiceFoundSignal> found_ =
        std::make_shared<vcc::driver::ServiceFoundSignal>();
};

class ProlocEventClient final : public vcc::driver::EventClient,
                                public std::enable_shared_from_this<ProlocEventClient> {
public:
    ProlocEventClient(ProlocEntityIndex index, bool isField)
        : index_(std::move(index)), isField_(isField), clientUid_(NextUid()) {}
    ~ProlocEventClient() override { Unsubscribe(); }

    bool Subscribe(vcc::driver::SampleHandler handler) override {
        auto memory = Memory();
        if (memory == nullptr || !handler) {
            Logger()->LogError() << "[ProlocEventClient][No event store to subscribe to]["
                                 << index_.GetProlocInfo() << "]";
            return false;
        }
        {
            std::lock_guard<std::mutex> lock(handlerMutex_);
            handler_ = std::move(handler);
            subscribed_ = true;
        }
        std::weak_ptr<ProlocEventClient> weak = weak_from_this();
        // A field's first value arrives while the store holds its lock, before EnableClient
        // returns: that call only marks it, and the drain below reads it.
        enablingThread_ = std::this_thread::get_id();
        memory->EnableClient(index_, clientUid_, kEventCacheSize, isField_, [weak] {
            if (auto self = weak.lock()) {
                if (std::this_thread::get_id() != self->enablingThread_.load()) {
                    self->Drain();
                }
            }
        });
        enablingThread_ = std::thread::id();
        Drain();
        return true;
    }

    void Unsubscribe() override {
        auto memory = Memory();
        if (memory != nullptr) {
            memory->EraseClient(index_, clientUid_);
        }
        std::lock_guard<std::mutex> lock(handlerMutex_);
        subscribed_ = false;
        handler_ = nullptr;
    }

    bool IsSubscribed() const override {
        std::lock_guard<std::mutex> lock(handlerMutex_);
        return subscribed_;
    }
    std::uint8_t GetSerializeType() const override { return kSerializeType; }

    void SetProlocMemory(std::shared_ptr<ProlocMemoryManager> memory) override {
        std::lock_guard<std::mutex> lock(memoryMutex_);
        memory_ = std::move(memory);
    }

private:
    static unsigned long NextUid() {
        static std::atomic<unsigned long> uid{0};
        return ++uid;
    }

    std::shared_ptr<ProlocMemoryManager> Memory() const {
        std::lock_guard<std::mutex> lock(memoryMutex_);
        return memory_;
    }

    // Hands every queued sample to the handler and returns its loan. handlerMutex_ keeps
    // Unsubscribe from returning while a sample is being handled.
    void Drain() {
        auto memory = Memory();
        if (memory == nullptr) {
            return;
        }
        std::lock_guard<std::mutex> lock(handlerMutex_);
        if (!subscribed_) {
            return;
        }
        for (const unsigned char* sample : memory->ReadSamples(index_, clientUid_, INT_MAX)) {
            handler_(sample, 0);
            memory->ReturnLoan(index_, clientUid_, sample);
        }
    }

    const ProlocEntityIndex index_;
    const bool isField_;
    const unsigned long clientUid_;
    std::atomic<std::thread::id> enablingThread_{};
    mutable std::mutex memoryMutex_;  // guards memory_
    std::shared_ptr<ProlocMemoryManager> memory_;
    mutable std::mutex handlerMutex_;  // guards handler_ and subscribed_; held while handling
    vcc::driver::SampleHandler handler_;
    bool subscribed_{false};
};

}  // namespace

bool PendingCall::Complete(const MethodReply& reply) {
    if (done.exchange(true, std::memory_order_acq_rel)) {
        return false;
    }
    if (timer != nullptr) {
        timer->Cancel(*this);
    }
    if (handler) {
        handler(reply);
    }
    return true;
}

ProlocCallTimer::~ProlocCallTimer() {
    Stop();
}

void ProlocCallTimer::Stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    if (!thread_.joinable()) {
        return;
    }
    // The last reference to the timer may go with a call that its own thread completes.
    if (thread_.get_id() == std::this_thread::get_id()) {
        thread_.detach();
    } else {
        thread_.join();
    }
}

void ProlocCallTimer::Schedule(std::chrono::steady_clock::time_point deadline,
                               const std::shared_ptr<PendingCall>& call) {
    bool wake = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (stopping_) {
            return;
        }
        call->timerEntry = spareDeadlines_.Insert(deadlines_, deadline, call);
        call->scheduled = true;
        wake = deadline < wakeAt_;
        if (!thread_.joinable()) {
            thread_ = std::thread([this] { Run(); });
        }
    }
    if (wake) {
        wake_.notify_one();
    }
}

void ProlocCallTimer::Cancel(PendingCall& call) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (call.scheduled) {
        spareDeadlines_.Erase(deadlines_, call.timerEntry);
        call.scheduled = false;
    }
}

std::size_t ProlocCallTimer::Scheduled() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return deadlines_.size();
}

void ProlocCallTimer::Run() {
    (void)pthread_setname_np(pthread_self(), "proloc_timer");
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stopping_) {
        const auto now = std::chrono::steady_clock::now();
        if (deadlines_.empty() || now < deadlines_.begin()->first) {
            wakeAt_ = deadlines_.empty() ? std::chrono::steady_clock::time_point::max()
                                         : deadlines_.begin()->first;
            if (deadlines_.empty()) {
                wake_.wait(lock);
            } else {
                wake_.wait_until(lock, wakeAt_);
            }
            continue;
        }
        auto call = deadlines_.begin()->second.lock();
        spareDeadlines_.Erase(deadlines_, deadlines_.begin());
        if (call != nullptr) {
            call->scheduled = false;
            lock.unlock();
            (void)call->Complete(
                Failure(CallStatus::kTimeout,
                        "no reply within the timeout [" + call->index.GetProlocInfo() + "]"));
            lock.lock();
        }
    }
}

ProlocDriver::~ProlocDriver() {
    timer_->Stop();
}

std::shared_ptr<vcc::driver::MethodHandler> ProlocDriver::CreateMethodHandler(
    const vcc::api::types::MethodInfo& info) {
    auto index = ProlocEntityIndex::FromEntityInfo(info);
    auto handler = std::make_shared<ProlocMethodHandler>(index);
    std::lock_guard<std::mutex> lock(mutex_);
    servers_[index] = handler;
    generation_.fetch_add(1, std::memory_order_release);
    return handler;
}

std::shared_ptr<vcc::driver::EventHandler> ProlocDriver::CreateEventHandler(
    const vcc::api::types::EventInfo& info) {
    return std::make_shared<ProlocEventHandler>(weak_from_this(), info.serviceId, info.instanceId);
}

bool ProlocDriver::OfferService(std::uint16_t serviceId, const ara::core::String& instanceId) {
    std::vector<std::shared_ptr<vcc::driver::ServiceFoundSignal>> found;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!offered_.emplace(serviceId, instanceId).second) {
            return true;
        }
        generation_.fetch_add(1, std::memory_order_release);
        auto& watchers = watchers_[{serviceId, instanceId}];
        watchers.erase(std::remove_if(watchers.begin(), watchers.end(),
                                      [](const auto& watcher) { return watcher.expired(); }),
                       watchers.end());
        for (const auto& watcher : watchers) {
            if (auto live = watcher.lock()) {
                found.push_back(std::move(live));
            }
        }
    }
    for (const auto& signal : found) {
        signal->Notify();
    }
    return true;
}

bool ProlocDriver::WatchOffer(std::uint16_t serviceId, const ara::core::String& instanceId,
                              const std::shared_ptr<vcc::driver::ServiceFoundSignal>& signal) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto& watchers = watchers_[{serviceId, instanceId}];
    const auto known = std::any_of(watchers.begin(), watchers.end(),
                                   [&signal](const auto& other) { return other.lock() == signal; });
    if (!known) {
        watchers.push_back(signal);
    }
    return offered_.count({serviceId, instanceId}) != 0;
}

void ProlocDriver::StopOfferService(std::uint16_t serviceId, const ara::core::String& instanceId) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (offered_.erase({serviceId, instanceId}) != 0) {
        generation_.fetch_add(1, std::memory_order_release);
    }
}

std::shared_ptr<vcc::driver::MethodClient> ProlocDriver::CreateMethodClient(
    const vcc::api::types::MethodInfo& info) {
    return std::make_shared<ProlocMethodClient>(weak_from_this(),
                                                ProlocEntityIndex::FromEntityInfo(info));
}

std::shared_ptr<vcc::driver::EventClient> ProlocDriver::CreateEventClient(
    const vcc::api::types::EventInfo& info) {
    return std::make_shared<ProlocEventClient>(ProlocEntityIndex::FromEntityInfo(info),
                                               info.isField);
}

bool ProlocDriver::IsOffered(std::uint16_t serviceId, const ara::core::String& instanceId) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return offered_.count({serviceId, instanceId}) != 0;
}

std::shared_ptr<ProlocMethodHandler> ProlocDriver::FindOfferedServer(
    const ProlocEntityIndex& index) const {
    std::lock_guard<std::mutex> lock(mutex_);
    if (offered_.count({index.serviceId, index.instanceId}) == 0) {
        return nullptr;
    }
    auto it = servers_.find(index);
    return it == servers_.end() ? nullptr : it->second.lock();
}

void ProlocDriver::ScheduleTimeout(std::chrono::steady_clock::time_point deadline,
                                   const std::shared_ptr<PendingCall>& call) {
    call->timer = timer_;
    timer_->Schedule(deadline, call);
}

bool ProlocMethodHandler::ReplyData(unsigned char* buffer, const vcc::driver::SizeRecord& size,
                                    const vcc::driver::MethodMsgPtr& msg, bool /*flag*/) {
    return Reply(buffer, size.length, msg);
}

bool ProlocMethodHandler::ReplyError(unsigned char* buffer, std::uint64_t size,
                                     const vcc::driver::MethodMsgPtr& msg, bool /*flag*/) {
    return Reply(buffer, size, msg);
}

bool ProlocMethodHandler::Reply(const unsigned char* key, std::uint64_t size,
                                const vcc::driver::MethodMsgPtr& msg) {
    std::shared_ptr<ProlocMethodManager> replyMemory;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++replies_;
        replyMemory = replyMemory_;
    }
    auto call = msg == nullptr ? nullptr : std::static_pointer_cast<PendingCall>(msg->replyRoute);
    MethodReply reply;
    reply.status = CallStatus::kOk;
    reply.isErrorReply = msg != nullptr && msg->isErrorReply;
    reply.serializeType = kSerializeType;
    reply.payload = key;
    reply.size = size;
    if (call != nullptr && call->Complete(reply)) {
        return true;
    }
    // Nobody waits for it any more (timed out, or a call without reply): free the result.
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++lateReplies_;
    }
    if (replyMemory != nullptr && key != nullptr) {
        replyMemory->ReturnLoan(key, index_);
    }
    return false;
}

unsigned char* ProlocMethodHandler::AllocateBuffer(const vcc::driver::SizeRecord& /*size*/,
                                                   const vcc::api::types::MethodMsg& /*msg*/) {
    return nullptr;
}

void ProlocMethodHandler::ReturnLoan(const unsigned char* payload) {
    if (payload == nullptr) {
        return;
    }
    std::shared_ptr<ProlocMethodManager> memory;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto loan = requestLoans_.find(payload);
        if (loan == requestLoans_.end()) {
            return;
        }
        memory = spareLoans_.Take(requestLoans_, loan);
    }
    if (memory != nullptr) {
        memory->ReturnLoan(payload, index_);
    }
}

void ProlocMethodHandler::SetReceiveHandler(vcc::driver::ReceiveHandler handler) {
    auto shared =
        handler ? std::make_shared<const vcc::driver::ReceiveHandler>(std::move(handler)) : nullptr;
    std::lock_guard<std::mutex> lock(mutex_);
    receiveHandler_ = std::move(shared);
}

void ProlocMethodHandler::SetProlocMemory(std::shared_ptr<ProlocMethodManager> memory) {
    std::lock_guard<std::mutex> lock(mutex_);
    replyMemory_ = std::move(memory);
}

void ProlocMethodHandler::SetStats(std::shared_ptr<vcc::utils::stats::Stats> /*stats*/) {}

ara::core::String ProlocMethodHandler::GetStatisticsText(vcc::driver::DriverType driver) const {
    std::lock_guard<std::mutex> lock(mutex_);
    if (requests_ == 0) {
        return {};
    }
    std::ostringstream out;
    out << vcc::api::types::DriverTypeName(driver) << " requests=" << requests_
        << " replies=" << replies_ << " lateReplies=" << lateReplies_ << "\n";
    return out.str();
}

bool ProlocMethodHandler::Deliver(const vcc::driver::MethodMsgPtr& msg,
                                  const std::shared_ptr<ProlocMethodManager>& requestMemory) {
    std::shared_ptr<const vcc::driver::ReceiveHandler> handler;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (receiveHandler_ == nullptr) {
            return false;
        }
        handler = receiveHandler_;
        ++requests_;
        if (msg->payload != nullptr) {
            (void)spareLoans_.Insert(requestLoans_, msg->payload, requestMemory);
        }
    }
    (*handler)(msg);
    return true;
}

}  // namespace lumo::driver::proloc
