#ifndef PLATFORM_VCC_SKELETON_ADAPTER_H
#define PLATFORM_VCC_SKELETON_ADAPTER_H

#include <cstdint>
#include <memory>

#include "platform/core/result.h"
#include "platform/vcc/service_config.h"
#include "platform/vcc/service_interface.h"
#include "platform/vcc/skeleton.h"

namespace ara::com::internal::skeleton {

namespace detail {

// Names one entity of a service: its skeleton and entity number.
class EntityAdapter {
public:
    void Initialize(std::shared_ptr<lumo::vcc::Skeleton> skeleton, std::uint32_t entityId) {
        skeleton_ = std::move(skeleton);
        entityId_ = entityId;
    }
    std::uint32_t GetEntityId() const noexcept { return entityId_; }
    const std::shared_ptr<lumo::vcc::Skeleton>& GetSkeleton() const noexcept { return skeleton_; }

private:
    std::shared_ptr<lumo::vcc::Skeleton> skeleton_;
    std::uint32_t entityId_{0};
};

}  // namespace detail

namespace method::impl {
class MethodAdapterImpl : public detail::EntityAdapter {};
}  // namespace method::impl

namespace method {
class MethodAdapter : public impl::MethodAdapterImpl {};
}  // namespace method

namespace event::impl {
class EventAdapterImpl : public detail::EntityAdapter {};
}  // namespace event::impl

// Builds one service instance on the drivers of the "Services" section of vesk.json and offers
// it. Failures are values; the generated skeleton turns them into its assembly exception.
class SkeletonAdapter {
public:
    SkeletonAdapter(const ServiceIdentifierType& service,
                    const lumo::vcc::api::types::InstanceIdentifier& instance,
                    const lumo::vcc::api::types::MethodCallProcessingMode& mode);
    SkeletonAdapter(const SkeletonAdapter&) = delete;
    SkeletonAdapter& operator=(const SkeletonAdapter&) = delete;
    ~SkeletonAdapter();

    // Threads for a service of that many methods: at most two per core.
    std::uint16_t GetMethodThreadNumber(std::uint16_t methodCount) const;
    bool SetMethodThreadNumber(std::uint16_t threads, std::uint16_t queueSize);
    // The method's description on each configured driver; no value when the configuration is
    // invalid or the interface does not have the method.
    core::Result<void> InitializeMethodInfo(std::uint32_t entityId,
                                            lumo::vcc::MethodInfoMap& protocolData) const;
    core::Result<void> InitializeEvent(const event::impl::EventAdapterImpl& event);
    void OfferService();
    void StopOfferService();

    const std::shared_ptr<lumo::vcc::Skeleton>& GetSkeleton() const noexcept { return skeleton_; }
    // The configuration error that failed an initialisation, for the log.
    const core::String& ConfigError() const noexcept { return configError_; }

private:
    const ServiceIdentifierType service_;
    const lumo::vcc::api::types::InstanceIdentifier instance_;
    std::shared_ptr<lumo::vcc::Skeleton> skeleton_;
    core::String configError_;  // before config_, whose load writes it
    std::optional<lumo::vcc::ServiceConfig> config_;
};

}  // namespace ara::com::internal::skeleton

#endif
