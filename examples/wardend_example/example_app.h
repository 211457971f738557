#ifndef EXAMPLES_WARDEND_EXAMPLE_EXAMPLE_APP_H
#define EXAMPLES_WARDEND_EXAMPLE_EXAMPLE_APP_H

// A sample application of wardend: it declares what it publishes, subscribes to, serves and
// offers, follows the latency switches of the tools, and reports what it measured.

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

#include "client/wardend_proxy.h"
#include "records/wardend_records.h"

namespace vesk::wardend::example {

// Where the example's events live on both drivers.
struct ExampleEvent {
    String type;  // data type name, from examples/msg
    bool published{};
    std::uint16_t serviceId{};
    std::uint16_t instanceId{};
    String topic;             // DDS
    std::uint16_t eventId{};  // SOME/IP
};

// The example's events: two it publishes, one it subscribes to.
const std::vector<ExampleEvent>& ExampleEvents();

// Every registration of a node named `node` with process id `pid`, in the order they are sent:
// the node first, then its events, method and field.
std::vector<AppRegisterInfo> Registrations(const String& node, std::int32_t pid);
// The same, unregistering, in the opposite order: the node last.
std::vector<AppRegisterInfo> Unregistrations(const String& node, std::int32_t pid);

// The drivers of `index` under which it names one of the example's events, with that event.
// Empty when it names none of them.
std::vector<DriverType> MatchingDrivers(const LatencyIndex& index, const ExampleEvent& event);

// Follows latency switches and keeps the measurements of the events whose mode is on.
class LatencyReporter {
public:
    explicit LatencyReporter(String node) : node_(std::move(node)) {}

    // The acknowledgements the switch calls for: one per example event it names.
    std::vector<AppRegisterInfo> OnSwitch(const LatencySwitch& latencySwitch);
    // A measured latency, in microseconds, for every event whose mode is on.
    void Record(std::uint64_t micros);
    // The reports of what was recorded since the last call, one per event with samples; clears
    // them.
    std::vector<AppRegisterInfo> TakeReports();
    // Forgets every mode: a restarted daemon knows none.
    void Reset();

private:
    struct Measured {
        LatencyIndex index;
        bool published{};
        LatencyMode mode{LatencyMode::kOff};
        std::uint64_t count{};
        std::uint64_t sum{};
        std::uint64_t maximum{};
        std::uint64_t minimum{};
    };

    const String node_;
    std::mutex mutex_;                        // guards events_
    std::map<std::size_t, Measured> events_;  // by position in ExampleEvents()
};

}  // namespace vesk::wardend::example

#endif
