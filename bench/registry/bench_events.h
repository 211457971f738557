#ifndef BENCH_REGISTRY_BENCH_EVENTS_H
#define BENCH_REGISTRY_BENCH_EVENTS_H

// The events the benchmarks fill the event registry with: event n belongs to node n / 100, on
// SOME/IP or DDS, with a service per node and an instance per event of it.

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "records/wardend_records.h"

namespace wardend::bench {

constexpr int kEventsPerNode = 100;

inline vesk::wardend::EventRegisterInfo MakeBenchEvent(int n, pid_t pid, bool someip) {
    using vesk::wardend::DriverType;
    vesk::wardend::EventRegisterInfo info;
    info.appName = "benchNode" + std::to_string(n / kEventsPerNode);
    info.eventType = "BenchType" + std::to_string(n);
    info.pid = pid;
    info.isRegister = true;
    vesk::wardend::EventInfo entry;
    const auto service = static_cast<std::uint16_t>(100 + n / kEventsPerNode);
    const auto instance = static_cast<std::uint16_t>(n % kEventsPerNode);
    if (someip) {
        entry.someip.serviceId = service;
        entry.someip.instanceId = instance;
        entry.someip.eventId = 1;
        info.eventMap_[DriverType::SOMEIP] = entry;
    } else {
        entry.dds.serviceId = service;
        entry.dds.instanceId = instance;
        entry.dds.topicName = "bench/topic";
        info.eventMap_[DriverType::DDS] = entry;
    }
    return info;
}

}  // namespace wardend::bench

#endif
