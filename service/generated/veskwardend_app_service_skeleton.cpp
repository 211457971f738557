#include "service/generated/veskwardend_app_service_skeleton.h"

#include "binding/skeleton/service_assembly.h"
#include "records/service_interfaces.h"

namespace vesk::wardend::skeleton {

namespace {
constexpr std::uint16_t kMethodThreads = 8;
constexpr std::uint16_t kMethodQueue = 512;
}  // namespace

const ara::com::ServiceIdentifierType& VESKWardendAppServiceSkeleton::ServiceIdentifier() {
    return AppServiceIdentifier();
}

VESKWardendAppServiceSkeleton::VESKWardendAppServiceSkeleton(
    const lumo::vcc::api::types::InstanceIdentifier& instance,
    lumo::vcc::api::types::MethodCallProcessingMode mode)
    : adapter_(std::make_unique<ara::com::internal::skeleton::SkeletonAdapter>(ServiceIdentifier(),
                                                                               instance, mode)) {
    lumo::vcc::AssembleService(
        *adapter_, kMethodThreads, kMethodQueue,
        {{&LatencySwitchEvent, events::LatencySwitchEvent::kEventId}},
        {{&RegisterAppInfoMethod, kRegisterAppInfoId,
          lumo::vcc::Encapsulate(&VESKWardendAppServiceSkeleton::RegisterAppInfo)}});
}

VESKWardendAppServiceSkeleton::~VESKWardendAppServiceSkeleton() {
    StopOfferService();
}

void VESKWardendAppServiceSkeleton::OfferService() {
    if (adapter_ == nullptr) {
        return;
    }
    adapter_->GetSkeleton()->GetVcc()->RegisterMethod(
        kRegisterAppInfoId, this, &VESKWardendAppServiceSkeleton::RegisterAppInfo);
    adapter_->OfferService();
}

void VESKWardendAppServiceSkeleton::StopOfferService() {
    if (adapter_ != nullptr) {
        adapter_->StopOfferService();
    }
}

}  // namespace vesk::wardend::skeleton
