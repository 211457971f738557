#ifndef BINDING_SKELETON_METHOD_SKELETON_IMPL_H
#define BINDING_SKELETON_METHOD_SKELETON_IMPL_H

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <type_traits>

#include "binding/proloc/proloc_memory_factory.h"
#include "binding/serialize/dds_serializer.h"
#include "binding/serialize/someip_serializer.h"
#include "binding/skeleton/encoded_reply.h"
#include "binding/skeleton/error_reply.h"
#include "platform/core/future.h"
#include "platform/driver/proloc/proloc_entity_index.h"
#include "platform/error/com_error_domain.h"
#include "platform/error/core_error_domain.h"
#include "platform/error/future_error_domain.h"
#include "platform/log/log.h"
#include "platform/vcc/method_skeleton.h"

namespace lumo::vcc {

// The server-side object of one service method: takes a request from any of its drivers,
// applies traffic control, moves the work to the service's pool without copying the request,
// calls the user method through its handler and sends the result back to the driver that
// delivered the request.
//
// Locks: requestMutex_ guards the handler fields, the pool and the in-flight count; it is never
// held across a user call (the handler is copied out first) nor across a driver call.
template <typename Output>
class MethodSkeletonImpl final : public MethodSkeleton,
                                 public std::enable_shared_from_this<MethodSkeletonImpl<Output>> {
public:
    using FutureType = ara::core::Future<Output>;
    using Handler = std::function<FutureType(const driver::MethodMsgPtr&, const MethodInfoMap&)>;

    MethodSkeletonImpl(api::types::MethodCallProcessingMode mode, std::uint32_t entityId,
                       Handler handler = {})
        : entityId_(entityId),
          methodMode_(mode),
          methodHandler_(Share(std::move(handler))),
          logger_(ara::tessel::common::log::Log::GetLog("CM")) {}

    ~MethodSkeletonImpl() override { logger_->LogVerbose() << "MethodSkeletonImpl deconstructor"; }

    // Installs the user handler; the old one goes once no request holds it any more.
    void SetHandler(Handler handler) {
        auto shared = Share(std::move(handler));
        std::lock_guard<std::mutex> lock(requestMutex_);
        std::swap(methodHandler_, shared);
    }

    void SetMethodDriver(api::types::DriverType driver,
                         std::shared_ptr<driver::MethodHandler> handler) override {
        if (driverHandlers_.count(driver) != 0) {
            logger_->LogWarn() << "driver " << static_cast<unsigned>(driver)
                               << "was set for method :" << entityId_;
            return;
        }
        handler->SetStats(stats_);
        driverHandlers_.emplace(driver, handler);
        if (driver == api::types::DriverType::kProloc) {
            handler->SetProlocMemory(
                lumo::driver::proloc::ProlocMemoryFactory::GetMethodReplyInstance<Output>());
        }
    }

    void SetThreadPool(std::shared_ptr<utils::ThreadPool> pool) override {
        {
            std::lock_guard<std::mutex> lock(requestMutex_);
            threadPool_ = std::move(pool);
        }
        logger_->LogDebug() << "Set thread pool into methodSkeleton for " << entityId_;
    }

    void SetVccHandler(std::function<void(const driver::MethodMsgPtr&)> handler) override {
        std::lock_guard<std::mutex> lock(requestMutex_);
        if (methodMode_ != api::types::MethodCallProcessingMode::kPoll) {
            logger_->LogWarn() << "Method mode is not poll , ignore set vcc handler...";
            return;
        }
        vccReceiveHandler_ = std::move(handler);
        logger_->LogDebug() << "Vcc handler is setted ...";
    }

    void SetFireForgetMode(bool fireForget) override {
        if (isFireForget_.exchange(fireForget) != fireForget) {
            logger_->LogDebug() << "Method " << entityId_ << " fireforget mode is set to "
                                << fireForget;
        }
    }

    void UnsetMethodCallback() override {
        for (const auto& entry : driverHandlers_) {
            entry.second->SetReceiveHandler(nullptr);
        }
        std::unique_lock<std::mutex> lock(requestMutex_);
        methodHandler_ = nullptr;
        threadPool_.reset();
        vccReceiveHandler_ = nullptr;
        inFlightDone_.wait(lock, [this] { return inFlightCount_ == 0; });
        logger_->LogVerbose() << "MethodSkeletonImpl is unset method callback with method id:"
                              << entityId_;
    }

    void ProcessRequest(const driver::MethodMsgPtr& msg) override {
        std::shared_ptr<const Handler> handler;
        {
            std::lock_guard<std::mutex> lock(requestMutex_);
            ++inFlightCount_;
            handler = methodHandler_;
        }
        // The loan goes back and the count comes down even when a continuation that ran here
        // throws (a misused promise), so that UnsetMethodCallback cannot wait forever.
        struct Leave {
            MethodSkeletonImpl& self;
            const driver::MethodMsgPtr& msg;
            ~Leave() {
                self.ReturnRequestResources(msg);
                {
                    std::lock_guard<std::mutex> lock(self.requestMutex_);
                    --self.inFlightCount_;
                }
                self.inFlightDone_.notify_all();
            }
        } leave{*this, msg};
        if (handler == nullptr) {
            logger_->LogWarn("MethodSkeleton_No_Callback", LogLimit())
                << "[MethodSkeleton][Method was not registerd]";
        } else if (msg->isTrafficControlled) {
            ReplyTrafficControlled(msg);
        } else {
            CallUser(*handler, msg);
        }
    }

    void SetDriverHandler() override {
        std::weak_ptr<MethodSkeletonImpl> weak = this->weak_from_this();
        for (const auto& entry : driverHandlers_) {
            entry.second->SetReceiveHandler([weak](const driver::MethodMsgPtr& msg) {
                if (auto self = weak.lock()) {
                    self->OnRequestAvailable(msg);
                }
            });
        }
    }

    void SetTrafficControlPolicy(std::shared_ptr<vesk::TrafficCtrlPolicy> policy) override {
        trafficControlPolicy_ = std::move(policy);
    }
    void SetMethodInfo(const MethodInfoMap& protocolData) override {
        protocolData_ = protocolData;
        // Made once: the verbose lines of every request name the method, whatever the level.
        const api::types::MethodInfo* first =
            protocolData_.empty() ? nullptr : protocolData_.begin()->second.get();
        entityIdentifier_ = first == nullptr ? ara::core::String() : first->GetEntityIdentifier();
        prolocIndex_ = first == nullptr
                           ? lumo::driver::proloc::ProlocEntityIndex()
                           : lumo::driver::proloc::ProlocEntityIndex::FromEntityInfo(*first);
    }
    void SetStats(std::shared_ptr<utils::stats::MethodSkeletonStats> stats) override {
        stats_ = std::move(stats);
    }

    void ReturnRequestResources(const driver::MethodMsgPtr& msg) override {
        if (msg->payload == nullptr && msg->size == 0) {
            return;
        }
        logger_->LogVerbose() << "Return resources to driver for method request payload...";
        auto handler = driverHandlers_.find(msg->driverType);
        if (handler == driverHandlers_.end() || handler->second == nullptr) {
            logger_->LogError() << "Driver: " << static_cast<unsigned>(msg->driverType)
                                << " method handler is null.";
            return;
        }
        handler->second->ReturnLoan(msg->payload);
    }

    ara::core::String GetStatisticsText() override {
        if (stats_ == nullptr) {
            return {};
        }
        ara::core::String text = stats_->Text();
        if (text.empty()) {
            return text;
        }
        for (const auto& entry : stats_->GetEntityName()) {
            auto handler = driverHandlers_.find(entry.first);
            if (handler != driverHandlers_.end() && handler->second != nullptr) {
                text += handler->second->GetStatisticsText(entry.first);
            }
        }
        return text + "--------------------\n";
    }

    // On the driver's thread.
    void OnRequestAvailable(const driver::MethodMsgPtr& msg) {
        if (trafficControlPolicy_ != nullptr &&
            !trafficControlPolicy_->IsPassed(trafficControlPolicy_->GetTime())) {
            if (msg->payload == nullptr) {
                return;
            }
            msg->isTrafficControlled = true;
            ProcessRequest(msg);
            return;
        }
        if (methodMode_ != api::types::MethodCallProcessingMode::kPoll) {
            std::shared_ptr<utils::ThreadPool> pool;
            {
                std::lock_guard<std::mutex> lock(requestMutex_);
                pool = threadPool_;
            }
            if (pool == nullptr) {
                ProcessRequest(msg);
                return;
            }
            const utils::TaskSoureceId id(
                static_cast<std::uint16_t>((static_cast<unsigned>(msg->driverType) << 8U) + 1U),
                msg->uuid.high, msg->uuid.low);
            logger_->LogVerbose() << "Put msg to workpool to process[taskTypeId=" << id.taskTypeId
                                  << ", uuidHight=" << id.uuidHigh << ", uuidLow=" << id.uuidLow
                                  << "]";
            auto self = this->shared_from_this();
            if (!pool->Enqueue([self, msg] { self->ProcessRequest(msg); }, id)) {
                ReturnRequestResources(msg);  // dropped without a reply
            }
            return;
        }
        if (msg->payload == nullptr && msg->size == 0) {
            return;
        }
        std::function<void(const driver::MethodMsgPtr&)> vccHandler;
        {
            std::lock_guard<std::mutex> lock(requestMutex_);
            vccHandler = vccReceiveHandler_;
        }
        if (vccHandler) {
            logger_->LogVerbose() << "Msg put to vcc to process...";
            vccHandler(msg);
        } else {
            logger_->LogWarn("MethodSkeleton_No_Handler", LogLimit())
                << "[MethodSkeleton][No Vcc receiver handler was registered, the msg will be "
                   "lost]";
        }
    }

    std::uint32_t InFlightCount() const {
        std::lock_guard<std::mutex> lock(requestMutex_);
        return inFlightCount_;
    }

private:
    static ara::tessel::common::log::LogLimitConfig LogLimit() { return {}; }

    // A request copies a reference to the handler, not the handler.
    static std::shared_ptr<const Handler> Share(Handler handler) {
        return handler ? std::make_shared<const Handler>(std::move(handler)) : nullptr;
    }

    const ara::core::String& EntityIdentifier() const { return entityIdentifier_; }

    void ReplyTrafficControlled(const driver::MethodMsgPtr& msg) {
        msg->isErrorReply = true;
        if (isFireForget_) {
            logger_->LogVerbose() << "Fire and Forget mode, no need to send reply to proxy";
        } else {
            ara::core::Promise<void> promise;
            promise.SetError(
                api::types::MakeErrorCode(api::types::ComErrc::kMaxSamplesExceeded, 0));
            SendResult(promise.get_future(), msg, true);
        }
        if (stats_ != nullptr) {
            ++stats_->trafficControlled;
        }
    }

    void CallUser(const Handler& handler, const driver::MethodMsgPtr& msg) {
        logger_->LogVerbose() << "Call user method handler[method=" << EntityIdentifier()
                              << ", dataSize=" << msg->size << "]";
        detail::EncodedReplyScope scope(PlainSomeipReply(*msg));
        FutureType future = handler(msg, protocolData_);
        if (stats_ != nullptr) {
            ++stats_->requestsHandled;
        }
        if (!future.valid()) {
            logger_->LogWarn()
                << "User return future is invalid, please check future whether associate with "
                   "promise";
            return;
        }
        if (msg->payload == nullptr && msg->size == 0) {
            logger_->LogDebug() << "Do not give response in the situation that on request "
                                   "available is called but received nothing. Just call E2E "
                                   "Error Handler";
            return;
        }
        if (auto encoded = scope.Take()) {
            EncodedValueReply(*encoded, msg);
            return;
        }
        if (future.is_ready()) {  // the usual case: no continuation to build
            SendResult(std::move(future), msg, false);
            return;
        }
        std::weak_ptr<MethodSkeletonImpl> weak = this->weak_from_this();
        (void)future.then([weak, msg](FutureType ready) {
            if (auto self = weak.lock()) {
                self->SendResult(std::move(ready), msg, false);
            }
        });
    }

    // Takes the result out of a ready future; misuse of the future becomes a Future domain error.
    template <typename T>
    static ara::core::Result<T> TakeResult(ara::core::Future<T> future) {
        try {
            return future.GetResult();
        } catch (const ara::core::FutureException& e) {
            return ara::core::Result<T>::FromError(e.Error());
        } catch (const std::future_error& e) {
            return ara::core::Result<T>::FromError(
                ara::core::ErrorCodeFromStdFutureError(e.code()));
        }
    }

    template <typename T>
    void SendResult(ara::core::Future<T> future, const driver::MethodMsgPtr& msg, bool voidCase) {
        if (isFireForget_) {
            logger_->LogVerbose() << "Fire and Forget mode, no need to send reply to proxy";
            return;
        }
        if (voidCase) {
            logger_->LogVerbose() << "Send void method reply msg using future<void> type[method="
                                  << EntityIdentifier() << "]";
        } else {
            logger_->LogVerbose() << "Send method reply msg using future<ValueType> type[method="
                                  << EntityIdentifier() << "]";
        }
        const ara::core::Result<T> result = TakeResult(std::move(future));
        if (msg->serializeType == static_cast<std::uint8_t>(api::types::SerializeType::kProloc)) {
            InProcessReply(result, msg);
            return;
        }
        if constexpr (!std::is_void_v<T>) {
            if (result.HasValue()) {
                ValueReply(result.Value(), msg);
                return;
            }
        }
        const ara::core::ErrorCode& error = result.Error();
        if (error.Domain().Id() == ara::core::GetFutureErrorDomain().Id()) {
            throw ara::core::FutureException(error);  // a misused promise must not travel
        }
        if (voidCase) {
            logger_->LogVerbose() << "Server starts to send method error code[method="
                                  << EntityIdentifier() << "]";
        } else {
            logger_->LogVerbose() << "Server starts to send method error code for method id "
                                  << entityId_;
        }
        ErrorReply(error, msg);
    }

    template <typename T>
    void InProcessReply(const ara::core::Result<T>& result, const driver::MethodMsgPtr& msg) {
        const auto& store = lumo::driver::proloc::ProlocMemoryFactory::GetMethodReplyInstance<T>();
        const unsigned char* key = store->AddReply(result, prolocIndex_, *msg);
        auto* handler = Driver(api::types::DriverType::kProloc);
        if (handler != nullptr) {
            (void)handler->ReplyData(const_cast<unsigned char*>(key), driver::SizeRecord{0}, msg,
                                     false);
        }
    }

    void ValueReply(const Output& value, const driver::MethodMsgPtr& msg) {
        const auto info = Info(msg->driverType);
        if (info == nullptr) {
            return;
        }
        switch (static_cast<api::types::SerializeType>(msg->serializeType)) {
            case api::types::SerializeType::kDds: {
                serialize::dds::Serializer<Output> serializer(value, info->replyConfig);
                Write(serializer, msg);
                return;
            }
            case api::types::SerializeType::kSomeip: {
                const auto& node = info->replyNode;
                if (node != nullptr && node->members != nullptr && !node->members->empty()) {
                    auto structNode = info->replyIsSingleWrappedMember
                                          ? node->members->front()
                                          : std::make_shared<serialize::SerializationNode>(*node);
                    serialize::someip::Serializer<Output> serializer(
                        value, serialize::DefaultSerializeConfig(), structNode, 0, true);
                    if (serializer.GetSize() > serialize::kSizeMax) {
                        RefuseUnserializable(msg);
                        return;
                    }
                    Write(serializer, msg);
                    return;
                }
                serialize::someip::Serializer<Output> serializer(value, info->replyConfig);
                Write(serializer, msg);
                return;
            }
            default:
                logger_->LogError() << "[MethodSkeletonImpl][Wrong serialization type]";
                return;
        }
    }

    // The reply's configuration when it goes out over SOME/IP under plain widths, else null.
    const serialize::SerializeConfig* PlainSomeipReply(const driver::MethodMsg& msg) const {
        if (msg.serializeType != static_cast<std::uint8_t>(api::types::SerializeType::kSomeip)) {
            return nullptr;
        }
        auto it = protocolData_.find(msg.driverType);
        if (it == protocolData_.end() || it->second == nullptr) {
            return nullptr;
        }
        const auto& node = it->second->replyNode;
        if ((node != nullptr && node->members != nullptr && !node->members->empty()) ||
            !serialize::someip::HasPlainWidths(it->second->replyConfig)) {
            return nullptr;
        }
        return &it->second->replyConfig;
    }

    // A reply the user method wrote itself, in the shape of a serializer.
    struct EncodedWriter {
        EncodedReply& reply;
        std::uint64_t size;
        std::uint64_t GetSize() const { return size; }
        bool Serialize(unsigned char* buffer) const { return reply.Write(buffer); }
    };

    // A reply the user method wrote itself, sent as a serialized Output would be.
    void EncodedValueReply(EncodedReply& reply, const driver::MethodMsgPtr& msg) {
        if (isFireForget_) {
            logger_->LogVerbose() << "Fire and Forget mode, no need to send reply to proxy";
            return;
        }
        logger_->LogVerbose() << "Send method reply msg written by the user method[method="
                              << EntityIdentifier() << "]";
        // The size walks the whole answer: once.
        EncodedWriter encoded{reply, reply.Size()};
        if (encoded.size > serialize::kSizeMax) {
            RefuseUnserializable(msg);
            return;
        }
        Write(encoded, msg);
    }

    // A reply whose value cannot be serialized: the caller gets kNetworkBindingFailure.
    void RefuseUnserializable(const driver::MethodMsgPtr& msg) {
        logger_->LogError("MethodSkeleton_ReplySerialize", LogLimit())
            << "[MethodSkeleton][Method request serialize failed, maybe length filed is less "
               "than actual size][methodEntityId="
            << entityId_ << "]";
        ErrorReply(api::types::MakeErrorCode(api::types::ComErrc::kNetworkBindingFailure, 0), msg);
    }

    void ErrorReply(const ara::core::ErrorCode& error, const driver::MethodMsgPtr& msg) {
        const auto info = Info(msg->driverType);
        const auto type = static_cast<api::types::SerializeType>(msg->serializeType);
        if (info == nullptr || (type != api::types::SerializeType::kDds &&
                                type != api::types::SerializeType::kSomeip)) {
            logger_->LogError() << "[MethodSkeletonImpl][Wrong serialization type]";
            return;
        }
        msg->isErrorReply = true;
        auto* handler = Driver(msg->driverType);
        if (handler == nullptr) {
            return;
        }
        unsigned char* buffer = handler->AllocateBuffer(driver::SizeRecord{kErrorReplySize}, *msg);
        if (buffer == nullptr) {
            logger_->LogError() << "Allocate buffer failed when reply error in method "
                                << entityId_;
            return;
        }
        WriteErrorReply(buffer, error, type == api::types::SerializeType::kSomeip,
                        info->replyConfig.byteOrder);
        (void)handler->ReplyError(buffer, kErrorReplySize, msg, false);
    }

    // Whether a serializer writes every byte of its buffer: a plain SOME/IP one does (no
    // padding), and so does a reply the user method wrote; the others may skip padding.
    template <typename T>
    static bool FillsBuffer(const serialize::someip::Serializer<T>& serializer) {
        return serializer.IsPlain();
    }
    static bool FillsBuffer(const EncodedWriter& /*writer*/) { return true; }
    template <typename Serializer>
    static bool FillsBuffer(const Serializer& /*serializer*/) {
        return false;
    }

    template <typename Serializer>
    void Write(Serializer& serializer, const driver::MethodMsgPtr& msg) {
        const std::uint64_t size = serializer.GetSize();
        if (size > serialize::kSizeMax) {
            logger_->LogError("MethodSkeleton_ReplyData", LogLimit())
                << "[MethodSkeleton][Method request serialize failed, maybe length filed is less "
                   "than actual size][methodEntityId="
                << entityId_ << "]";
            return;
        }
        msg->isErrorReply = false;
        auto* handler = Driver(msg->driverType);
        if (handler == nullptr) {
            return;
        }
        const driver::SizeRecord record{static_cast<std::uint32_t>(size), FillsBuffer(serializer)};
        unsigned char* buffer = handler->AllocateBuffer(record, *msg);
        if (buffer == nullptr) {
            logger_->LogError() << "Allocate buffer failed when reply error in method "
                                << entityId_;
            return;
        }
        if constexpr (std::is_same_v<decltype(serializer.Serialize(buffer)), bool>) {
            if (!serializer.Serialize(buffer)) {
                // The buffer stays with the driver's handler, which frees it at its end.
                RefuseUnserializable(msg);
                return;
            }
        } else {
            serializer.Serialize(buffer);
        }
        (void)handler->ReplyData(buffer, record, msg, false);
    }

    // The skeleton keeps its handlers from set-up to its end: a reply needs no reference of
    // its own.
    driver::MethodHandler* Driver(api::types::DriverType type) const {
        auto it = driverHandlers_.find(type);
        return it == driverHandlers_.end() ? nullptr : it->second.get();
    }

    std::shared_ptr<api::types::MethodInfo> Info(api::types::DriverType type) const {
        auto it = protocolData_.find(type);
        return it == protocolData_.end() ? nullptr : it->second;
    }

    mutable std::mutex requestMutex_;  // guards the handlers, threadPool_ and inFlightCount_
    const std::uint32_t entityId_;
    std::shared_ptr<utils::ThreadPool> threadPool_;
    const api::types::MethodCallProcessingMode methodMode_;
    std::shared_ptr<const Handler> methodHandler_;
    // The in-process stores' key of this method; set with the method info, before any request.
    lumo::driver::proloc::ProlocEntityIndex prolocIndex_;
    std::function<void(const driver::MethodMsgPtr&)> vccReceiveHandler_;
    std::atomic<bool> isFireForget_{false};
    std::shared_ptr<ara::tessel::common::log::Log> logger_;
    // Set during assembly, before any driver delivers; read without a lock afterwards.
    std::shared_ptr<vesk::TrafficCtrlPolicy> trafficControlPolicy_;
    std::uint32_t inFlightCount_{0};
    std::condition_variable inFlightDone_;
    std::map<api::types::DriverType, std::shared_ptr<driver::MethodHandler>> driverHandlers_;
    MethodInfoMap protocolData_;
    ara::core::String entityIdentifier_;
    std::shared_ptr<utils::stats::MethodSkeletonStats> stats_;
};

}  // namespace lumo::vcc

#endif
