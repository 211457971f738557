#ifndef PLATFORM_VCC_SKELETON_H
#define PLATFORM_VCC_SKELETON_H

#include <cstdint>
#include <memory>

#include "platform/vcc/vcc.h"

namespace lumo::vcc {

// The platform's object of one offered service instance: it owns the Vcc and attaches traffic
// policies to its entities.
class Skeleton {
public:
    Skeleton(ara::com::ServiceIdentifierType service, api::types::InstanceIdentifier instance,
             api::types::MethodCallProcessingMode mode)
        : vcc_(std::make_shared<Vcc>(std::move(service), std::move(instance), mode)) {}

    void SetMethodTrafficCtrl(const std::shared_ptr<vesk::TrafficCtrlPolicy>& policy,
                              const std::uint32_t& entityId) {
        vcc_->SetMethodTrafficCtrl(policy, entityId);
    }
    void SetEventTrafficCtrl(const std::shared_ptr<vesk::TrafficCtrlPolicy>& policy,
                             const std::uint32_t& entityId) {
        vcc_->SetEventTrafficCtrl(policy, entityId);
    }
    const std::shared_ptr<Vcc>& GetVcc() const noexcept { return vcc_; }

private:
    std::shared_ptr<Vcc> vcc_;
};

}  // namespace lumo::vcc

#endif
