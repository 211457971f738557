#ifndef REGISTRY_EVENT_LATENCY_MANAGE_H
#define REGISTRY_EVENT_LATENCY_MANAGE_H

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <tuple>

#include "records/wardend_records.h"

namespace vesk::wardend {

class WardendAppSkeleton;

// (serviceId, instanceId, topicName): numbers first, then the name bytewise.
struct DdsLatencyKey {
    std::uint16_t serviceId{};
    std::uint16_t instanceId{};
    String topicName;

    bool operator<(const DdsLatencyKey& other) const {
        return std::tie(serviceId, instanceId, topicName) <
               std::tie(other.serviceId, other.instanceId, other.topicName);
    }
};

struct SomeipLatencyKey {
    std::uint16_t serviceId{};
    std::uint16_t instanceId{};
    std::uint16_t eventId{};

    bool operator<(const SomeipLatencyKey& other) const {
        return std::tie(serviceId, instanceId, eventId) <
               std::tie(other.serviceId, other.instanceId, other.eventId);
    }
};

// The mode reported for a node that has not acknowledged.
constexpr LatencyMode kUnacknowledgedLatencyMode = LatencyMode::kOn;

struct LatencyEventStatus {
    String pubName;  // the last publisher that acknowledged; empty at first
    LatencyMode pubMode{kUnacknowledgedLatencyMode};
    std::map<String, LatencyMode> subModes;  // each acknowledging subscriber and its mode
};

struct LatencySample {
    std::uint64_t value0{};  // average
    std::uint64_t value1{};  // maximum
    std::uint64_t value2{};  // minimum
    std::uint64_t time{};    // arrival, milliseconds on CLOCK_MONOTONIC
};

// Newest at the front.
using LatencySampleQueue = std::deque<LatencySample>;

// The answer of QueryLatencyStatus: publishers' and subscribers' modes by application name.
struct LatencyModes {
    std::map<String, LatencyMode> pubModes;
    std::map<String, LatencyMode> subModes;
};

// How a LatencySwitch leaves the daemon: the service layer installs the send on the latency
// switch event of the application skeleton. Returns false when the send failed. It runs with
// the event registry's locks held (from a registration's handler) and must not call back into
// the registries.
using LatencySwitchSender =
    std::function<bool(const std::shared_ptr<WardendAppSkeleton>&, const LatencySwitch&)>;

// Latency coordination: passes a tool's switch to the applications, collects their
// acknowledgements and results, and answers the tools' status and result queries.
//
// Locks: statusLock_ guards the status tables, resultLock_ the result tables; no operation
// holds both. QueryLatencyStatus asks the event registry under statusLock_ (statusLock_, then
// eventLock_). SwitchLatencyMode leaves a handler in the event registry, which later runs under
// eventLock_ and handlerLock_ and takes only senderLock_, briefly.
class EventLatencyManage {
public:
    static EventLatencyManage& GetInstance();

    // Always 0, even for an event nobody registered.
    int SwitchLatencyMode(const std::shared_ptr<WardendAppSkeleton>& skeleton,
                          const LatencySwitch& latencySwitch);
    // Each application's result over the last query.period seconds.
    std::map<String, LatencyResult> QueryLatencyResult(const LatencyQueryInfo& query);
    // Reconciles the status with the event registry, which says who exists.
    LatencyModes QueryLatencyStatus(const LatencyIndex& index);
    // An application's acknowledgement (LatencyInfoKind::kAcknowledge); never creates a status
    // entry.
    void UpdateLatencyStatus(const LatencyAppInfo& info);
    // An application's result (LatencyInfoKind::kResult); keeps at most 3601 samples per
    // application and event.
    void RecordLatencyResult(const LatencyAppInfo& info);
    // Leaves a handler in the event registry, so that a later registration of the event gets
    // the switch too.
    void RegisterLatencyHandler(const std::shared_ptr<WardendAppSkeleton>& skeleton,
                                const LatencySwitch& latencySwitch) const;

    void SetLatencySwitchSender(LatencySwitchSender sender);

    EventLatencyManage(const EventLatencyManage&) = delete;
    EventLatencyManage& operator=(const EventLatencyManage&) = delete;
    ~EventLatencyManage() = default;

private:
    EventLatencyManage() = default;

    void Publish(const std::shared_ptr<WardendAppSkeleton>& skeleton,
                 const LatencySwitch& latencySwitch) const;

    mutable std::mutex statusLock_;  // guards ddsStatus_ and someipStatus_
    std::map<DdsLatencyKey, LatencyEventStatus> ddsStatus_;
    std::map<SomeipLatencyKey, LatencyEventStatus> someipStatus_;
    mutable std::mutex resultLock_;  // guards ddsResults_ and someipResults_
    std::map<DdsLatencyKey, std::map<String, LatencySampleQueue>> ddsResults_;
    std::map<SomeipLatencyKey, std::map<String, LatencySampleQueue>> someipResults_;
    mutable std::mutex senderLock_;  // guards sender_
    LatencySwitchSender sender_;
};

}  // namespace vesk::wardend

#endif
