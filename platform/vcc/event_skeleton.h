#ifndef PLATFORM_VCC_EVENT_SKELETON_H
#define PLATFORM_VCC_EVENT_SKELETON_H

#include <atomic>
#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/core/string.h"
#include "platform/log/log.h"
#include "platform/vcc/api/types/driver_type.h"
#include "platform/vcc/api/types/entity_info.h"
#include "platform/vcc/api/types/sample_info.h"
#include "platform/vcc/driver/driver.h"
#include "platform/vcc/traffic/traffic_ctrl_policy.h"
#include "platform/vcc/utils/stats.h"

namespace lumo::vcc {

using EventInfoMap = std::map<api::types::DriverType, std::shared_ptr<api::types::EventInfo>>;
using EventHandlerMap = std::map<api::types::DriverType, std::shared_ptr<driver::EventHandler>>;

// One event or field of a service on its drivers. The send path is a set of templates over the
// sample type, defined in binding/skeleton/event_skeleton_send.h; this class holds the state
// they work on and the checks they call.
class EventSkeleton {
public:
    EventSkeleton(std::uint32_t entityId, ara::core::String instanceId, EventInfoMap protocolData,
                  EventHandlerMap eventHandlers);
    EventSkeleton(const EventSkeleton&) = delete;
    EventSkeleton& operator=(const EventSkeleton&) = delete;
    virtual ~EventSkeleton() = default;

    // Sends one sample on every driver; false when it was refused or a driver failed.
    template <typename T>
    bool Send(const T& data, api::types::internal::SampleInfoImpl& sampleInfo);
    template <typename T>
    bool SendOut(const std::shared_ptr<driver::EventHandler>& handler, const T& data,
                 api::types::DriverType driver, api::types::internal::SampleInfoImpl& sampleInfo);
    template <typename Serializer>
    bool SendCommonData(const std::shared_ptr<driver::EventHandler>& handler,
                        Serializer& serializer, api::types::internal::SampleInfoImpl& sampleInfo,
                        const api::types::DriverType& driver);
    template <typename T>
    bool SendSignal(const std::shared_ptr<driver::EventHandler>& handler, const T& data,
                    api::types::DriverType driver,
                    api::types::internal::SampleInfoImpl& sampleInfo);
    // Stores a field's value and notifies by the field rules; always succeeds.
    template <typename T>
    void UpdateField(const T& data, bool offered);

    // The driver can take data now.
    bool CheckBeforeSendOut(const std::shared_ptr<driver::EventHandler>& handler) const;
    // A buffer to send from; logs and refuses a null one.
    bool CheckCommonDataBuffer(const unsigned char* buffer,
                               const api::types::internal::SampleInfoImpl& sampleInfo,
                               const api::types::DriverType& driver) const;
    bool CheckTimeIsValid(const timespec& time) const;
    // In latency mode, stamps the sample with the time now.
    void GetLatencyTime(api::types::internal::SampleInfoImpl& sampleInfo) const;
    const ara::core::String& GetInstanceId() const noexcept { return instanceId_; }
    ara::core::String GetShortNameByDriver(const api::types::DriverType& driver) const;
    bool IsField() const noexcept { return isField_; }
    std::uint32_t EntityId() const noexcept { return entityId_; }

    void SetTrafficControlPolicy(std::shared_ptr<vesk::TrafficCtrlPolicy> policy);
    // 1: every sample carries a time stamp.
    void SetLatencyMode(std::uint8_t mode);
    void SetStats(std::shared_ptr<utils::stats::EventSkeletonStats> stats);
    std::shared_ptr<utils::stats::EventSkeletonStats> GetStats() const { return stats_; }
    void SetTlogStageFlag(api::types::DriverType driver, std::uint8_t flag);
    // A field notifies subscribers only while its notifier is on.
    void SetNotifierEnabled(bool enabled);
    const EventHandlerMap& EventHandlers() const noexcept { return eventHandlers_; }

private:
    const std::uint32_t entityId_;
    const ara::core::String instanceId_;
    const bool isField_;
    std::shared_ptr<ara::tessel::common::log::Log> logger_;
    std::atomic<bool> isFirstSend_{true};
    EventHandlerMap eventHandlers_;
    std::shared_ptr<vesk::TrafficCtrlPolicy> trafficControlPolicy_;
    EventInfoMap protocolData_;
    std::map<api::types::DriverType, std::uint8_t> tlogStageFlags_;
    std::atomic<std::uint8_t> latencyMode_{0};
    std::shared_ptr<utils::stats::EventSkeletonStats> stats_;
    std::optional<std::uint64_t> eventDataCount_;  // signal-based: set at the first send

    // Field state. currentValue_ and initialValue_ hold a T behind a type-free pointer.
    bool hasValue_{false};
    bool notifierEnabled_{false};
    bool notifyFirst_{true};
    std::mutex notifierLock_;  // serializes first notifications, and guards the values
    std::shared_ptr<void> currentValue_;
    std::shared_ptr<void> initialValue_;
};

}  // namespace lumo::vcc

#endif
