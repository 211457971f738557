#ifndef BINDING_SKELETON_EVENT_ADAPTER_H
#define BINDING_SKELETON_EVENT_ADAPTER_H

#include "binding/skeleton/vcc_methods.h"
#include "platform/error/com_error_domain.h"
#include "platform/vcc/skeleton_adapter.h"

namespace ara::com::internal::skeleton::event {

// The event member of a generated service skeleton. Before its service is assembled it has no
// skeleton, and a send answers kServiceNotOffered.
template <typename T>
class EventAdapter : public impl::EventAdapterImpl {
public:
    core::Result<void> Send(const T& sample) const {
        const auto& skeleton = GetSkeleton();
        if (skeleton == nullptr) {
            return core::Result<void>::FromError(lumo::vcc::api::types::MakeErrorCode(
                lumo::vcc::api::types::ComErrc::kServiceNotOffered, 0));
        }
        lumo::vcc::api::types::internal::SampleInfoImpl sampleInfo;
        return skeleton->GetVcc()->Send(sample, GetEntityId(), sampleInfo);
    }
};

}  // namespace ara::com::internal::skeleton::event

#endif
