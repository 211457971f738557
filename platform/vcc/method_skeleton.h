#ifndef PLATFORM_VCC_METHOD_SKELETON_H
#define PLATFORM_VCC_METHOD_SKELETON_H

#include <functional>
#include <map>
#include <memory>

#include "platform/core/string.h"
#include "platform/vcc/api/types/driver_type.h"
#include "platform/vcc/api/types/entity_info.h"
#include "platform/vcc/api/types/method_msg.h"
#include "platform/vcc/driver/driver.h"
#include "platform/vcc/traffic/traffic_ctrl_policy.h"
#include "platform/vcc/utils/stats.h"
#include "platform/vcc/utils/thread_pool.h"

namespace lumo::vcc {

using MethodInfoMap = std::map<api::types::DriverType, std::shared_ptr<api::types::MethodInfo>>;

// The server-side object of one service method, as the platform side of the framework sees it.
// Its implementation is a template of the binding over the method's result type.
class MethodSkeleton {
public:
    MethodSkeleton() = default;
    MethodSkeleton(const MethodSkeleton&) = delete;
    MethodSkeleton& operator=(const MethodSkeleton&) = delete;
    virtual ~MethodSkeleton() = default;

    virtual void SetMethodDriver(api::types::DriverType driver,
                                 std::shared_ptr<driver::MethodHandler> handler) = 0;
    virtual void SetThreadPool(std::shared_ptr<utils::ThreadPool> pool) = 0;
    virtual void SetVccHandler(std::function<void(const driver::MethodMsgPtr&)> handler) = 0;
    virtual void SetFireForgetMode(bool fireForget) = 0;
    // Detaches from the drivers and waits until no call is inside ProcessRequest.
    virtual void UnsetMethodCallback() = 0;
    virtual void ProcessRequest(const driver::MethodMsgPtr& msg) = 0;
    virtual void SetDriverHandler() = 0;
    virtual void SetTrafficControlPolicy(std::shared_ptr<vesk::TrafficCtrlPolicy> policy) = 0;
    virtual void SetMethodInfo(const MethodInfoMap& protocolData) = 0;
    virtual void ReturnRequestResources(const driver::MethodMsgPtr& msg) = 0;
    virtual void SetStats(std::shared_ptr<utils::stats::MethodSkeletonStats> stats) = 0;
    virtual ara::core::String GetStatisticsText() = 0;
};

}  // namespace lumo::vcc

#endif
