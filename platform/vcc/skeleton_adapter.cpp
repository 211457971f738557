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

// SOME/IP carries the instance as a number; a text that is not one takes instance 1.
std::uint16_t NumericInstance(const core::String& instance) {
    std::uint32_t value = 0;
    for (char c : instance) {
        if (c < '0' || c > '9' || value > 0xFFFF) {
            return 1;
        }
        value = value * 10 + static_cast<std::uint32_t>(c - '0');
    }
    return instance.empty() || value > 0xFFFF ? 1 : static_cast<std::uint16_t>(value);
}

}  // namespace

SkeletonAdapter::SkeletonAdapter(const ServiceIdentifierType& service,
                                 const lumo::vcc::api::types::InstanceIdentifier& instance,
                                 const lumo::vcc::api::types::MethodCallProcessingMode& mode)
    : service_(service),
      instance_(instance),
      skeleton_(std::make_shared<lumo::vcc::Skeleton>(service, instance, mode)),
      configError_(),
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

void SkeletonAdapter::FillEntity(lumo::vcc::api::types::EntityInfo& info, DriverType driver,
                                 const core::String& name,
                                 const lumo::vcc::ServiceBinding& binding) const {
    const auto& interface = *service_.interface;
    info.driverType = driver;
    info.serviceId = service_.value;
    info.instanceId = instance_.ToString();
    info.shortName = name;
    info.instanceShortName = interface.name;
    info.someip.serviceId = interface.someipServiceId;
    info.someip.instanceId = NumericInstance(instance_.ToString());
    info.someip.majorVersion = interface.majorVersion;
    info.someip.minorVersion = interface.minorVersion;
    info.someip.address = binding.address;
    info.someip.port = binding.port.value_or(interface.defaultPort);
    info.someip.udp = binding.udp;
    info.someip.sdAddress = config_->sdAddress;
    info.someip.sdPort = config_->sdPort;
    info.someip.sdMulticast = config_->sdMulticast;
    info.dds.domainId = config_->ddsDomain;
    info.dds.topic = "wardend/" + interface.name + "/" + name;
    info.dds.targetInstance = instance_.ToString();
}

core::Result<void> SkeletonAdapter::InitializeMethodInfo(
    std::uint32_t entityId, lumo::vcc::MethodInfoMap& protocolData) const {
    const auto* method =
        service_.interface == nullptr ? nullptr : service_.interface->FindMethod(entityId);
    if (!config_.has_value() || method == nullptr) {
        return Failure();
    }
    const auto binding = config_->Binding(service_.interface->name);
    for (DriverType driver : binding.drivers) {
        auto info = std::make_shared<lumo::vcc::api::types::MethodInfo>();
        FillEntity(*info, driver, method->name, binding);
        info->entityId = entityId;
        info->someip.memberId = method->someipMethodId;
        protocolData[driver] = info;
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
    const auto binding = config_->Binding(service_.interface->name);
    lumo::vcc::EventInfoMap protocolData;
    for (DriverType driver : binding.drivers) {
        auto info = std::make_shared<lumo::vcc::api::types::EventInfo>();
        FillEntity(*info, driver, description->name, binding);
        info->entityId = event.GetEntityId();
        info->isField = description->isField;
        info->someip.memberId = description->someipEventId;
        info->someip.eventgroupId = description->someipEventgroupId;
        protocolData.emplace(driver, info);
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
