#include "platform/vcc/event_skeleton.h"

namespace lumo::vcc {

namespace {
constexpr long kNanosecondsPerSecond = 1000000000L;
}

EventSkeleton::EventSkeleton(std::uint32_t entityId, ara::core::String instanceId,
                             EventInfoMap protocolData, EventHandlerMap eventHandlers)
    : entityId_(entityId),
      instanceId_(std::move(instanceId)),
      isField_(!protocolData.empty() && protocolData.begin()->second != nullptr &&
               protocolData.begin()->second->isField),
      logger_(ara::tessel::common::log::Log::GetLog("CM")),
      eventHandlers_(std::move(eventHandlers)),
      protocolData_(std::move(protocolData)) {}

bool EventSkeleton::CheckBeforeSendOut(const std::shared_ptr<driver::EventHandler>& handler) const {
    return handler != nullptr && handler->IsReady();
}

bool EventSkeleton::CheckCommonDataBuffer(
    const unsigned char* buffer, const api::types::internal::SampleInfoImpl& /*sampleInfo*/,
    const api::types::DriverType& driver) const {
    if (buffer != nullptr) {
        return true;
    }
    logger_->LogError("EventSkeleton_CheckCommonDataBuffer",
                      ara::tessel::common::log::LogLimitConfig{})
        << "[EventSkeleton][Allocate buffer failed][entityId=" << entityId_
        << ", protocol=" << api::types::DriverTypeName(driver) << "]";
    return false;
}

bool EventSkeleton::CheckTimeIsValid(const timespec& time) const {
    return time.tv_sec > 0 && time.tv_nsec >= 0 && time.tv_nsec < kNanosecondsPerSecond;
}

void EventSkeleton::GetLatencyTime(api::types::internal::SampleInfoImpl& sampleInfo) const {
    if (latencyMode_ != 1) {
        return;
    }
    timespec now{};
    if (clock_gettime(CLOCK_REALTIME, &now) == 0) {
        sampleInfo.isLatencySample = true;
        sampleInfo.latencyTimestamp = now;
    }
}

ara::core::String EventSkeleton::GetShortNameByDriver(const api::types::DriverType& driver) const {
    auto info = protocolData_.find(driver);
    return info == protocolData_.end() || info->second == nullptr ? ara::core::String()
                                                                  : info->second->shortName;
}

void EventSkeleton::SetTrafficControlPolicy(std::shared_ptr<vesk::TrafficCtrlPolicy> policy) {
    trafficControlPolicy_ = std::move(policy);
}

void EventSkeleton::SetLatencyMode(std::uint8_t mode) {
    latencyMode_ = mode;
}

void EventSkeleton::SetStats(std::shared_ptr<utils::stats::EventSkeletonStats> stats) {
    stats_ = std::move(stats);
}

void EventSkeleton::SetTlogStageFlag(api::types::DriverType driver, std::uint8_t flag) {
    tlogStageFlags_[driver] = flag;
}

void EventSkeleton::SetNotifierEnabled(bool enabled) {
    std::lock_guard<std::mutex> lock(notifierLock_);
    notifierEnabled_ = enabled;
}

}  // namespace lumo::vcc
