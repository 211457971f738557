#ifndef SERVICE_GENERATED_LATENCY_SWITCH_EVENT_H
#define SERVICE_GENERATED_LATENCY_SWITCH_EVENT_H

#include <cstdint>
#include <functional>
#include <mutex>

#include "platform/core/result.h"
#include "records/wardend_records.h"

namespace vesk::wardend::skeleton::events {

// The latency switch event of the application service. A sample goes to the transport that the
// service's offer installs; before an offer, or after the offer stopped, Send fails with
// kServiceNotOffered and nothing is sent.
class LatencySwitchEvent {
public:
    using SampleType = LatencySwitch;
    using Transport = std::function<ara::core::Result<void>(const LatencySwitch&)>;

    static constexpr std::uint16_t kEventId = 30161;

    ara::core::Result<void> Send(const LatencySwitch& sample) const;

    // Installed by the offer of the service, cleared by its stop.
    void SetTransport(Transport transport);

private:
    mutable std::mutex mutex_;  // guards transport_
    Transport transport_;
};

}  // namespace vesk::wardend::skeleton::events

#endif
