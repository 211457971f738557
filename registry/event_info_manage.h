#ifndef REGISTRY_EVENT_INFO_MANAGE_H
#define REGISTRY_EVENT_INFO_MANAGE_H

// A cycle by design with the node registry, whose node query asks this one back.

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <tuple>
#include <vector>

#include "platform/serialize/serialize_config.h"
#include "records/wardend_records.h"
#include "registry/node_info_manage.h"
#include "registry/packed_record.h"

namespace vesk::wardend {

// serviceId, instanceId, topicName; the reserved byte is always 0 and takes no part in ordering.
struct DDSEventKey {
    std::uint16_t serviceId{};
    std::uint16_t instanceId{};
    String topicName;
    std::uint8_t reserved{};

    bool operator<(const DDSEventKey& other) const {
        return std::tie(serviceId, instanceId, topicName) <
               std::tie(other.serviceId, other.instanceId, other.topicName);
    }
    bool operator==(const DDSEventKey& other) const { return !(*this < other) && !(other < *this); }
};

struct SomeipEventKey {
    std::uint16_t serviceId{};
    std::uint16_t instanceId{};
    std::uint16_t eventId{};
    std::uint8_t reserved{};

    bool operator<(const SomeipEventKey& other) const {
        return std::tie(serviceId, instanceId, eventId) <
               std::tie(other.serviceId, other.instanceId, other.eventId);
    }
    bool operator==(const SomeipEventKey& other) const {
        return !(*this < other) && !(other < *this);
    }
};

// A stored event on one driver as the tables' copies show it. Queries hand out only `info`; the
// three maps, keyed by subscriber name, stay inside the registry.
struct EventRecord {
    EventInfoWithPubSub info;
    std::map<String, String> subInstanceShortNames;
    std::map<String, String> subEventTypes;
    std::map<String, std::int32_t> subPids;

    bool operator==(const EventRecord& other) const {
        return info == other.info && subInstanceShortNames == other.subInstanceShortNames &&
               subEventTypes == other.subEventTypes && subPids == other.subPids;
    }
};

// What a subscriber registered on a record.
struct EventSubscriber {
    String instanceShortName;
    String eventType;
    std::int32_t pid{};
};

// The subscribers of a record: subApps in order, and what each registered, by name. A name
// that a query dropped from subApps because its process died stays in byName until the
// application unregisters.
struct EventSubscribers {
    std::vector<String> subApps;
    std::map<String, EventSubscriber> byName;
};

// The record's own short name, as the state of its publisher last set it.
enum class EventShortName : std::uint8_t {
    kRegistered,  // the registration's, or the generated one
    kUnknownPub,  // "/UnknownPubEvent_..."
    kOfflinePub,  // "/OfflinePubEvent_..."
    kCleared,     // empty (the exempt DDS service)
};

// A record as the registry keeps it: ten thousand events are common, and the record types are
// large and mostly defaults, so the registration is packed and the rest is a few bytes. The
// publisher is the registration's application when there is one, since a publisher's
// registration always replaces the registration.
struct StoredEvent {
    // eventType, appName, then the EventRegisterInfo without them and without pid.
    PackedBytes registration;
    std::int32_t pid{};
    // The plain SOME/IP size of the registration as stored (strings with marks, strings raw),
    // so that an answer's size needs no walk of the packed bytes; 0 when it does not fit.
    std::array<std::uint32_t, 2> someipSizes{};
    bool hasPub{};
    bool isOnline{};
    EventShortName shortName{EventShortName::kRegistered};
    std::unique_ptr<EventSubscribers> subscribers;  // null until the first subscriber
};

// A record's registration as a query takes it under the lock, to unpack it after: the bytes
// are shared with the registry, not copied.
struct QueriedEvent {
    PackedBytes registration;
    std::int32_t pid{};
    std::array<std::uint32_t, 2> someipSizes{};
    EventShortName shortName{EventShortName::kRegistered};
    DriverType driver{};
    bool hasPub{};
};

// A record as a query answers it, taken under the lock.
struct AnsweredEvent {
    QueriedEvent registration;
    std::vector<String> subApps;
    bool isOnline{};
};

// The answer of a QueryEventInfo in the plain SOME/IP form of QueryEventInfoOutput, written
// from the packed registrations instead of records built for it: the same bytes as the
// serialized output of QueryEventInfo, at a fraction of the work.
class EventInfoSomeipAnswer {
public:
    EventInfoSomeipAnswer(std::vector<AnsweredEvent> events, lumo::serialize::ByteOrder order,
                          bool isStringRaw);

    // Bytes of the payload, or lumo::serialize::kSizeFailure.
    std::uint64_t Size();
    // Writes the Size() bytes at out; false when they came out other than sized (nothing is
    // written past them).
    bool Write(unsigned char* out);

private:
    template <lumo::serialize::ByteOrder kOrder, bool kWrite>
    std::uint64_t Walk(unsigned char* out, std::uint64_t capacity) const;

