#ifndef SERVICE_GENERATED_VESKWARDEND_APP_SERVICE_SKELETON_H
#define SERVICE_GENERATED_VESKWARDEND_APP_SERVICE_SKELETON_H

#include <cstdint>

#include "platform/core/future.h"
#include "records/service_outputs.h"
#include "records/wardend_records.h"
#include "service/generated/latency_switch_event.h"

namespace vesk::wardend::skeleton {

// The generated base of the application service: one method and the latency switch event.
// The daemon's server object derives from it and implements the method.
class VESKWardendAppServiceSkeleton {
public:
    using RegisterAppInfoOutput = vesk::wardend::RegisterAppInfoOutput;

    static constexpr std::uint16_t kRegisterAppInfoId = 60621;

    VESKWardendAppServiceSkeleton() = default;
    virtual ~VESKWardendAppServiceSkeleton() = default;
    VESKWardendAppServiceSkeleton(const VESKWardendAppServiceSkeleton&) = delete;
    VESKWardendAppServiceSkeleton& operator=(const VESKWardendAppServiceSkeleton&) = delete;

    virtual ara::core::Future<RegisterAppInfoOutput> RegisterAppInfo(
        const AppRegisterInfo& info) = 0;

    events::LatencySwitchEvent LatencySwitchEvent;  // NOLINT: generated member named as the event
};

}  // namespace vesk::wardend::skeleton

#endif
