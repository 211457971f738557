#include "service/generated/veskwardend_tools_service_skeleton.h"

#include <functional>

#include "binding/skeleton/service_assembly.h"
#include "records/service_interfaces.h"

namespace vesk::wardend::skeleton {

namespace {

constexpr std::uint16_t kMethodThreads = 12;
constexpr std::uint16_t kMethodQueue = 1024;

using Self = VESKWardendToolsServiceSkeleton;

// Calls f with the member function of each method, in the order of kMethodIds.
template <typename F>
void ForEachMethod(F&& f) {
    f(0, &Self::QueryAllDataType);
    f(1, &Self::QueryDataType);
    f(2, &Self::QueryDataTypeRefList);
    f(3, &Self::QueryEventInfo);
    f(4, &Self::QueryEventShow);
    f(5, &Self::QueryLatencyResult);
    f(6, &Self::QueryLatencyStatus);
    f(7, &Self::QueryMethodInfo);
    f(8, &Self::QueryMethodType);
    f(9, &Self::QueryNodeInfo);
    f(10, &Self::QuerySubNodeEventInfo);
    f(11, &Self::SwitchLatencyMode);
}

}  // namespace

const ara::com::ServiceIdentifierType& VESKWardendToolsServiceSkeleton::ServiceIdentifier() {
    return ToolsServiceIdentifier();
}

VESKWardendToolsServiceSkeleton::VESKWardendToolsServiceSkeleton(
    const lumo::vcc::api::types::InstanceIdentifier& instance,
    lumo::vcc::api::types::MethodCallProcessingMode mode)
    : adapter_(std::make_unique<ara::com::internal::skeleton::SkeletonAdapter>(ServiceIdentifier(),
                                                                               instance, mode)) {
    std::vector<lumo::vcc::MethodAssembly> assembly;
    ForEachMethod([&](std::size_t i, auto member) {
        assembly.push_back({&methods[i], kMethodIds[i], lumo::vcc::Encapsulate(member)});
    });
    lumo::vcc::AssembleService(*adapter_, kMethodThreads, kMethodQueue, {}, assembly);
}

VESKWardendToolsServiceSkeleton::~VESKWardendToolsServiceSkeleton() {
    StopOfferService();
}

void VESKWardendToolsServiceSkeleton::OfferService() {
    if (adapter_ == nullptr) {
        return;
    }
    auto& vcc = *adapter_->GetSkeleton()->GetVcc();
    ForEachMethod(
        [&](std::size_t i, auto member) { vcc.RegisterMethod(kMethodIds[i], this, member); });
    adapter_->OfferService();
}

void VESKWardendToolsServiceSkeleton::StopOfferService() {
    if (adapter_ != nullptr) {
        adapter_->StopOfferService();
    }
}

}  // namespace vesk::wardend::skeleton