    std::vector<AnsweredEvent> events_;
    lumo::serialize::ByteOrder order_;
    bool isStringRaw_;
    std::uint64_t size_{lumo::serialize::kSizeFailure};
};

using EventRegisterHandler = std::function<void(const EventAllDriverIndex&)>;

// Publishers and subscribers of events, one record per event per driver. Its first member is
// the daemon's instance id, which main overwrites before any service exists.
//
// Locks, in this order: eventLock_, then handlerLock_; with eventLock_ held the registry calls
// NodeInfoManage::UpdateNodeInfo (node mutex) and E2EInfoManage (its mutex). Callers may hold
// registerMutex (outermost) or the latency statusLock before calling in. A handler runs with
// both locks held and must not come back into this registry. SetEventRegisterHandler takes
// handlerLock_ alone.
class EventInfoManage {
public:
    static EventInfoManage& GetInstance();

    String instanceId{"666"};

    // True when the last driver handled was recorded; false for a request with no driver.
    bool RegisterEventInfo(const EventRegisterInfo& info, const bool& isPub);
    // True when an application was taken off a record. With both drivers only DDS is acted on.
    bool UnregisterEventInfo(const EventRegisterInfo& info, const bool& isPub);
    // "ALL" or an event type; DDS records first, each driver in key order.
    std::vector<EventInfoWithPubSub> QueryEventInfo(const String& eventType);
    // The same query, answered in its plain SOME/IP form.
    EventInfoSomeipAnswer QueryEventInfoSomeip(const String& eventType,
                                               lumo::serialize::ByteOrder order, bool isStringRaw);
    EventInfoWithPubSub QuerySubEventInfo(const QuerySubEventInfoIndex& index);
    bool QueryEventInfoByType(const String& eventType, EventInfoWithPubSub& out);
    std::vector<EventInfoWithPubSub> QueryDDSEventInfo(const DDSEventKey& key);
    std::vector<EventInfoWithPubSub> QuerySomeipEventInfo(const SomeipEventKey& key);
    // Adds the node's published and subscribed event types, and its service instances.
    void GetNodeEventInfo(const String& nodeName, NodeInfo& node, std::set<String>& instances);
    // Stores handler under each key of the switch's index, replacing an earlier one.
    void SetEventRegisterHandler(const EventRegisterHandler& handler,
                                 const LatencySwitch& latencySwitch);

    // Copies of the tables.
    std::map<DDSEventKey, EventRecord> DdsEvents() const;
    std::map<SomeipEventKey, EventRecord> SomeipEvents() const;

    EventInfoManage(const EventInfoManage&) = delete;
    EventInfoManage& operator=(const EventInfoManage&) = delete;
    ~EventInfoManage() = default;

private:
    EventInfoManage() = default;

    // Every helper below expects eventLock_ held.
    template <typename Map>
    bool RegisterExistingLocked(Map& map, const typename Map::key_type& key,
                                const EventRegisterInfo& info, bool isPub, DriverType driver);
    template <typename Map>
    bool RegisterNewLocked(Map& map, const typename Map::key_type& key,
                           const EventRegisterInfo& info, bool isPub, DriverType driver);
    template <typename Map>
    bool UnregisterPubLocked(Map& map, const typename Map::key_type& key, const String& appName,
                             DriverType driver);
    template <typename Map>
    bool UnregisterSubLocked(Map& map, const typename Map::key_type& key, const String& appName,
                             DriverType driver);
    static bool CheckEventAliveLocked(StoredEvent& record, DriverType driver,
                                      std::uint16_t serviceId, ProcessLiveness& liveness);
    static void RemoveDeadSubsLocked(StoredEvent& record, bool& alive, DriverType driver,
                                     ProcessLiveness& liveness);
    // The records a QueryEventInfo answers, after its liveness checks.
    std::vector<AnsweredEvent> CollectEventInfo(const String& eventType);
    template <typename Map>
    void QueryMapLocked(Map& map, const String& eventType, bool all, DriverType driver,
                        ProcessLiveness& liveness, std::vector<AnsweredEvent>& answered);
    template <typename Map>
    void GetNodeEventInfoLocked(const Map& map, const String& nodeName, std::int32_t pid,
                                std::set<String>& instances, std::set<String>& pubTypes,
                                std::set<String>& subTypes, DriverType driver);
    // Take handlerLock_ themselves; called with eventLock_ held.
    void NotifyDDSEventHandler(const DDSEventKey& key);
    void NotifySomeipEventHandler(const SomeipEventKey& key);

    mutable std::mutex eventLock_;  // guards ddsEventMap_, someipEventMap_ and every record
    std::mutex handlerLock_;        // guards ddsHandlerMap_ and someipHandlerMap_
    std::map<DDSEventKey, StoredEvent> ddsEventMap_;
    std::map<SomeipEventKey, StoredEvent> someipEventMap_;
    std::map<DDSEventKey, EventRegisterHandler> ddsHandlerMap_;
    std::map<SomeipEventKey, EventRegisterHandler> someipHandlerMap_;
};

}  // namespace vesk::wardend

#endif
