#ifndef BINDING_SKELETON_SERVICE_ASSEMBLY_H
#define BINDING_SKELETON_SERVICE_ASSEMBLY_H

// How a generated service skeleton builds itself on its adapter: method pool, events, one
// MethodSkeletonImpl per method on every configured driver. Any failure throws ComException with
// kNetworkBindingFailure.

#include <cstdint>
#include <functional>
#include <vector>

#include "binding/skeleton/vcc_methods.h"
#include "platform/vcc/skeleton_adapter.h"

namespace lumo::vcc {

struct EventAssembly {
    ara::com::internal::skeleton::event::impl::EventAdapterImpl* adapter;
    std::uint32_t entityId;
};

struct MethodAssembly {
    ara::com::internal::skeleton::method::MethodAdapter* adapter;
    std::uint32_t entityId;
    // Builds the method's MethodSkeletonImpl: one EncapsulateAndRegisterMethod instantiation.
    std::function<bool(Vcc&, const MethodInfoMap&)> encapsulate;
};

// The instantiation of EncapsulateAndRegisterMethod for a member function of Skeleton.
template <typename Skeleton, typename Output, typename... Args>
std::function<bool(Vcc&, const MethodInfoMap&)> Encapsulate(
    ara::core::Future<Output> (Skeleton::* /*member*/)(const Args&...)) {
    return [](Vcc& vcc, const MethodInfoMap& protocolData) {
        return vcc.EncapsulateAndRegisterMethod<Skeleton, ara::core::Future<Output>,
                                                std::decay_t<Args>...>(protocolData);
    };
}

// Throws ComException when a step fails.
void AssembleService(ara::com::internal::skeleton::SkeletonAdapter& adapter,
                     std::uint16_t methodCount, std::uint16_t queueSize,
                     const std::vector<EventAssembly>& events,
                     const std::vector<MethodAssembly>& methods);

// "[SKELETON][Create method][UUID=serviceId.instanceId.shortName.entityId.DRIVER]"
ara::core::String EntityUuid(const api::types::EntityInfo& info);

}  // namespace lumo::vcc

#endif
