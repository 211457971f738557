#ifndef SERVICE_WARDEND_TOOLS_SKELETON_H
#define SERVICE_WARDEND_TOOLS_SKELETON_H

#include <memory>

#include "service/generated/veskwardend_tools_service_skeleton.h"
#include "service/wardend_app_skeleton.h"

namespace vesk::wardend {

// The tools service: each method asks one registry or the catalogue and hands the answer back
// in a ready future. A failed or empty query is an empty output, never an error.
//
// Locks: RegisterMutex() around the node query only, which walks the node table and the
// registries in the order opposite to registration.
class WardendToolsSkeleton : public skeleton::VESKWardendToolsServiceSkeleton {
public:
    // Without a binding (tests of the queries).
    WardendToolsSkeleton() = default;
    // Assembled on the drivers of vesk.json; throws ComException when it cannot be.
    WardendToolsSkeleton(const lumo::vcc::api::types::InstanceIdentifier& instance,
                         lumo::vcc::api::types::MethodCallProcessingMode mode)
        : VESKWardendToolsServiceSkeleton(instance, mode) {}
    ~WardendToolsSkeleton() override = default;
    WardendToolsSkeleton(const WardendToolsSkeleton&) = delete;
    WardendToolsSkeleton& operator=(const WardendToolsSkeleton&) = delete;

    // SwitchLatencyMode sends on this skeleton's latency switch event.
    void SetAppSkeleton(std::shared_ptr<WardendAppSkeleton> appSkeleton);

    // Sets the traffic policy of every method, binds the methods and offers the service.
    void OfferToolsService();

    ara::core::Future<QueryAllDataTypeOutput> QueryAllDataType() override;
    ara::core::Future<QueryDataTypeOutput> QueryDataType(const String& typeName) override;
    ara::core::Future<QueryDataTypeRefListOutput> QueryDataTypeRefList() override;
    ara::core::Future<QueryEventInfoOutput> QueryEventInfo(const String& eventType) override;
    ara::core::Future<QueryEventShowOutput> QueryEventShow(const String& eventType) override;
    ara::core::Future<QueryLatencyResultOutput> QueryLatencyResult(
        const LatencyQueryInfo& query) override;
    ara::core::Future<QueryLatencyStatusOutput> QueryLatencyStatus(
        const LatencyIndex& index) override;
    ara::core::Future<QueryMethodInfoOutput> QueryMethodInfo(const String& methodType) override;
    ara::core::Future<QueryMethodTypeOutput> QueryMethodType(const String& methodType) override;
    ara::core::Future<QueryNodeInfoOutput> QueryNodeInfo(const String& nodeName) override;
    ara::core::Future<QuerySubNodeEventInfoOutput> QuerySubNodeEventInfo(
        const QuerySubEventInfoIndex& index) override;
    ara::core::Future<SwitchLatencyModeOutput> SwitchLatencyMode(
        const LatencySwitch& latencySwitch) override;

private:
    std::shared_ptr<WardendAppSkeleton> appSkeleton_;
};

}  // namespace vesk::wardend

#endif
