#ifndef SERVICE_GENERATED_VESKWARDEND_TOOLS_SERVICE_SKELETON_H
#define SERVICE_GENERATED_VESKWARDEND_TOOLS_SERVICE_SKELETON_H

#include <array>
#include <cstdint>
#include <memory>

#include "platform/core/future.h"
#include "platform/vcc/skeleton_adapter.h"
#include "records/service_interfaces.h"
#include "records/service_outputs.h"
#include "records/wardend_records.h"

namespace vesk::wardend::skeleton {

// The generated base of the tools service: twelve query methods, no events, no fields. The
// virtual operations stand in the order of the method table, which is also the order in which
// the service initialises its methods.
class VESKWardendToolsServiceSkeleton {
public:
    using QueryAllDataTypeOutput = vesk::wardend::QueryAllDataTypeOutput;
    using QueryDataTypeOutput = vesk::wardend::QueryDataTypeOutput;
    using QueryDataTypeRefListOutput = vesk::wardend::QueryDataTypeRefListOutput;
    using QueryEventInfoOutput = vesk::wardend::QueryEventInfoOutput;
    using QueryEventShowOutput = vesk::wardend::QueryEventShowOutput;
    using QueryLatencyResultOutput = vesk::wardend::QueryLatencyResultOutput;
    using QueryLatencyStatusOutput = vesk::wardend::QueryLatencyStatusOutput;
    using QueryMethodInfoOutput = vesk::wardend::QueryMethodInfoOutput;
    using QueryMethodTypeOutput = vesk::wardend::QueryMethodTypeOutput;
    using QueryNodeInfoOutput = vesk::wardend::QueryNodeInfoOutput;
    using QuerySubNodeEventInfoOutput = vesk::wardend::QuerySubNodeEventInfoOutput;
    using SwitchLatencyModeOutput = vesk::wardend::SwitchLatencyModeOutput;

    static constexpr std::uint16_t kServiceId = ToolsServiceIds::kServiceId;
    static constexpr std::uint16_t kQueryAllDataTypeId = ToolsServiceIds::kQueryAllDataType;
    static constexpr std::uint16_t kQueryDataTypeId = ToolsServiceIds::kQueryDataType;
    static constexpr std::uint16_t kQueryDataTypeRefListId = ToolsServiceIds::kQueryDataTypeRefList;
    static constexpr std::uint16_t kQueryEventInfoId = ToolsServiceIds::kQueryEventInfo;
    static constexpr std::uint16_t kQueryEventShowId = ToolsServiceIds::kQueryEventShow;
    static constexpr std::uint16_t kQueryLatencyResultId = ToolsServiceIds::kQueryLatencyResult;
    static constexpr std::uint16_t kQueryLatencyStatusId = ToolsServiceIds::kQueryLatencyStatus;
    static constexpr std::uint16_t kQueryMethodInfoId = ToolsServiceIds::kQueryMethodInfo;
    static constexpr std::uint16_t kQueryMethodTypeId = ToolsServiceIds::kQueryMethodType;
    static constexpr std::uint16_t kQueryNodeInfoId = ToolsServiceIds::kQueryNodeInfo;
    static constexpr std::uint16_t kQuerySubNodeEventInfoId =
        ToolsServiceIds::kQuerySubNodeEventInfo;
    static constexpr std::uint16_t kSwitchLatencyModeId = ToolsServiceIds::kSwitchLatencyMode;

    // The method ids in the order of the method table.
    static constexpr std::array<std::uint16_t, 12> kMethodIds{
        kQueryAllDataTypeId, kQueryDataTypeId,      kQueryDataTypeRefListId,  kQueryEventInfoId,
        kQueryEventShowId,   kQueryLatencyResultId, kQueryLatencyStatusId,    kQueryMethodInfoId,
        kQueryMethodTypeId,  kQueryNodeInfoId,      kQuerySubNodeEventInfoId, kSwitchLatencyModeId};

    // The service interface with its entities and wire ids (0x0001 to 0x000C in table order).
    static const ara::com::ServiceIdentifierType& ServiceIdentifier();

    // Without a binding: the service's logic alone, reachable by direct calls.
    VESKWardendToolsServiceSkeleton() = default;
    // Assembles the service on the drivers of vesk.json; throws ComException when it cannot.
    VESKWardendToolsServiceSkeleton(const lumo::vcc::api::types::InstanceIdentifier& instance,
                                    lumo::vcc::api::types::MethodCallProcessingMode mode);
    virtual ~VESKWardendToolsServiceSkeleton();
    VESKWardendToolsServiceSkeleton(const VESKWardendToolsServiceSkeleton&) = delete;
    VESKWardendToolsServiceSkeleton& operator=(const VESKWardendToolsServiceSkeleton&) = delete;

    virtual ara::core::Future<QueryAllDataTypeOutput> QueryAllDataType() = 0;
    virtual ara::core::Future<QueryDataTypeOutput> QueryDataType(const String& typeName) = 0;
    virtual ara::core::Future<QueryDataTypeRefListOutput> QueryDataTypeRefList() = 0;
    virtual ara::core::Future<QueryEventInfoOutput> QueryEventInfo(const String& eventType) = 0;
    virtual ara::core::Future<QueryEventShowOutput> QueryEventShow(const String& eventType) = 0;
    virtual ara::core::Future<QueryLatencyResultOutput> QueryLatencyResult(
        const LatencyQueryInfo& query) = 0;
    virtual ara::core::Future<QueryLatencyStatusOutput> QueryLatencyStatus(
        const LatencyIndex& index) = 0;
    virtual ara::core::Future<QueryMethodInfoOutput> QueryMethodInfo(const String& methodType) = 0;
    virtual ara::core::Future<QueryMethodTypeOutput> QueryMethodType(const String& methodType) = 0;
    virtual ara::core::Future<QueryNodeInfoOutput> QueryNodeInfo(const String& nodeName) = 0;
    virtual ara::core::Future<QuerySubNodeEventInfoOutput> QuerySubNodeEventInfo(
        const QuerySubEventInfoIndex& index) = 0;
    virtual ara::core::Future<SwitchLatencyModeOutput> SwitchLatencyMode(
        const LatencySwitch& latencySwitch) = 0;

    // Binds every method to its implementation and offers the service. Nothing without a
    // binding.
    void OfferService();
    void StopOfferService();
    // Null without a binding.
    ara::com::internal::skeleton::SkeletonAdapter* Adapter() const { return adapter_.get(); }

    // One adapter per method, in the order of kMethodIds.
    std::array<ara::com::internal::skeleton::method::MethodAdapter, 12> methods;  // NOLINT

private:
    std::unique_ptr<ara::com::internal::skeleton::SkeletonAdapter> adapter_;
};

}  // namespace vesk::wardend::skeleton

#endif
