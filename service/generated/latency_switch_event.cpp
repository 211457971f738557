#include "service/generated/latency_switch_event.h"

#include "platform/error/com_error_domain.h"

namespace vesk::wardend::skeleton::events {

ara::core::Result<void> LatencySwitchEvent::Send(const LatencySwitch& sample) const {
    Transport transport;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        transport = transport_;
    }
    if (!transport) {
        return ara::core::Result<void>::FromError(lumo::vcc::api::types::MakeErrorCode(
            lumo::vcc::api::types::ComErrc::kServiceNotOffered, 0));
    }
    return transport(sample);
}

void LatencySwitchEvent::SetTransport(Transport transport) {
    std::lock_guard<std::mutex> lock(mutex_);
    transport_ = std::move(transport);
}

}  // namespace vesk::wardend::skeleton::events
