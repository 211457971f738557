#include "platform/vcc/skeleton_adapter.h"

#include <algorithm>
#include <thread>

#include "platform/config/vesk_config_parser.h"
#include "platform/error/com_error_domain.h"
#include "platform/log/log.h"

namespace ara::com::internal::skeleton {

namespace {

using lumo::vcc::api::types::DriverType;

core::Result<void> Failure() {
    return core::Result<void>::FromError(lumo::vcc::api::types::MakeErrorCode(
        lumo::vcc::api::types::ComErrc::kNetworkBindingFailure, 0));
}

std::shared_ptr<tessel::common::log::Log> Logger() {
    return tessel::common::log::Log::GetLog("CM");
}

}  // namespace

SkeletonAdapter::SkeletonAdapter(const ServiceIdentifierType& service,
                                 const lumo::vcc::api::types::InstanceIdentifier& instance,
                                 const lumo::vcc::api::types::MethodCallProcessingMode& mode)
    : service_(service),
      instance_(instance),
      skeleton_(std::make_shared<lumo::vcc::Skeleton>(service, instance, mode)),
      config_(lumo::vcc::ServiceConfig::Load(configError_)) {
    if (!config_.has_value()) {
        Logger()->LogError() << "[SkeletonAdapter][Invalid \"Services\" section in "
                             << tessel::common::veskConfigParser::VeskConfigParser::ConfigPath()
                             << ": " << configError_ << "]";
    }
}

SkeletonAdapter::~SkeletonAdapter() {
    StopOfferService();
}

std::uint16_t SkeletonAdapter::GetMethodThreadNumber(std::uint16_t methodCount) const {
    const unsigned cores = std::max(1U, std::thread::hardware_concurrency());
    return static_cast<std::uint16_t>(
        std::max<unsigned>(1U, std::min<unsigned>(methodCount, 2U * cores)));
}

bool SkeletonAdapter::SetMethodThreadNumber(std::uint16_t threads, std::uint16_t queueSize) {
    return skeleton_->GetVcc()->SetMethodThreadNumber(threads, queueSize);
}

core::Result<void> SkeletonAdapter::InitializeMethodInfo(
    std::uint32_t entityId, lumo::vcc::MethodInfoMap& protocolData) const {
    const auto* method =
        service_.interface == nullptr ? nullptr : service_.interface->FindMethod(entityId);
    if (!config_.has_value() || method == nullptr) {
        return Failure();
    }
    for (DriverType driver : config_->Binding(service_.interface->name).drivers) {
        protocolData[driver] =
            lumo::vcc::MakeMethodInfo(service_, instance_.ToString(), entityId, driver, *config_);
    }
    return protocolData.empty() ? Failure() : core::Result<void>();
}

core::Result<void> SkeletonAdapter::InitializeEvent(const event::impl::EventAdapterImpl& event) {
    const auto* description = service_.interface == nullptr
                                  ? nullptr
                                  : service_.interface->FindEvent(event.GetEntityId());
    if (!config_.has_value() || description == nullptr) {
        return Failure();
    }
    lumo::vcc::EventInfoMap protocolData;
    for (DriverType driver : config_->Binding(service_.interface->name).drivers) {
        protocolData.emplace(
            driver, lumo::vcc::MakeEventInfo(service_, instance_.ToString(), event.GetEntityId(),
                                             driver, *config_));
    }
    if (!skeleton_->GetVcc()->InitializeEvent(event.GetEntityId(), protocolData)) {
        return Failure();
    }
    return {};
}

void SkeletonAdapter::OfferService() {
    (void)skeleton_->GetVcc()->OfferService();
}

void SkeletonAdapter::StopOfferService() {
    skeleton_->GetVcc()->StopOfferService();
}

}  // namespace ara::com::internal::skeleton
