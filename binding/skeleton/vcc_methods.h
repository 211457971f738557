#ifndef BINDING_SKELETON_VCC_METHODS_H
#define BINDING_SKELETON_VCC_METHODS_H

// The template members of lumo::vcc::Vcc: method creation and registration, and the event send.

#include <memory>

#include "binding/skeleton/event_skeleton_send.h"
#include "binding/skeleton/method_skeleton_impl.h"
#include "binding/skeleton/request_wrapper.h"
#include "platform/error/com_error_domain.h"
#include "platform/vcc/vcc.h"

namespace lumo::vcc {

template <typename Skeleton, typename Future, typename... Args>
bool Vcc::EncapsulateAndRegisterMethod(const MethodInfoMap& protocolData) {
    using Output = typename Future::ValueType;
    if (protocolData.empty() || protocolData.begin()->second == nullptr) {
        logInstance_->LogError() << "Invalid method data.";
        return false;
    }
    const auto& first = *protocolData.begin()->second;
    const std::uint32_t entityId = first.entityId;
    if (methods_.count(entityId) != 0) {
        logInstance_->LogWarn() << "Method " << entityId << " was registered. Ignore this time...";
        return DoInitializeMethodSkel(protocolData);
    }
    const utils::stats::EntityIdentifier id{first.serviceId, first.instanceId, entityId};
    auto stats = std::make_shared<utils::stats::MethodSkeletonStats>(id);
    for (const auto& [driver, info] : protocolData) {
        if (info != nullptr) {
            stats->SetEntityName(driver, info->instanceShortName.empty()
                                             ? info->shortName
                                             : info->instanceShortName + "/" + info->shortName);
        }
    }
    auto method = std::make_shared<MethodSkeletonImpl<Output>>(mode_, entityId);
    method->SetMethodInfo(protocolData);
    method->SetStats(stats);
    methods_.emplace(entityId, method);
    AddMethodStats(entityId, stats);
    statistician_.Add(stats);
    statistician_.CreateTlogInfoWriter(id);
    logInstance_->LogDebug() << "Method " << entityId << " register success!";
    return DoInitializeMethodSkel(protocolData);
}

template <typename Skeleton, typename Output, typename... Args>
void Vcc::RegisterMethod(std::uint32_t entityId, Skeleton* service,
                         ara::core::Future<Output> (Skeleton::*member)(const Args&...)) {
    auto method = std::dynamic_pointer_cast<MethodSkeletonImpl<Output>>(FindMethod(entityId));
    if (method == nullptr) {
        logInstance_->LogWarn() << "Method " << entityId
                                << " have not registered. Ignore this time register...";
        return;
    }
    method->SetHandler([this, object = service, member, entityId](
                           const driver::MethodMsgPtr& msg, const MethodInfoMap& protocolData) {
        return detail::CallUserMethod<Skeleton, Output, Args...>(*this, entityId, object, member,
                                                                 msg, protocolData);
    });
    (void)RegisterMethodPool(entityId, {ThreadPoolType::kServicePool, nullptr});
    logInstance_->LogDebug() << "Method " << entityId << " register success!";
}

template <typename T>
ara::core::Result<void> Vcc::Send(const T& data, std::uint32_t entityId,
                                  api::types::internal::SampleInfoImpl& sampleInfo) {
    auto event = FindEvent(entityId);
    if (event == nullptr) {
        logInstance_->LogError("Vcc_Send_1", ara::tessel::common::log::LogLimitConfig{})
            << "[Vcc][Event were not initialized][id=" << entityId << "]";
        return ara::core::Result<void>::FromError(
            api::types::MakeErrorCode(api::types::ComErrc::kCommunicationStackError, 0));
    }
    if (event->IsField()) {
        event->UpdateField(data, IsOffered());
        return {};
    }
    if (!IsOffered() && !skipOfferCheck_) {
        logInstance_->LogWarn("Vcc_Send_2", ara::tessel::common::log::LogLimitConfig{})
            << "[Vcc][Event can not be send, please offer service first][id=" << entityId << "]";
        return ara::core::Result<void>::FromError(
            api::types::MakeErrorCode(api::types::ComErrc::kServiceNotOffered, 0));
    }
    if (!event->Send(data, sampleInfo)) {
        return ara::core::Result<void>::FromError(
            api::types::MakeErrorCode(api::types::ComErrc::kCommunicationStackError, 0));
    }
    return {};
}

}  // namespace lumo::vcc

#endif
