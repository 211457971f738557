#include "registry/event_info_manage.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <type_traits>
#include <utility>

#include "records/wardend_log.h"
#include "registry/e2e_info_manage.h"
#include "registry/node_info_manage.h"
#include "registry/packed_someip.h"
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

// Replaces the record's registration by `own`, a registration of the record's driver.
void StoreRegistration(StoredEvent& record, const EventRegisterInfo& own) {
    EventRegisterInfo rest = own;
    RecordPacker packer;
    packer.Put(rest.eventType);
    packer.Put(rest.appName);
    rest.eventType.clear();
    rest.appName.clear();
    rest.pid = 0;
    packer.Put(rest);
    record.registration = PackedBytes(packer.Take());
    record.pid = own.pid;
    record.shortName = EventShortName::kRegistered;
    for (const bool raw : {false, true}) {
        const std::uint64_t size =
            lumo::serialize::someip::PlainWriter<lumo::serialize::ByteOrder::kBigEndian>(raw).Size(
                own);
        record.someipSizes[raw ? 1 : 0] =
            size < std::numeric_limits<std::uint32_t>::max() ? static_cast<std::uint32_t>(size) : 0;
    }
}

// The first two strings of the packed registration, read in place.
std::string_view PackedString(const StoredEvent& record, bool second) {
    PackedCursor in(record.registration.View());
    const std::string_view first = in.Text();
    return second ? in.Text() : first;
}

std::string_view EventTypeOf(const StoredEvent& record) {
    return PackedString(record, false);
}

// The publisher's name, empty when the record has none.
std::string_view PubAppOf(const StoredEvent& record) {
    return record.hasPub ? PackedString(record, true) : std::string_view();
}

QueriedEvent SharedRegistration(const StoredEvent& record, DriverType driver) {
    return QueriedEvent{record.registration, record.pid, record.someipSizes,
                        record.shortName,    driver,     record.hasPub};
}

// The record's registration as it was stored, with its short name as the publisher's state
// left it.
EventRegisterInfo RegistrationOf(const QueriedEvent& event) {
    const DriverType driver = event.driver;
    EventRegisterInfo info;
    RecordUnpacker unpacker(event.registration.View());
    unpacker.Get(info.eventType);
    unpacker.Get(info.appName);
    String eventType = std::move(info.eventType);
    String appName = std::move(info.appName);
    unpacker.Get(info);
    info.eventType = std::move(eventType);
    info.appName = std::move(appName);
    info.pid = event.pid;
    const auto it = info.eventMap_.find(driver);
    if (it == info.eventMap_.end() || event.shortName == EventShortName::kRegistered) {
        return info;
    }
    EventInfo& entry = it->second;
    if (event.shortName == EventShortName::kCleared) {
        ShortName(entry, driver).clear();
        return info;
    }
    ShortName(entry, driver) =
        (event.shortName == EventShortName::kUnknownPub ? "/UnknownPubEvent_"
                                                        : "/OfflinePubEvent_") +
        Decimal(ServiceOf(entry, driver)) + "_" + Decimal(InstanceOf(entry, driver)) +
        (IsDds(driver) ? "_DDS" : "_SOMEIP");
    return info;
}

EventRegisterInfo RegistrationOf(const StoredEvent& record, DriverType driver) {
    return RegistrationOf(SharedRegistration(record, driver));
}

// What queries hand out of a record but its registration (and the publisher's name in it).
EventInfoWithPubSub StateOf(const StoredEvent& record) {
    EventInfoWithPubSub info;
    if (record.subscribers != nullptr) {
        info.subApps = record.subscribers->subApps;
    }
    info.isOnline = record.isOnline;
    return info;
}

void AddRegistration(const QueriedEvent& event, EventInfoWithPubSub& info) {
    info.registerInfo = RegistrationOf(event);
    if (event.hasPub) {
        info.pubApp = info.registerInfo.appName;
    }
}

// What queries hand out of a record.
EventInfoWithPubSub InfoOf(const StoredEvent& record, DriverType driver) {
    EventInfoWithPubSub info = StateOf(record);
    AddRegistration(SharedRegistration(record, driver), info);
    return info;
}

// The publisher-side short name of a record.
void GetServiceInstanceInfo(std::set<String>& instances, const StoredEvent& record,
                            DriverType driver) {
    const EventRegisterInfo registration = RegistrationOf(record, driver);
    const auto& map = registration.eventMap_;
    if (map.empty()) {
        LogWarn() << "Something is wrong. GetServiceInstanceInfo eventMap_ is null!";
        return;
    }
    const EventInfo& entry = map.begin()->second;
    AddShownInstance(instances, ShortName(entry, driver), driver, ServiceOf(entry, driver),
                     InstanceOf(entry, driver));
}

