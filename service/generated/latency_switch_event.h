#ifndef SERVICE_GENERATED_LATENCY_SWITCH_EVENT_H
#define SERVICE_GENERATED_LATENCY_SWITCH_EVENT_H

#include <cstdint>

#include "binding/skeleton/event_adapter.h"
#include "records/wardend_records.h"

namespace vesk::wardend::skeleton::events {

// The latency switch event of the application service. Before the service is assembled and
// offered, a send fails with kServiceNotOffered and nothing is sent.
class LatencySwitchEvent : public ara::com::internal::skeleton::event::EventAdapter<LatencySwitch> {
public:
    using SampleType = LatencySwitch;

    static constexpr std::uint32_t kEventId = 30161;
    static constexpr std::uint16_t kSomeipEventId = 0x8001;
    static constexpr std::uint16_t kSomeipEventgroupId = 0x0001;
};

}  // namespace vesk::wardend::skeleton::events

#endif
