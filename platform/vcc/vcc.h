#ifndef PLATFORM_VCC_VCC_H
#define PLATFORM_VCC_VCC_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <utility>

#include "platform/core/future.h"
#include "platform/core/result.h"
#include "platform/vcc/api/types/driver_type.h"
#include "platform/vcc/api/types/e2e.h"
#include "platform/vcc/api/types/entity_info.h"
#include "platform/vcc/api/types/sample_info.h"
#include "platform/vcc/event_skeleton.h"
#include "platform/vcc/method_skeleton.h"
#include "platform/vcc/utils/stats.h"
#include "platform/vcc/utils/thread_pool.h"

namespace lumo::vcc {

// Which pool a method's requests run on: 1 is the service's own method pool.
enum class ThreadPoolType : std::uint8_t {
    kServicePool = 1,
    kExplicitPool = 2,
};

// The communication core of one service instance: its method and event entities, their drivers,
// the method pool, statistics and E2E settings. The template members (method registration, the
// event send) are defined in binding/skeleton/.
//
// Locks: eventMutex_ guards the event map, statsMutex_ the statistics map; neither is held
// across a call into a driver or a user method. The method map is filled during assembly only,
// before any driver can deliver, and is not guarded.
class Vcc {
public:
    Vcc(ara::com::ServiceIdentifierType service, api::types::InstanceIdentifier instance,
        api::types::MethodCallProcessingMode mode);
    Vcc(const Vcc&) = delete;
    Vcc& operator=(const Vcc&) = delete;
    ~Vcc();

    // Builds the MethodSkeletonImpl of one method (once per entity number) and attaches its
    // drivers. One instantiation per method.
    template <typename Skeleton, typename Future, typename... Args>
    bool EncapsulateAndRegisterMethod(const MethodInfoMap& protocolData);
    // Binds a service object's member function to its method; a method that was never created
    // only warns. The service object must outlive this Vcc (it owns it).
    template <typename Skeleton, typename Output, typename... Args>
    void RegisterMethod(std::uint32_t entityId, Skeleton* service,
                        ara::core::Future<Output> (Skeleton::*member)(const Args&...));
    // Sends one sample (event) or stores and notifies it (field).
    template <typename T>
    ara::core::Result<void> Send(const T& data, std::uint32_t entityId,
                                 api::types::internal::SampleInfoImpl& sampleInfo);

    // Creates the method pool of the service; false when it cannot.
    bool SetMethodThreadNumber(std::uint16_t threads, std::uint16_t queueSize);
    // Creates a driver handler for each entry and attaches it to the method.
    bool DoInitializeMethodSkel(MethodInfoMap protocolData);
    bool RegisterMethodPool(
        std::uint32_t entityId,
        const std::pair<ThreadPoolType, std::shared_ptr<utils::ThreadPool>>& pool);
    // Creates the event entity with a handler on each driver; false when a driver fails.
    bool InitializeEvent(std::uint32_t entityId, const EventInfoMap& protocolData);

    void SetMethodTrafficCtrl(const std::shared_ptr<vesk::TrafficCtrlPolicy>& policy,
                              std::uint32_t entityId);
    void SetEventTrafficCtrl(const std::shared_ptr<vesk::TrafficCtrlPolicy>& policy,
                             std::uint32_t entityId);

    // Offers the service on every driver that one of its entities uses.
    bool OfferService();
    // Withdraws the offer, detaches every method and waits for their calls in flight.
    void StopOfferService();
    bool IsOffered() const noexcept { return isOffered_; }
    // Lets events pass before the offer (tests, services that publish while starting).
    void SetSkipOfferCheck(bool skip) noexcept { skipOfferCheck_ = skip; }

    std::shared_ptr<MethodSkeleton> FindMethod(std::uint32_t entityId) const;
    std::shared_ptr<EventSkeleton> FindEvent(std::uint32_t entityId) const;
    std::shared_ptr<utils::stats::MethodSkeletonStats> FindMethodStats(
        std::uint32_t entityId) const;

    void SetE2EErrorHandler(api::types::E2EErrorHandler handler);
    api::types::E2EErrorHandler GetE2EErrorHandler() const;
    std::map<com::e2exf::ProfileCheckStatus, api::types::E2EErrorCode> GetE2EStatusMap() const;

    api::types::MethodCallProcessingMode GetMode() const noexcept { return mode_; }
    std::uint16_t GetServiceId() const noexcept { return service_.value; }
    const ara::core::String& GetInstanceId() const noexcept { return instance_.ToString(); }
    std::shared_ptr<utils::ThreadPool> GetMethodPool() const;
    utils::stats::DataStatistician& Statistician() noexcept { return statistician_; }
    // The statistics of every method, with their drivers' counters.
    ara::core::String GetStatisticsText() const;

    static std::shared_ptr<ara::tessel::common::log::Log> logInstance_;

private:
    void AddMethodStats(std::uint32_t entityId,
                        const std::shared_ptr<utils::stats::MethodSkeletonStats>& stats);

    const ara::com::ServiceIdentifierType service_;
    const api::types::InstanceIdentifier instance_;
    const api::types::MethodCallProcessingMode mode_;
    std::map<std::uint32_t, std::shared_ptr<MethodSkeleton>> methods_;
    mutable std::mutex eventMutex_;  // guards events_
    std::map<std::uint32_t, std::shared_ptr<EventSkeleton>> events_;
    std::atomic<bool> isOffered_{false};
    std::atomic<bool> skipOfferCheck_{false};
    mutable std::mutex statsMutex_;  // guards methodStats_
    std::map<std::uint32_t, std::shared_ptr<utils::stats::MethodSkeletonStats>> methodStats_;
    mutable std::mutex e2eMutex_;  // guards e2eErrorHandler_
    api::types::E2EErrorHandler e2eErrorHandler_;
    const std::map<com::e2exf::ProfileCheckStatus, api::types::E2EErrorCode> e2eStatusMap_;
    utils::stats::DataStatistician statistician_;
    std::shared_ptr<utils::ThreadPool> methodPool_;
    mutable std::mutex driversMutex_;           // guards drivers_
    std::set<api::types::DriverType> drivers_;  // every driver an entity uses, offered together
};

}  // namespace lumo::vcc

#endif