// The record's own short name from the state of its publisher.
void UpdateInstanceShortName(StoredEvent& record, DriverType driver, std::uint16_t serviceId) {
    LogInfo() << "Wardend register event instanceid unexisted UpdateInstanceShortName";
    if (driver != DriverType::DDS && driver != DriverType::SOMEIP) {
        return;
    }
    if (IsDds(driver) && serviceId == kExemptDdsService) {
        record.shortName = EventShortName::kCleared;
    } else if (PubAppOf(record).empty()) {
        record.shortName = EventShortName::kUnknownPub;
    } else if (!record.isOnline) {
        record.shortName = EventShortName::kOfflinePub;
    }
}

void StoreSubscriber(StoredEvent& record, const EventRegisterInfo& own, DriverType driver) {
    EventSubscriber& subscriber = record.subscribers->byName[own.appName];
    subscriber.instanceShortName = GetInstanceShortName(own, driver);
    subscriber.eventType = own.eventType;
    subscriber.pid = own.pid;
}

// A table as the records it stands for, with the three subscriber maps.
template <typename Key>
std::map<Key, EventRecord> Expand(const std::map<Key, StoredEvent>& map, DriverType driver) {
    std::map<Key, EventRecord> records;
    for (const auto& [key, stored] : map) {
        EventRecord& record = records[key];
        record.info = InfoOf(stored, driver);
        if (stored.subscribers == nullptr) {
            continue;
        }
        for (const auto& [name, subscriber] : stored.subscribers->byName) {
            record.subInstanceShortNames[name] = subscriber.instanceShortName;
            record.subEventTypes[name] = subscriber.eventType;
            record.subPids[name] = subscriber.pid;
        }
    }
    return records;
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
    StoredEvent& record = map.at(key);
    if (isPub) {
        if (PubAppOf(record) == own.appName) {
            LogInfo() << "Wardend register pub app " << own.appName
                      << "repeated, cover old eventregisterinfo.";
        } else {
            // A second publisher silently takes the record over.
            LogInfo() << "Wardend pub app " << own.appName << " update";
        }
        record.hasPub = true;
        record.isOnline = true;
        StoreRegistration(record, own);
        return true;
    }
    if (record.subscribers == nullptr) {
        record.subscribers = std::make_unique<EventSubscribers>();
    }
    auto& subApps = record.subscribers->subApps;
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
    StoredEvent record;
    const EventRegisterInfo own = OwnCopy(info, driver);
    StoreRegistration(record, own);
    const String& appName = info.appName;
    // The driver words of these two lines stand crossed.
    const char* const crossed = IsDds(driver) ? "Wardend SOMEIP " : "Wardend DDS ";
    if (isPub) {
        record.hasPub = true;
        record.isOnline = true;
        LogInfo() << crossed << "pub app " << appName << " is registered, online";
    } else {
        record.subscribers = std::make_unique<EventSubscribers>();
        record.subscribers->subApps.push_back(appName);
        StoreSubscriber(record, own, driver);
        LogInfo() << crossed << "sub app " << appName << " is registered, online";
        record.isOnline = false;
        UpdateInstanceShortName(record, driver, key.serviceId);
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
    StoredEvent& record = map.at(key);
    if (PubAppOf(record) != appName) {
        LogWarn() << "Wardend unregister event pub app is not found.";
        return false;
    }
    // The record stays, offline, with its publisher's name.
    record.isOnline = false;
    UpdateInstanceShortName(record, driver, key.serviceId);
    LogInfo() << "Event type " << EventTypeOf(record) << " InstanceId " << key.instanceId
              << " the pub app " << appName << " is offline.";
    return true;
}

template <typename Map>
bool EventInfoManage::UnregisterSubLocked(Map& map, const typename Map::key_type& key,
                                          const String& appName, DriverType driver) {
    const char* const word = IsDds(driver) ? "DDS" : "SOMEIP";
    LogVerbose() << "Wardend unregister " << word << " event app is sub";
    const auto recordIt = map.find(key);
    StoredEvent& record = recordIt->second;
    if (record.subscribers == nullptr) {
        record.subscribers = std::make_unique<EventSubscribers>();
    }
    auto& subApps = record.subscribers->subApps;
    const auto it = std::find(subApps.begin(), subApps.end(), appName);
    if (it == subApps.end()) {
        LogWarn() << "Wardend unregister " << word << " event sub app is not found.[sub=" << appName
                  << "]";
        return false;
    }
    subApps.erase(it);
    record.subscribers->byName.erase(appName);
    LogInfo() << "Wardend unregister " << word << " event sub app is removed.[sub=" << appName
              << "]";
    if (PubAppOf(record).empty() && subApps.empty()) {
        map.erase(recordIt);
        LogInfo() << "Wardend event sub apps are null and " << appName
                  << " is removed successfully.";
    }
    return true;
}

bool EventInfoManage::CheckEventAliveLocked(StoredEvent& record, DriverType driver,
                                            std::uint16_t serviceId, ProcessLiveness& liveness) {
    bool alive = false;
    const std::string_view pubApp = PubAppOf(record);
    if (!pubApp.empty() && record.isOnline) {
        if (liveness.IsAlive(record.pid)) {
            alive = true;
        } else {
            record.isOnline = false;
            UpdateInstanceShortName(record, driver, serviceId);
            LogInfo() << (IsDds(driver) ? "DDS pub is offline" : "SOMEIP pub is offline");
        }
    }
    RemoveDeadSubsLocked(record, alive, driver, liveness);
    if (!pubApp.empty()) {
        // A record that once had a publisher passes, however dead that publisher is.
        LogInfo() << "Not no pub event.[pub=" << pubApp << "]";
        return true;
    }
    return alive;
}

void EventInfoManage::RemoveDeadSubsLocked(StoredEvent& record, bool& alive, DriverType driver,
                                           ProcessLiveness& liveness) {
    if (record.subscribers == nullptr) {
        return;
    }
    auto& subApps = record.subscribers->subApps;
    const auto& byName = record.subscribers->byName;
    std::size_t index = 0;
    while (index < subApps.size()) {
        const auto subscriber = byName.find(subApps[index]);
        if (liveness.IsAlive(subscriber == byName.end() ? 0 : subscriber->second.pid)) {
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
                                     std::vector<AnsweredEvent>& answered) {
    const char* const word = IsDds(driver) ? "DDS" : "SOMEIP";
    for (auto& [key, record] : map) {
        if (!all && EventTypeOf(record) != eventType) {
            continue;
        }
        if (CheckEventAliveLocked(record, driver, key.serviceId, liveness)) {
            AnsweredEvent& event = answered.emplace_back();
            event.registration = SharedRegistration(record, driver);
            if (record.subscribers != nullptr) {
                event.subApps = record.subscribers->subApps;
            }
            event.isOnline = record.isOnline;
            LogVerbose() << word << " Event type is " << EventTypeOf(record) << " InstanceID is "
                         << key.instanceId;
        } else {
            LogWarn() << word << " eventinfo is gone";
        }
    }
}

std::vector<AnsweredEvent> EventInfoManage::CollectEventInfo(const String& eventType) {
    const bool all = eventType == "ALL";
    std::vector<AnsweredEvent> answered;
    // The lock covers the liveness checks and a reference to each registration; the unpacking
    // or encoding, most of the work, comes after it, so that registrations do not wait for a
    // whole answer.
    const std::lock_guard<std::mutex> lock(eventLock_);
    if (all) {
        LogInfo() << "Wardend query eventinfo --- ALL";
        answered.reserve(ddsEventMap_.size() + someipEventMap_.size());
    } else {
        LogInfo() << "Wardend query eventinfo " << eventType;
    }
    ProcessLiveness liveness;
    QueryMapLocked(ddsEventMap_, eventType, all, DriverType::DDS, liveness, answered);
    QueryMapLocked(someipEventMap_, eventType, all, DriverType::SOMEIP, liveness, answered);
    return answered;
}

std::vector<EventInfoWithPubSub> EventInfoManage::QueryEventInfo(const String& eventType) {
    std::vector<AnsweredEvent> answered = CollectEventInfo(eventType);
    std::vector<EventInfoWithPubSub> result(answered.size());
    for (std::size_t i = 0; i < answered.size(); ++i) {
        result[i].subApps = std::move(answered[i].subApps);
        result[i].isOnline = answered[i].isOnline;
        AddRegistration(answered[i].registration, result[i]);
    }
    return result;
}

EventInfoSomeipAnswer EventInfoManage::QueryEventInfoSomeip(const String& eventType,
                                                            lumo::serialize::ByteOrder order,
                                                            bool isStringRaw) {
    return EventInfoSomeipAnswer(CollectEventInfo(eventType), order, isStringRaw);
}

namespace {

// EventRegisterInfo from a packed registration (eventType and appName in front, then the
// record without them and without pid) and the record's pid.
template <typename Out>
void WritePackedRegistration(PackedSomeipReader& reader, std::string_view eventType,
                             std::string_view appName, std::int32_t pid, Out& out) {
    static const EventRegisterInfo kDefault{};
    const bool packed = reader.In().Byte() == 1;
    auto field = [&](const auto& member) {
        using F = std::decay_t<decltype(member)>;
        const void* const at = &member;
        if constexpr (std::is_same_v<F, String>) {
            if (at == &kDefault.appName || at == &kDefault.eventType) {
                if (packed) {
                    reader.Skip<F>();
                }
                out.String(at == &kDefault.appName ? appName : eventType);
                return;
            }
        } else if constexpr (std::is_same_v<F, std::int32_t>) {
            if (at == &kDefault.pid) {
                if (packed) {
                    reader.Skip<F>();
                }
                out.Scalar(pid);
                return;
            }
        }
        if (packed) {
            reader.Copy<F>(out);
        } else {
            out.Value(member);
        }
    };
    kDefault.enumerate(field);
}

// One EventInfoWithPubSub; false when its packed registration is malformed.
template <typename Out>
bool WriteAnswered(const AnsweredEvent& event, Out& out) {
    const QueriedEvent& queried = event.registration;
    String builtAppName;
    std::string_view appName;
    PackedSomeipReader reader(queried.registration.View());
    const std::uint32_t knownSize = queried.someipSizes[out.IsStringRaw() ? 1 : 0];
    if (queried.shortName == EventShortName::kRegistered) {
        const std::string_view eventType = reader.In().Text();
        appName = reader.In().Text();
        if constexpr (!Out::kWrites) {
            if (knownSize != 0) {
                out.Advance(knownSize);
            } else {
                WritePackedRegistration(reader, eventType, appName, queried.pid, out);
            }
        } else {
            WritePackedRegistration(reader, eventType, appName, queried.pid, out);
        }
        if (!reader.Ok()) {
            return false;
        }
    } else {
        // The publisher's state renames the record: built, as the query builds it.
        EventRegisterInfo info = RegistrationOf(queried);
        out.Value(info);
        builtAppName = std::move(info.appName);
        appName = builtAppName;
    }
    const std::uint64_t frame = out.BeginFrame();
    for (const String& subApp : event.subApps) {
        out.String(subApp);
    }
    if (!out.EndFrame(frame)) {
        return false;
    }
    out.String(queried.hasPub ? appName : std::string_view());
    out.Scalar(event.isOnline);
    return true;
}

}  // namespace

EventInfoSomeipAnswer::EventInfoSomeipAnswer(std::vector<AnsweredEvent> events,
                                             lumo::serialize::ByteOrder order, bool isStringRaw)
    : events_(std::move(events)), order_(order), isStringRaw_(isStringRaw) {}

template <lumo::serialize::ByteOrder kOrder, bool kWrite>
// NOLINTNEXTLINE(readability-non-const-parameter): the writing walk writes through out
std::uint64_t EventInfoSomeipAnswer::Walk(unsigned char* out, std::uint64_t capacity) const {
    SomeipOut<kOrder, kWrite> writer(out, isStringRaw_, capacity);
    const std::uint64_t frame = writer.BeginFrame();
    for (const AnsweredEvent& event : events_) {
        if (!WriteAnswered(event, writer)) {
            LogError() << "Wardend query eventinfo: a stored registration does not unpack";
            return lumo::serialize::kSizeFailure;
        }
    }
    return writer.EndFrame(frame) ? writer.Written() : lumo::serialize::kSizeFailure;
}

std::uint64_t EventInfoSomeipAnswer::Size() {
    if (size_ == lumo::serialize::kSizeFailure) {
        size_ = order_ == lumo::serialize::ByteOrder::kLittleEndian
                    ? Walk<lumo::serialize::ByteOrder::kLittleEndian, false>(nullptr, 0)
                    : Walk<lumo::serialize::ByteOrder::kBigEndian, false>(nullptr, 0);
    }
    return size_;
}

bool EventInfoSomeipAnswer::Write(unsigned char* out) {
    const std::uint64_t size = Size();
    if (size > lumo::serialize::kSizeMax) {
        return false;
    }
    const std::uint64_t written =
        order_ == lumo::serialize::ByteOrder::kLittleEndian
            ? Walk<lumo::serialize::ByteOrder::kLittleEndian, true>(out, size)
            : Walk<lumo::serialize::ByteOrder::kBigEndian, true>(out, size);
    if (written != size) {
        LogError() << "Wardend query eventinfo: the answer came out at " << written
                   << " bytes, sized at " << size;
        return false;
    }
    return true;
}

EventInfoWithPubSub EventInfoManage::QuerySubEventInfo(const QuerySubEventInfoIndex& index) {
    const std::lock_guard<std::mutex> lock(eventLock_);
    LogInfo() << "Wardend query sub eventinfo";
    EventInfoWithPubSub result;
    // Answers only for a record without an online publisher whose event type differs from the
    // index's.
    const auto matches = [&index](StoredEvent& record, DriverType driver, std::uint16_t serviceId) {
        ProcessLiveness liveness;
        return CheckEventAliveLocked(record, driver, serviceId, liveness) && !record.isOnline &&
               EventTypeOf(record) != index.eventType;
    };
    if (index.driver != DriverType::DDS) {
        const auto it = someipEventMap_.find(
            SomeipEventKey{index.serviceId, index.instanceId, index.eventId, 0});
        if (it != someipEventMap_.end() &&
            matches(it->second, DriverType::SOMEIP, it->first.serviceId)) {
            result = InfoOf(it->second, DriverType::SOMEIP);
            LogVerbose() << "Wardend query sub eventinfo SOMEIP find";
        }
        return result;
    }
    const auto it =
        ddsEventMap_.find(DDSEventKey{index.serviceId, index.instanceId, index.topicName, 0});
    if (it != ddsEventMap_.end() && matches(it->second, DriverType::DDS, it->first.serviceId)) {
        result = InfoOf(it->second, DriverType::DDS);
        LogVerbose() << "Wardend query sub eventinfo DDS find";
    }
    return result;
}

bool EventInfoManage::QueryEventInfoByType(const String& eventType, EventInfoWithPubSub& out) {
    const std::lock_guard<std::mutex> lock(eventLock_);
    const auto findIn = [&eventType, &out](const auto& map, DriverType driver) {
        for (const auto& [key, record] : map) {
            const bool hasSubs =
                record.subscribers != nullptr && !record.subscribers->subApps.empty();
            if (EventTypeOf(record) == eventType && (hasSubs || record.isOnline)) {
                out = InfoOf(record, driver);
                return true;
            }
        }
        return false;
    };
    return findIn(ddsEventMap_, DriverType::DDS) || findIn(someipEventMap_, DriverType::SOMEIP);
}

std::vector<EventInfoWithPubSub> EventInfoManage::QueryDDSEventInfo(const DDSEventKey& key) {
    const std::lock_guard<std::mutex> lock(eventLock_);
    const auto it = ddsEventMap_.find(key);
    if (it == ddsEventMap_.end()) {
        return {};
    }
    return {InfoOf(it->second, DriverType::DDS)};
}

std::vector<EventInfoWithPubSub> EventInfoManage::QuerySomeipEventInfo(const SomeipEventKey& key) {
    const std::lock_guard<std::mutex> lock(eventLock_);
    const auto it = someipEventMap_.find(key);
    if (it == someipEventMap_.end()) {
        return {};
    }
    return {InfoOf(it->second, DriverType::SOMEIP)};
}

template <typename Map>
void EventInfoManage::GetNodeEventInfoLocked(const Map& map, const String& nodeName,
                                             std::int32_t pid, std::set<String>& instances,
                                             std::set<String>& pubTypes, std::set<String>& subTypes,
                                             DriverType driver) {
    for (const auto& [key, record] : map) {
        if (record.isOnline && PubAppOf(record) == nodeName && record.pid == pid) {
            pubTypes.emplace(EventTypeOf(record));
            GetServiceInstanceInfo(instances, record, driver);
        }
        if (record.subscribers == nullptr) {
            continue;
        }
        const auto& subApps = record.subscribers->subApps;
        if (std::find(subApps.begin(), subApps.end(), nodeName) == subApps.end()) {
            continue;
        }
        // The pid test keeps an old registration of the name from showing for a new process.
        const auto& byName = record.subscribers->byName;
        const auto found = byName.find(nodeName);
        const EventSubscriber subscriber =
            found == byName.end() ? EventSubscriber{} : found->second;
        if (subscriber.pid != pid) {
            continue;
        }
        subTypes.insert(subscriber.eventType);
        instances.insert(subscriber.instanceShortName);
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
    return Expand(ddsEventMap_, DriverType::DDS);
}

std::map<SomeipEventKey, EventRecord> EventInfoManage::SomeipEvents() const {
    const std::lock_guard<std::mutex> lock(eventLock_);
    return Expand(someipEventMap_, DriverType::SOMEIP);
}

}  // namespace vesk::wardend
