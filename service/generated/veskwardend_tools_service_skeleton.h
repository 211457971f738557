#ifndef SERVICE_GENERATED_VESKWARDEND_TOOLS_SERVICE_SKELETON_H
#define SERVICE_GENERATED_VESKWARDEND_TOOLS_SERVICE_SKELETON_H

#include <array>
#include <cstdint>
#include <memory>

#include "platform/core/future.h"
#include "platform/vcc/skeleton_adapter.h"
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

    static constexpr std::uint16_t kServiceId = 0x5701;
    static constexpr std::uint16_t kQueryAllDataTypeId = 56963;
    static constexpr std::uint16_t kQueryDataTypeId = 32777;
    static constexpr std::uint16_t kQueryDataTypeRefListId = 60394;
    static constexpr std::uint16_t kQueryEventInfoId = 40538;
    static constexpr std::uint16_t kQueryEventShowId = 23108;
    static constexpr std::uint16_t kQueryLatencyResultId = 58300;
    static constexpr std::uint16_t kQueryLatencyStatusId = 3562;
    static constexpr std::uint16_t kQueryMethodInfoId = 38078;
    static constexpr std::uint16_t kQueryMethodTypeId = 12452;
    static constexpr std::uint16_t kQueryNodeInfoId = 47109;
    static constexpr std::uint16_t kQuerySubNodeEventInfoId = 7391;
    static constexpr std::uint16_t kSwitchLatencyModeId = 63267;

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
