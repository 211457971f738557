#ifndef SERVICE_GENERATED_VESKWARDEND_APP_SERVICE_SKELETON_H
#define SERVICE_GENERATED_VESKWARDEND_APP_SERVICE_SKELETON_H

#include <cstdint>
#include <memory>

#include "platform/core/future.h"
#include "platform/vcc/skeleton_adapter.h"
#include "records/service_interfaces.h"
#include "records/service_outputs.h"
#include "records/wardend_records.h"
#include "service/generated/latency_switch_event.h"

namespace vesk::wardend::skeleton {

// The generated base of the application service: one method and the latency switch event.
// The daemon's server object derives from it and implements the method.
class VESKWardendAppServiceSkeleton {
public:
    using RegisterAppInfoOutput = vesk::wardend::RegisterAppInfoOutput;

    static constexpr std::uint16_t kServiceId = AppServiceIds::kServiceId;
    static constexpr std::uint16_t kRegisterAppInfoId = AppServiceIds::kRegisterAppInfo;

    // The service interface with its entities and wire ids.
    static const ara::com::ServiceIdentifierType& ServiceIdentifier();

    // Without a binding: the service's logic alone, reachable by direct calls.
    VESKWardendAppServiceSkeleton() = default;
    // Assembles the service on the drivers of vesk.json; throws ComException when it cannot.
    VESKWardendAppServiceSkeleton(const lumo::vcc::api::types::InstanceIdentifier& instance,
                                  lumo::vcc::api::types::MethodCallProcessingMode mode);
    virtual ~VESKWardendAppServiceSkeleton();
    VESKWardendAppServiceSkeleton(const VESKWardendAppServiceSkeleton&) = delete;
    VESKWardendAppServiceSkeleton& operator=(const VESKWardendAppServiceSkeleton&) = delete;

    virtual ara::core::Future<RegisterAppInfoOutput> RegisterAppInfo(
        const AppRegisterInfo& info) = 0;

    // Binds the method to its implementation and offers the service. Nothing without a binding.
    void OfferService();
    void StopOfferService();
    // Null without a binding.
    ara::com::internal::skeleton::SkeletonAdapter* Adapter() const { return adapter_.get(); }

    events::LatencySwitchEvent LatencySwitchEvent;  // NOLINT: generated member named as the event
    ara::com::internal::skeleton::method::MethodAdapter RegisterAppInfoMethod;  // NOLINT

private:
    std::unique_ptr<ara::com::internal::skeleton::SkeletonAdapter> adapter_;
};

}  // namespace vesk::wardend::skeleton

#endif
