#ifndef SERVICE_GENERATED_LATENCY_SWITCH_EVENT_H
#define SERVICE_GENERATED_LATENCY_SWITCH_EVENT_H

#include <cstdint>

#include "binding/skeleton/event_adapter.h"
#include "records/service_interfaces.h"
#include "records/wardend_records.h"

namespace vesk::wardend::skeleton::events {

// The latency switch event of the application service. Before the service is assembled and
// offered, a send fails with kServiceNotOffered and nothing is sent.
class LatencySwitchEvent : public ara::com::internal::skeleton::event::EventAdapter<LatencySwitch> {
public:
    using SampleType = LatencySwitch;

    static constexpr std::uint32_t kEventId = AppServiceIds::kLatencySwitchEvent;
};

}  // namespace vesk::wardend::skeleton::events

#endif
