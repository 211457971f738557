#include "binding/skeleton/service_assembly.h"

#include "platform/error/com_error_domain.h"

namespace lumo::vcc {

namespace {

[[noreturn]] void Fail() {
    throw api::types::ComException(
        api::types::MakeErrorCode(api::types::ComErrc::kNetworkBindingFailure, 0));
}

}  // namespace

ara::core::String EntityUuid(const api::types::EntityInfo& info) {
    return std::to_string(info.serviceId) + "." + info.instanceId + "." + info.shortName + "." +
           std::to_string(info.entityId) + "." + api::types::DriverTypeName(info.GetDriverType());
}

void AssembleService(ara::com::internal::skeleton::SkeletonAdapter& adapter,
                     std::uint16_t methodCount, std::uint16_t queueSize,
                     const std::vector<EventAssembly>& events,
                     const std::vector<MethodAssembly>& methods) {
    auto& vcc = *adapter.GetSkeleton()->GetVcc();
    for (const auto& method : methods) {
        method.adapter->Initialize(adapter.GetSkeleton(), method.entityId);
    }
    for (const auto& event : events) {
        event.adapter->Initialize(adapter.GetSkeleton(), event.entityId);
    }
    if (vcc.GetMode() == api::types::MethodCallProcessingMode::kEvent &&
        !adapter.SetMethodThreadNumber(adapter.GetMethodThreadNumber(methodCount), queueSize)) {
        Fail();
    }
    for (const auto& event : events) {
        if (!adapter.InitializeEvent(*event.adapter).HasValue()) {
            Fail();
        }
    }
    MethodInfoMap protocolData;
    for (const auto& method : methods) {
        protocolData.clear();
        if (!adapter.InitializeMethodInfo(method.entityId, protocolData).HasValue()) {
            Fail();
        }
        if (!method.encapsulate(vcc, MethodInfoMap(protocolData))) {
            Fail();
        }
        for (const auto& entry : protocolData) {
            Vcc::logInstance_->LogInfo()
                << "[SKELETON][Create method][UUID=" << EntityUuid(*entry.second) << "]";
        }
    }
}

}  // namespace lumo::vcc
