#ifndef REGISTRY_E2E_INFO_MANAGE_H
#define REGISTRY_E2E_INFO_MANAGE_H

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <tuple>

#include "records/wardend_records.h"

namespace vesk::wardend {

// (serviceId, instanceId, eventTopicName): numbers first, then the name bytewise.
struct DdsE2EKey {
    std::uint16_t serviceId{};
    std::uint16_t instanceId{};
    String eventTopicName;

    bool operator<(const DdsE2EKey& other) const {
        return std::tie(serviceId, instanceId, eventTopicName) <
               std::tie(other.serviceId, other.instanceId, other.eventTopicName);
    }
    bool operator==(const DdsE2EKey& other) const { return !(*this < other) && !(other < *this); }
};

struct SomeipE2EKey {
    std::uint16_t serviceId{};
    std::uint16_t instanceId{};
    std::uint16_t eventId{};

    bool operator<(const SomeipE2EKey& other) const {
        return std::tie(serviceId, instanceId, eventId) <
               std::tie(other.serviceId, other.instanceId, other.eventId);
    }
    bool operator==(const SomeipE2EKey& other) const {
        return !(*this < other) && !(other < *this);
    }
};

// One declaration shared by every sub node of the event: the newest declaration wins.
struct E2EEventEntry {
    EventE2EInfo info;
    std::map<String, std::int32_t> subNodes;  // application name to its process id

    bool operator==(const E2EEventEntry& other) const {
        return info == other.info && subNodes == other.subNodes;
    }
};

// The E2E configuration that subscribing nodes declared, per event and binding.
//
// Locks: mutex_ alone, held across each whole operation (log lines and /proc checks included).
// The event registry calls the two Update...EventE2EInfo operations with eventLock_ held, so
// mutex_ comes after eventLock_. This registry calls no other registry's locked operation.
class E2EInfoManage {
public:
    static std::shared_ptr<E2EInfoManage> GetInstance();

    // Each element of node.e2eList whose profile is below 255, for nodeName and pid.
    void RegisterNodeE2EInfo(const NodeRegisterInfo& node);
    void UpdateDdsEventE2EInfo(const String& appName, const int& pid, const DDSEventInfo& info);
    void UpdateSomeipEventE2EInfo(const String& appName, const int& pid,
                                  const SomeipEventInfo& info);
    void UpdateDdsE2EInfo(const String& appName, const int& pid, const EventE2EInfo& info);
    void UpdateSomeipE2EInfo(const String& appName, const int& pid, const EventE2EInfo& info);
    // Removes appName with exactly this pid from every entry; a newer process stays.
    void UnregisterE2EInfo(const String& appName, const int& pid);
    // Clears dead sub nodes first; the answer holds only the entry's e2eConfig.
    EventInfoWithPubSub QuerySubNodeE2EInfo(const QuerySubEventInfoIndex& index);

    // Copies of the tables.
    std::map<DdsE2EKey, E2EEventEntry> DdsEntries() const;
    std::map<SomeipE2EKey, E2EEventEntry> SomeipEntries() const;

    E2EInfoManage(const E2EInfoManage&) = delete;
    E2EInfoManage& operator=(const E2EInfoManage&) = delete;
    ~E2EInfoManage() = default;

private:
    E2EInfoManage() = default;

    void UpdateDdsLocked(const String& appName, int pid, const EventE2EInfo& info);
    void UpdateSomeipLocked(const String& appName, int pid, const EventE2EInfo& info);
    void ClearOfflineE2EInfoLocked();

    mutable std::mutex mutex_;  // guards ddsE2EInfos_ and someipE2EInfos_
    std::map<DdsE2EKey, E2EEventEntry> ddsE2EInfos_;
    std::map<SomeipE2EKey, E2EEventEntry> someipE2EInfos_;
};

}  // namespace vesk::wardend

#endif
