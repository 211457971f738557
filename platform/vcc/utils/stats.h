#ifndef PLATFORM_VCC_UTILS_STATS_H
#define PLATFORM_VCC_UTILS_STATS_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/core/string.h"
#include "platform/vcc/api/types/driver_type.h"

namespace lumo::vcc::utils::stats {

// The key under which an entity's statistics are kept.
struct EntityIdentifier {
    std::uint16_t serviceId{0};
    ara::core::String instanceId;
    std::uint32_t entityId{0};

    bool operator<(const EntityIdentifier& other) const;
    ara::core::String ToString() const;  // "serviceId_instanceId_entityId"
};

// Counters of one entity. Counters are atomic: the request path bumps them from any thread.
class Stats {
public:
    explicit Stats(EntityIdentifier id) : id_(std::move(id)) {}
    Stats(const Stats&) = delete;
    Stats& operator=(const Stats&) = delete;
    virtual ~Stats() = default;

    // The entity's name on each driver, for the text view.
    void SetEntityName(api::types::DriverType driver, const ara::core::String& name);
    std::map<api::types::DriverType, ara::core::String> GetEntityName() const;

    const EntityIdentifier& Id() const noexcept { return id_; }
    // One line per counter under a heading with the entity's names; empty when nothing counted.
    virtual ara::core::String Text() const = 0;

protected:
    ara::core::String Heading() const;

private:
    EntityIdentifier id_;
    mutable std::mutex nameMutex_;  // guards names_
    std::map<api::types::DriverType, ara::core::String> names_;
};

class MethodSkeletonStats final : public Stats {
public:
    using Stats::Stats;
    ara::core::String Text() const override;

    std::atomic<std::uint64_t> requestsToUser{0};
    std::atomic<std::uint64_t> e2eErrorsSeen{0};
    std::atomic<std::uint64_t> requestsHandled{0};
    std::atomic<std::uint64_t> trafficControlled{0};
};

class EventSkeletonStats final : public Stats {
public:
    using Stats::Stats;
    ara::core::String Text() const override;

    void IncFromUserCount() { ++fromUser_; }
    void IncTrafficControlledCount() { ++trafficControlled_; }
    void IncToDDSCount() { ++toDds_; }
    void IncToSomeipCount() { ++toSomeip_; }

    std::uint64_t FromUserCount() const { return fromUser_; }
    std::uint64_t TrafficControlledCount() const { return trafficControlled_; }
    std::uint64_t ToDdsCount() const { return toDds_; }
    std::uint64_t ToSomeipCount() const { return toSomeip_; }

private:
    std::atomic<std::uint64_t> fromUser_{0};
    std::atomic<std::uint64_t> trafficControlled_{0};
    std::atomic<std::uint64_t> toDds_{0};
    std::atomic<std::uint64_t> toSomeip_{0};
};

// Knows the statistics of every entity of a service and can log them at an interval.
class DataStatistician {
public:
    DataStatistician() = default;
    ~DataStatistician();
    DataStatistician(const DataStatistician&) = delete;
    DataStatistician& operator=(const DataStatistician&) = delete;

    void Add(const std::shared_ptr<Stats>& stats);
    // Marks the entity for the timing log: its statistics are written by every period's log.
    void CreateTlogInfoWriter(const EntityIdentifier& id);
    bool HasTlogInfoWriter(const EntityIdentifier& id) const;

    // The texts of every entity that counted something, in key order.
    ara::core::String Text() const;

    // Logs Text() at info on context "CM" every period until StopPeriodicLog or destruction.
    void StartPeriodicLog(std::chrono::milliseconds period);
    void StopPeriodicLog();

private:
    mutable std::mutex mutex_;  // guards stats_ and writers_
    std::map<EntityIdentifier, std::weak_ptr<Stats>> stats_;
    std::vector<EntityIdentifier> writers_;

    std::mutex periodMutex_;  // guards stopping_ and the thread's start and join
    std::condition_variable periodWake_;
    bool stopping_{false};
    std::thread periodThread_;
};

}  // namespace lumo::vcc::utils::stats

#endif
