#ifndef SERVICE_WARDEND_APP_SKELETON_H
#define SERVICE_WARDEND_APP_SKELETON_H

#include <cstdint>
#include <map>
#include <memory>

#include "platform/vcc/utils/thread_pool.h"
#include "records/wardend_records.h"
#include "service/generated/veskwardend_app_service_skeleton.h"

namespace vesk::wardend {

// The application service: dispatches every registration by infoType to its registry, and
// queues the slow reading of .msg files on the "wrdn_rdmsg" pool so that the application's call
// returns as soon as the registry has stored the record.
//
// Locks: RegisterMutex() around event and method registration only; it is the outermost lock.
class WardendAppSkeleton : public skeleton::VESKWardendAppServiceSkeleton {
public:
    // Without a binding (tests of the dispatch).
    WardendAppSkeleton() = default;
    // Assembled on the drivers of vesk.json; throws ComException when it cannot be.
    WardendAppSkeleton(const lumo::vcc::api::types::InstanceIdentifier& instance,
                       lumo::vcc::api::types::MethodCallProcessingMode mode)
        : VESKWardendAppServiceSkeleton(instance, mode) {}
    ~WardendAppSkeleton() override;
    WardendAppSkeleton(const WardendAppSkeleton&) = delete;
    WardendAppSkeleton& operator=(const WardendAppSkeleton&) = delete;

    ara::core::Future<RegisterAppInfoOutput> RegisterAppInfo(const AppRegisterInfo& info) override;

    // The pool of the .msg reader; set once before the service is offered.
    void SetThreadPool(std::shared_ptr<lumo::vcc::utils::ThreadPool> pool);

    // Loads the snapshot settings, sets the traffic policies, binds the method and offers.
    void OfferAppService();
    void StopOfferAppService();
    // Stops the pool (dropping what is queued) and closes the snapshot file.
    void StopThreadPool();

private:
    std::uint8_t RegisterEventInfo(const EventRegisterInfo& info, const bool& isPub) const;
    std::uint8_t RegisterMethodInfo(const MethodRegisterInfo& info, const bool& isPub) const;
    std::uint8_t RegisterFieldInfo(const FieldRegisterInfo& info, const bool& isPub) const;
    std::uint8_t RegisterNodeInfo(const NodeRegisterInfo& info) const;
    std::uint8_t NotifyLatencyInfo(const LatencyAppInfo& info) const;
    std::uint8_t NotifyListenerResult(const std::map<ListenerType, ListenerParams>& result) const;

    // Queues a task with source id 0; a refused task is simply not done.
    void EnqueueTask(lumo::vcc::utils::ThreadPool::Task task) const;

    std::shared_ptr<lumo::vcc::utils::ThreadPool> threadPool_;
};

}  // namespace vesk::wardend

#endif
