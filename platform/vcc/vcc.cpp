#include "platform/vcc/vcc.h"

namespace lumo::vcc {

namespace {

using api::types::DriverType;
using api::types::E2EErrorCode;
using com::e2exf::ProfileCheckStatus;

// The method pool's threads are named after the service ("<name>_m", at most 15 characters).
ara::core::String PoolName(const ara::com::ServiceIdentifierType& service) {
    return (service.shortName.empty() ? ara::core::String("vcc")
                                      : service.shortName.substr(0, 13)) +
           "_m";
}

}  // namespace

std::shared_ptr<ara::tessel::common::log::Log> Vcc::logInstance_ =
    ara::tessel::common::log::Log::GetLog("CM");

Vcc::Vcc(ara::com::ServiceIdentifierType service, api::types::InstanceIdentifier instance,
         api::types::MethodCallProcessingMode mode)
    : service_(std::move(service)),
      instance_(std::move(instance)),
      mode_(mode),
      e2eStatusMap_{{ProfileCheckStatus::kRepeated, E2EErrorCode::repeated},
                    {ProfileCheckStatus::kWrongSequence, E2EErrorCode::wrong_sequence_error},
                    {ProfileCheckStatus::kError, E2EErrorCode::error},
                    {ProfileCheckStatus::kNotAvailable, E2EErrorCode::not_available},
                    {ProfileCheckStatus::kNoNewData, E2EErrorCode::no_new_data},
                    {ProfileCheckStatus::kCheckDisabled, E2EErrorCode::check_disable}} {}

Vcc::~Vcc() {
    StopOfferService();
    if (methodPool_ != nullptr) {
        methodPool_->Stop();
    }
}

bool Vcc::SetMethodThreadNumber(std::uint16_t threads, std::uint16_t queueSize) {
    if (threads == 0 || queueSize == 0) {
        logInstance_->LogError() << "[Vcc][Invalid method pool][threads=" << threads
                                 << ", queueSize=" << queueSize << "]";
        return false;
    }
    methodPool_ = std::make_shared<utils::ThreadPool>(threads, queueSize, PoolName(service_));
    return true;
}

bool Vcc::DoInitializeMethodSkel(MethodInfoMap protocolData) {
    if (protocolData.empty() || protocolData.begin()->second == nullptr) {
        return false;
    }
    auto method = FindMethod(protocolData.begin()->second->entityId);
    if (method == nullptr) {
        return false;
    }
    for (const auto& [type, info] : protocolData) {
        auto driver = driver::DriverRegistry::Get(type);
        auto handler =
            driver == nullptr || info == nullptr ? nullptr : driver->CreateMethodHandler(*info);
        if (handler == nullptr) {
            logInstance_->LogError()
                << "[Vcc][Create method handler failed][method="
                << (info == nullptr ? ara::core::String("?") : info->GetEntityIdentifier())
                << ", protocol=" << api::types::DriverTypeName(type) << "]";
            return false;
        }
        method->SetMethodDriver(type, handler);
        std::lock_guard<std::mutex> lock(driversMutex_);
        drivers_.insert(type);
    }
    method->SetDriverHandler();
    return true;
}

bool Vcc::RegisterMethodPool(
    std::uint32_t entityId,
    const std::pair<ThreadPoolType, std::shared_ptr<utils::ThreadPool>>& pool) {
    auto method = FindMethod(entityId);
    if (method == nullptr) {
        return false;
    }
    auto chosen = pool.first == ThreadPoolType::kServicePool ? methodPool_ : pool.second;
    if (chosen == nullptr) {
        return false;
    }
    method->SetThreadPool(chosen);
    return true;
}

bool Vcc::InitializeEvent(std::uint32_t entityId, const EventInfoMap& protocolData) {
    EventHandlerMap handlers;
    for (const auto& [type, info] : protocolData) {
        auto driver = driver::DriverRegistry::Get(type);
        auto handler =
            driver == nullptr || info == nullptr ? nullptr : driver->CreateEventHandler(*info);
        if (handler == nullptr) {
            logInstance_->LogError() << "[Vcc][Create event handler failed][event=" << entityId
                                     << ", protocol=" << api::types::DriverTypeName(type) << "]";
            return false;
        }
        handlers.emplace(type, handler);
    }
    auto event = std::make_shared<EventSkeleton>(entityId, instance_.ToString(), protocolData,
                                                 std::move(handlers));
    auto stats = std::make_shared<utils::stats::EventSkeletonStats>(
        utils::stats::EntityIdentifier{service_.value, instance_.ToString(), entityId});
    for (const auto& [type, info] : protocolData) {
        if (info != nullptr) {
            stats->SetEntityName(type, info->instanceShortName.empty()
                                           ? info->shortName
                                           : info->instanceShortName + "/" + info->shortName);
        }
        std::lock_guard<std::mutex> lock(driversMutex_);
        drivers_.insert(type);
    }
    event->SetStats(stats);
    statistician_.Add(stats);
    std::lock_guard<std::mutex> lock(eventMutex_);
    events_[entityId] = std::move(event);
    return true;
}

// Not const: attaching a policy changes how the service behaves, though not this object.
// NOLINTNEXTLINE(readability-make-member-function-const)
void Vcc::SetMethodTrafficCtrl(const std::shared_ptr<vesk::TrafficCtrlPolicy>& policy,
                               std::uint32_t entityId) {
    if (auto method = FindMethod(entityId)) {
        method->SetTrafficControlPolicy(policy);
    }
}

// NOLINTNEXTLINE(readability-make-member-function-const)
void Vcc::SetEventTrafficCtrl(const std::shared_ptr<vesk::TrafficCtrlPolicy>& policy,
                              std::uint32_t entityId) {
    if (auto event = FindEvent(entityId)) {
        event->SetTrafficControlPolicy(policy);
    }
}

bool Vcc::OfferService() {
    std::set<DriverType> drivers;
    {
        std::lock_guard<std::mutex> lock(driversMutex_);
        drivers = drivers_;
    }
    bool offered = true;
    for (DriverType type : drivers) {
        auto driver = driver::DriverRegistry::Get(type);
        if (driver == nullptr || !driver->OfferService(service_.value, instance_.ToString())) {
            logInstance_->LogError() << "[Vcc][Offer service failed][serviceId=" << service_.value
                                     << ", instanceId=" << instance_.ToString()
                                     << ", protocol=" << api::types::DriverTypeName(type) << "]";
            offered = false;
        }
    }
    isOffered_ = true;
    return offered;
}

void Vcc::StopOfferService() {
    if (!isOffered_.exchange(false)) {
        return;
    }
    std::set<DriverType> drivers;
    {
        std::lock_guard<std::mutex> lock(driversMutex_);
        drivers = drivers_;
    }
    for (DriverType type : drivers) {
        if (auto driver = driver::DriverRegistry::Get(type)) {
            driver->StopOfferService(service_.value, instance_.ToString());
        }
    }
    for (const auto& entry : methods_) {
        entry.second->UnsetMethodCallback();
    }
}

std::shared_ptr<MethodSkeleton> Vcc::FindMethod(std::uint32_t entityId) const {
    auto it = methods_.find(entityId);
    return it == methods_.end() ? nullptr : it->second;
}

std::shared_ptr<EventSkeleton> Vcc::FindEvent(std::uint32_t entityId) const {
    std::lock_guard<std::mutex> lock(eventMutex_);
    auto it = events_.find(entityId);
    return it == events_.end() ? nullptr : it->second;
}

std::shared_ptr<utils::stats::MethodSkeletonStats> Vcc::FindMethodStats(
    std::uint32_t entityId) const {
    std::lock_guard<std::mutex> lock(statsMutex_);
    auto it = methodStats_.find(entityId);
    return it == methodStats_.end() ? nullptr : it->second;
}

void Vcc::AddMethodStats(std::uint32_t entityId,
                         const std::shared_ptr<utils::stats::MethodSkeletonStats>& stats) {
    std::lock_guard<std::mutex> lock(statsMutex_);
    methodStats_.emplace(entityId, stats);
}

void Vcc::SetE2EErrorHandler(api::types::E2EErrorHandler handler) {
    std::lock_guard<std::mutex> lock(e2eMutex_);
    e2eErrorHandler_ = std::move(handler);
}

api::types::E2EErrorHandler Vcc::GetE2EErrorHandler() const {
    std::lock_guard<std::mutex> lock(e2eMutex_);
    return e2eErrorHandler_;
}

std::map<com::e2exf::ProfileCheckStatus, api::types::E2EErrorCode> Vcc::GetE2EStatusMap() const {
    return e2eStatusMap_;
}

std::shared_ptr<utils::ThreadPool> Vcc::GetMethodPool() const {
    return methodPool_;
}

ara::core::String Vcc::GetStatisticsText() const {
    ara::core::String text;
    for (const auto& entry : methods_) {
        text += entry.second->GetStatisticsText();
    }
    return text;
}

}  // namespace lumo::vcc
