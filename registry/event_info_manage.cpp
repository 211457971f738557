#include "registry/event_info_manage.h"

#include <algorithm>

#include "records/wardend_log.h"
#include "registry/e2e_info_manage.h"
#include "registry/node_info_manage.h"
#include "registry/registry_names.h"

namespace vesk::wardend {

namespace {

std::uint16_t ServiceOf(const EventInfo& entry, DriverType driver) {
    return IsDds(driver) ? entry.dds.serviceId : entry.someip.serviceId;
}
std::uint16_t InstanceOf(const EventInfo& entry, DriverType driver) {
    return IsDds(driver) ? entry.dds.instanceId : entry.someip.instanceId;
}

DDSEventKey MakeKey(const DDSEventKey& /*tag*/, const EventInfo& entry) {
    return DDSEventKey{entry.dds.serviceId, entry.dds.instanceId, entry.dds.topicName, 0};
}
SomeipEventKey MakeKey(const SomeipEventKey& /*tag*/, const EventInfo& entry) {
    return SomeipEventKey{entry.someip.serviceId, entry.someip.instanceId, entry.someip.eventId, 0};
}

// The record's own entry; a stored record holds exactly one.
std::uint16_t RecordInstance(const EventRecord& record, DriverType driver) {
    const auto& map = record.info.registerInfo.eventMap_;
    return map.empty() ? 0 : InstanceOf(map.begin()->second, driver);
}

// The registration reduced to the entry of one driver, with an empty short name generated
// (except for the exempt DDS service).
EventRegisterInfo OwnCopy(const EventRegisterInfo& info, DriverType driver) {
    EventRegisterInfo own = info;
    for (auto it = own.eventMap_.begin(); it != own.eventMap_.end();) {
        it = it->first == driver ? std::next(it) : own.eventMap_.erase(it);
    }
    const auto it = own.eventMap_.find(driver);
    if (it != own.eventMap_.end()) {
        EventInfo& entry = it->second;
        const bool exempt = IsDds(driver) && entry.dds.serviceId == kExemptDdsService;
        if (ShortName(entry, driver).empty() && !exempt) {
            ShortName(entry, driver) =
                UnnamedName(driver, ServiceOf(entry, driver), InstanceOf(entry, driver));
        }
    }
    return own;
}

// The short name under which a subscriber's instance is shown; no exemption here.
String GetInstanceShortName(const EventRegisterInfo& info, DriverType driver) {
    if (info.eventMap_.empty()) {
        LogWarn() << "Something is wrong. GetInstanceShortName eventMap_ is null!";
        return "/eventMap/is/null";
    }
    const EventInfo& entry = info.eventMap_.begin()->second;
    return ShownInstanceName(ShortName(entry, driver), driver, ServiceOf(entry, driver),
                             InstanceOf(entry, driver));
}

// The publisher-side short name of a record.
void GetServiceInstanceInfo(std::set<String>& instances, const EventRecord& record,
                            DriverType driver) {
    const auto& map = record.info.registerInfo.eventMap_;
    if (map.empty()) {
        LogWarn() << "Something is wrong. GetServiceInstanceInfo eventMap_ is null!";
        return;
    }
    const EventInfo& entry = map.begin()->second;
    AddShownInstance(instances, ShortName(entry, driver), driver, ServiceOf(entry, driver),
                     InstanceOf(entry, driver));
}

// The record's own short name from the state of its publisher.
void UpdateInstanceShortName(EventRecord& record, DriverType driver) {
    LogInfo() << "Wardend register event instanceid unexisted UpdateInstanceShortName";
    if (driver != DriverType::DDS && driver != DriverType::SOMEIP) {
        return;
    }
    auto& map = record.info.registerInfo.eventMap_;
    const auto it = map.find(driver);
    if (it == map.end()) {
        return;
    }
    EventInfo& entry = it->second;
    const std::uint16_t serviceId = ServiceOf(entry, driver);
    if (IsDds(driver) && serviceId == kExemptDdsService) {
        entry.dds.instanceShortName.clear();
        return;
    }
    const String suffix = "_" + Decimal(serviceId) + "_" + Decimal(InstanceOf(entry, driver)) +
                          (IsDds(driver) ? "_DDS" : "_SOMEIP");
    if (record.info.pubApp.empty()) {
        ShortName(entry, driver) = "/UnknownPubEvent" + suffix;
    } else if (!record.info.isOnline) {
        ShortName(entry, driver) = "/OfflinePubEvent" + suffix;
    }
}

void StoreSubscriber(EventRecord& record, const EventRegisterInfo& own, DriverType driver) {
    record.subInstanceShortNames[own.appName] = GetInstanceShortName(own, driver);
    record.subEventTypes[own.appName] = own.eventType;
    record.subPids[own.appName] = own.pid;
}

void UpdateSubscriberE2E(const EventRegisterInfo& info, DriverType driver) {
    const auto it = info.eventMap_.find(driver);
    if (it == info.eventMap_.end()) {
        return;
    }
    const auto e2e = E2EInfoManage::GetInstance();
    if (IsDds(driver)) {
        e2e->UpdateDdsEventE2EInfo(info.appName, info.pid, it->second.dds);
    } else {
        e2e->UpdateSomeipEventE2EInfo(info.appName, info.pid, it->second.someip);
    }
}

}  // namespace

EventInfoManage& EventInfoManage::GetInstance() {
    static EventInfoManage instance;
    return instance;
}

bool EventInfoManage::RegisterEventInfo(const EventRegisterInfo& info, const bool& isPub) {
    LogInfo() << "Wardend register eventinfo";
    const std::lock_guard<std::mutex> lock(eventLock_);
    const auto& eventMap = info.eventMap_;
    const auto dds = eventMap.find(DriverType::DDS);
    const auto someip = eventMap.find(DriverType::SOMEIP);
    const bool hasDds = dds != eventMap.end();
    const bool hasSomeip = someip != eventMap.end();
    LogVerbose() << "Wardend register event DDS:" << static_cast<int>(hasDds)
                 << " SOMEIP:" << static_cast<int>(hasSomeip);
    if (!NodeInfoManage::GetInstance().UpdateNodeInfo(info.appName, info.pid, true)) {
        LogInfo() << "Wardend register event but update node list fail";
    }
    bool result = false;
    if (hasDds) {
        const DDSEventKey key = MakeKey(DDSEventKey{}, dds->second);
        NotifyDDSEventHandler(key);
        LogVerbose() << "Wardend DDS info "
                     << "serviceid:" << key.serviceId << "instanceid:" << key.instanceId
                     << "topicname:" << key.topicName;
        result = ddsEventMap_.count(key) != 0
                     ? RegisterExistingLocked(ddsEventMap_, key, info, isPub, DriverType::DDS)
                     : RegisterNewLocked(ddsEventMap_, key, info, isPub, DriverType::DDS);
    }
    if (hasSomeip) {
        const SomeipEventKey key = MakeKey(SomeipEventKey{}, someip->second);
        NotifySomeipEventHandler(key);
        LogVerbose() << "Wardend SOMEIP info "
                     << "serviceid:" << key.serviceId << "instanceid:" << key.instanceId
                     << "eventid:" << key.eventId;
        result = someipEventMap_.count(key) != 0
                     ? RegisterExistingLocked(someipEventMap_, key, info, isPub, DriverType::SOMEIP)
                     : RegisterNewLocked(someipEventMap_, key, info, isPub, DriverType::SOMEIP);
    }
    return result;
}

template <typename Map>
bool EventInfoManage::RegisterExistingLocked(Map& map, const typename Map::key_type& key,
                                             const EventRegisterInfo& info, bool isPub,
                                             DriverType driver) {
    LogVerbose() << "Wardend register event existed";
    const EventRegisterInfo own = OwnCopy(info, driver);
    EventRecord& record = map.at(key);
    if (isPub) {
        if (record.info.pubApp == own.appName) {
            record.info.isOnline = true;
            LogInfo() << "Wardend register pub app " << own.appName
                      << "repeated, cover old eventregisterinfo.";
        } else {
            // A second publisher silently takes the record over.
            record.info.pubApp = own.appName;
            record.info.isOnline = true;
            LogInfo() << "Wardend pub app " << own.appName << " update";
        }
        record.info.registerInfo = own;
        return true;
    }
    auto& subApps = record.info.subApps;
    if (std::count(subApps.begin(), subApps.end(), own.appName) != 0) {
        // The maps are refreshed all the same.
        StoreSubscriber(record, own, driver);
        LogInfo() << "Wardend register sub app " << own.appName << " repeated, do nothing";
    } else {
        subApps.push_back(own.appName);
        StoreSubscriber(record, own, driver);
        LogInfo() << "Wardend sub app " << own.appName << " add new one";
    }
    UpdateSubscriberE2E(info, driver);
    return true;
}

template <typename Map>
bool EventInfoManage::RegisterNewLocked(Map& map, const typename Map::key_type& key,
                                        const EventRegisterInfo& info, bool isPub,
                                        DriverType driver) {
    LogVerbose() << "Wardend register event unexisted";
    EventRecord record;
    record.info.registerInfo = OwnCopy(info, driver);
    const String& appName = info.appName;
    // The driver words of these two lines stand crossed.
    const char* const crossed = IsDds(driver) ? "Wardend SOMEIP " : "Wardend DDS ";
    if (isPub) {
        record.info.pubApp = appName;
        record.info.isOnline = true;
        LogInfo() << crossed << "pub app " << appName << " is registered, online";
    } else {
        record.info.subApps.push_back(appName);
        StoreSubscriber(record, record.info.registerInfo, driver);
        LogInfo() << crossed << "sub app " << appName << " is registered, online";
        record.info.isOnline = false;
        UpdateInstanceShortName(record, driver);
        UpdateSubscriberE2E(info, driver);
    }
    if (map.emplace(key, std::move(record)).second) {
        LogVerbose() << "Wardend new event register succeeded";
        return true;
    }
    LogWarn() << "Wardend new event register failed";
    return false;
}

void EventInfoManage::NotifyDDSEventHandler(const DDSEventKey& key) {
    const std::lock_guard<std::mutex> lock(handlerLock_);
    const auto it = ddsHandlerMap_.find(key);
    if (it == ddsHandlerMap_.end()) {
        return;
    }
    EventAllDriverIndex index;
    index.drivers.push_back(DriverType::DDS);
    index.ddsServiceId = key.serviceId;
    index.ddsInstanceId = key.instanceId;
    index.topicName = key.topicName;
    it->second(index);
}

void EventInfoManage::NotifySomeipEventHandler(const SomeipEventKey& key) {
    const std::lock_guard<std::mutex> lock(handlerLock_);
    const auto it = someipHandlerMap_.find(key);
    if (it == someipHandlerMap_.end()) {
        return;
    }
    EventAllDriverIndex index;
    index.drivers.push_back(DriverType::SOMEIP);
    index.someipServiceId = key.serviceId;
    index.someipInstanceId = key.instanceId;
    index.eventId = key.eventId;
    it->second(index);
}

void EventInfoManage::SetEventRegisterHandler(const EventRegisterHandler& handler,
                                              const LatencySwitch& latencySwitch) {
    const std::lock_guard<std::mutex> lock(handlerLock_);
    const LatencyIndex& index = latencySwitch.index;
    for (const DriverType driver : index.drivers) {
        if (IsDds(driver)) {
            ddsHandlerMap_[DDSEventKey{index.serviceId, index.instanceId, index.topicName, 0}] =
                handler;
        } else {
            someipHandlerMap_[SomeipEventKey{index.serviceId, index.instanceId, index.eventId, 0}] =
                handler;
        }
    }
}

bool EventInfoManage::UnregisterEventInfo(const EventRegisterInfo& info, const bool& isPub) {
    LogInfo() << "Wardend unregister eventinfo";
    const std::lock_guard<std::mutex> lock(eventLock_);
    const auto& eventMap = info.eventMap_;
    const auto dds = eventMap.find(DriverType::DDS);
    const auto someip = eventMap.find(DriverType::SOMEIP);
    const bool hasDds = dds != eventMap.end();
    const bool hasSomeip = someip != eventMap.end();
    LogVerbose() << "Wardend unregister event DDS:" << static_cast<int>(hasDds)
                 << " SOMEIP:" << static_cast<int>(hasSomeip);
    // With both entries only DDS is acted on.
    if (hasDds) {
        const DDSEventKey key = MakeKey(DDSEventKey{}, dds->second);
        if (ddsEventMap_.count(key) == 0) {
            LogInfo() << "Wardend unregister event-DDS does not exist";
            return false;
        }
        return isPub ? UnregisterPubLocked(ddsEventMap_, key, info.appName, DriverType::DDS)
                     : UnregisterSubLocked(ddsEventMap_, key, info.appName, DriverType::DDS);
    }
    if (hasSomeip) {
        const SomeipEventKey key = MakeKey(SomeipEventKey{}, someip->second);
        if (someipEventMap_.count(key) == 0) {
            LogInfo() << "Wardend unregister event-SOMEIP does not exist";
            return false;
        }
        return isPub ? UnregisterPubLocked(someipEventMap_, key, info.appName, DriverType::SOMEIP)
                     : UnregisterSubLocked(someipEventMap_, key, info.appName, DriverType::SOMEIP);
    }
    return false;
}

template <typename Map>
bool EventInfoManage::UnregisterPubLocked(Map& map, const typename Map::key_type& key,
                                          const String& appName, DriverType driver) {
    LogVerbose() << (IsDds(driver) ? "Wardend unregister event app is pub"
                                   : "Wardend unregister SOMEIP event app is pub");
    EventRecord& record = map.at(key);
    if (record.info.pubApp != appName) {
        LogWarn() << "Wardend unregister event pub app is not found.";
        return false;
    }
    // The record stays, offline, with its publisher's name.
    record.info.isOnline = false;
    UpdateInstanceShortName(record, driver);
    LogInfo() << "Event type " << record.info.registerInfo.eventType << " InstanceId "
              << RecordInstance(record, driver) << " the pub app " << appName << " is offline.";
    return true;
}

template <typename Map>
bool EventInfoManage::UnregisterSubLocked(Map& map, const typename Map::key_type& key,
                                          const String& appName, DriverType driver) {
    const char* const word = IsDds(driver) ? "DDS" : "SOMEIP";
    LogVerbose() << "Wardend unregister " << word << " event app is sub";
    const auto recordIt = map.find(key);
    EventRecord& record = recordIt->second;
    auto& subApps = record.info.subApps;
    const auto it = std::find(subApps.begin(), subApps.end(), appName);
    if (it == subApps.end()) {
        LogWarn() << "Wardend unregister " << word << " event sub app is not found.[sub=" << appName
                  << "]";
        return false;
    }
    subApps.erase(it);
    record.subInstanceShortNames.erase(appName);
    record.subEventTypes.erase(appName);
    record.subPids.erase(appName);
    LogInfo() << "Wardend unregister " << word << " event sub app is removed.[sub=" << appName
              << "]";
    if (record.info.pubApp.empty() && subApps.empty()) {
        map.erase(recordIt);
        LogInfo() << "Wardend event sub apps are null and " << appName
                  << " is removed successfully.";
    }
    return true;
}

bool EventInfoManage::CheckEventAliveLocked(EventRecord& record, DriverType driver,
                                            ProcessLiveness& liveness) {
    bool alive = false;
    if (!record.info.pubApp.empty() && record.info.isOnline) {
        if (liveness.IsAlive(record.info.registerInfo.pid)) {
            alive = true;
        } else {
            record.info.isOnline = false;
            UpdateInstanceShortName(record, driver);
            LogInfo() << (IsDds(driver) ? "DDS pub is offline" : "SOMEIP pub is offline");
        }
    }
    RemoveDeadSubsLocked(record, alive, driver, liveness);
    if (!record.info.pubApp.empty()) {
        // A record that once had a publisher passes, however dead that publisher is.
        LogInfo() << "Not no pub event.[pub=" << record.info.pubApp << "]";
        return true;
    }
    return alive;
}

void EventInfoManage::RemoveDeadSubsLocked(EventRecord& record, bool& alive, DriverType driver,
                                           ProcessLiveness& liveness) {
    auto& subApps = record.info.subApps;
    std::size_t index = 0;
    while (index < subApps.size()) {
        const auto pid = record.subPids.find(subApps[index]);
        if (liveness.IsAlive(pid == record.subPids.end() ? 0 : pid->second)) {
            alive = true;
            ++index;
            continue;
        }
        // The three maps keep the dead name; only an unregistration cleans them.
        subApps.erase(subApps.begin() + static_cast<std::ptrdiff_t>(index));
        LogInfo() << (IsDds(driver) ? "DDS sub is erased" : "SOMEIP sub is erased");
    }
}

template <typename Map>
void EventInfoManage::QueryMapLocked(Map& map, const String& eventType, bool all, DriverType driver,
                                     ProcessLiveness& liveness,
                                     std::vector<EventInfoWithPubSub>& result) {
    const char* const word = IsDds(driver) ? "DDS" : "SOMEIP";
    for (auto& [key, record] : map) {
        if (!all && record.info.registerInfo.eventType != eventType) {
            continue;
        }
        if (CheckEventAliveLocked(record, driver, liveness)) {
            result.push_back(record.info);
            LogVerbose() << word << " Event type is " << record.info.registerInfo.eventType
                         << " InstanceID is " << RecordInstance(record, driver);
        } else {
            LogWarn() << word << " eventinfo is gone";
        }
    }
}

std::vector<EventInfoWithPubSub> EventInfoManage::QueryEventInfo(const String& eventType) {
    const std::lock_guard<std::mutex> lock(eventLock_);
    const bool all = eventType == "ALL";
    if (all) {
        LogInfo() << "Wardend query eventinfo --- ALL";
    } else {
        LogInfo() << "Wardend query eventinfo " << eventType;
    }
    std::vector<EventInfoWithPubSub> result;
    if (all) {
        // Records are large: growing the vector would copy each of them again.
        result.reserve(ddsEventMap_.size() + someipEventMap_.size());
    }
    ProcessLiveness liveness;
    QueryMapLocked(ddsEventMap_, eventType, all, DriverType::DDS, liveness, result);
    QueryMapLocked(someipEventMap_, eventType, all, DriverType::SOMEIP, liveness, result);
    return result;
}

EventInfoWithPubSub EventInfoManage::QuerySubEventInfo(const QuerySubEventInfoIndex& index) {
    const std::lock_guard<std::mutex> lock(eventLock_);
    LogInfo() << "Wardend query sub eventinfo";
    EventInfoWithPubSub result;
    // Answers only for a record without an online publisher whose event type differs from the
    // index's.
    const auto matches = [&index](EventRecord& record, DriverType driver) {
        ProcessLiveness liveness;
        return CheckEventAliveLocked(record, driver, liveness) && !record.info.isOnline &&
               record.info.registerInfo.eventType != index.eventType;
    };
    if (index.driver != DriverType::DDS) {
        const auto it = someipEventMap_.find(
            SomeipEventKey{index.serviceId, index.instanceId, index.eventId, 0});
        if (it != someipEventMap_.end() && matches(it->second, DriverType::SOMEIP)) {
            result = it->second.info;
            LogVerbose() << "Wardend query sub eventinfo SOMEIP find";
        }
        return result;
    }
    const auto it =
        ddsEventMap_.find(DDSEventKey{index.serviceId, index.instanceId, index.topicName, 0});
    if (it != ddsEventMap_.end() && matches(it->second, DriverType::DDS)) {
        result = it->second.info;
        LogVerbose() << "Wardend query sub eventinfo DDS find";
    }
    return result;
}

bool EventInfoManage::QueryEventInfoByType(const String& eventType, EventInfoWithPubSub& out) {
    const std::lock_guard<std::mutex> lock(eventLock_);
    const auto findIn = [&eventType, &out](const auto& map) {
        for (const auto& [key, record] : map) {
            if (record.info.registerInfo.eventType == eventType &&
                (!record.info.subApps.empty() || record.info.isOnline)) {
                out = record.info;
                return true;
            }
        }
        return false;
    };
    return findIn(ddsEventMap_) || findIn(someipEventMap_);
}

std::vector<EventInfoWithPubSub> EventInfoManage::QueryDDSEventInfo(const DDSEventKey& key) {
    const std::lock_guard<std::mutex> lock(eventLock_);
    const auto it = ddsEventMap_.find(key);
    if (it == ddsEventMap_.end()) {
        return {};
    }
    return {it->second.info};
}

std::vector<EventInfoWithPubSub> EventInfoManage::QuerySomeipEventInfo(const SomeipEventKey& key) {
    const std::lock_guard<std::mutex> lock(eventLock_);
    const auto it = someipEventMap_.find(key);
    if (it == someipEventMap_.end()) {
        return {};
    }
    return {it->second.info};
}

template <typename Map>
void EventInfoManage::GetNodeEventInfoLocked(const Map& map, const String& nodeName,
                                             std::int32_t pid, std::set<String>& instances,
                                             std::set<String>& pubTypes, std::set<String>& subTypes,
                                             DriverType driver) {
    for (const auto& [key, record] : map) {
        if (record.info.isOnline && record.info.pubApp == nodeName &&
            record.info.registerInfo.pid == pid) {
            pubTypes.insert(record.info.registerInfo.eventType);
            GetServiceInstanceInfo(instances, record, driver);
        }
        const auto& subApps = record.info.subApps;
        if (std::find(subApps.begin(), subApps.end(), nodeName) == subApps.end()) {
            continue;
        }
        // The pid test keeps an old registration of the name from showing for a new process.
        const auto subPid = record.subPids.find(nodeName);
        if ((subPid == record.subPids.end() ? 0 : subPid->second) != pid) {
            continue;
        }
        const auto type = record.subEventTypes.find(nodeName);
        const auto shortName = record.subInstanceShortNames.find(nodeName);
        subTypes.insert(type == record.subEventTypes.end() ? String() : type->second);
        instances.insert(shortName == record.subInstanceShortNames.end() ? String()
                                                                         : shortName->second);
    }
}

void EventInfoManage::GetNodeEventInfo(const String& nodeName, NodeInfo& node,
                                       std::set<String>& instances) {
    const std::lock_guard<std::mutex> lock(eventLock_);
    std::set<String> pubTypes;
    std::set<String> subTypes;
    LogInfo() << "Node " << nodeName << " get NodeInfo-DDS from EventInfoManage";
    GetNodeEventInfoLocked(ddsEventMap_, nodeName, node.pid, instances, pubTypes, subTypes,
                           DriverType::DDS);
    LogInfo() << "Node " << nodeName << " get NodeInfo-DDS from EventInfoManage finished";
    // The SOME/IP opening line is at verbose level, its closing line at info.
    LogVerbose() << "Node " << nodeName << " get NodeInfo-SOMEIP from EventInfoManage";
    GetNodeEventInfoLocked(someipEventMap_, nodeName, node.pid, instances, pubTypes, subTypes,
                           DriverType::SOMEIP);
    LogInfo() << "Node " << nodeName << " get NodeInfo-SOMEIP from EventInfoManage finished";
    for (const auto& type : pubTypes) {
        node.pubEvents.push_back(type);
        LogInfo() << "Node " << nodeName << " add pub: " << type;
    }
    for (const auto& type : subTypes) {
        node.subEvents.push_back(type);
        LogInfo() << "Node " << nodeName << " add sub: " << type;
    }
}

std::map<DDSEventKey, EventRecord> EventInfoManage::DdsEvents() const {
    const std::lock_guard<std::mutex> lock(eventLock_);
    return ddsEventMap_;
}

std::map<SomeipEventKey, EventRecord> EventInfoManage::SomeipEvents() const {
    const std::lock_guard<std::mutex> lock(eventLock_);
    return someipEventMap_;
}

}  // namespace vesk::wardend
