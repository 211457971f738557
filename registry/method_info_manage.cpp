#include "registry/method_info_manage.h"

#include <algorithm>

#include "records/wardend_log.h"
#include "registry/node_info_manage.h"
#include "registry/registry_names.h"

namespace vesk::wardend {

namespace {

DDSMethodKey MakeKey(const DDSMethodKey& /*tag*/, const MethodRegisterInfo& info,
                     const MethodInfo& entry) {
    return DDSMethodKey{info.serviceId,           info.instanceId, entry.dds.requestTopicName,
                        entry.dds.replyTopicName, entry.dds.text,  0};
}
SomeipMethodKey MakeKey(const SomeipMethodKey& /*tag*/, const MethodRegisterInfo& info,
                        const MethodInfo& entry) {
    return SomeipMethodKey{info.serviceId, info.instanceId, entry.someip.methodId, 0};
}

// The registration reduced to the entry of one driver, with an empty short name generated
// (except for the exempt DDS service).
MethodRegisterInfo OwnCopy(const MethodRegisterInfo& info, DriverType driver) {
    MethodRegisterInfo own = info;
    for (auto it = own.methodMap_.begin(); it != own.methodMap_.end();) {
        it = it->first == driver ? std::next(it) : own.methodMap_.erase(it);
    }
    const auto it = own.methodMap_.find(driver);
    const bool exempt = IsDds(driver) && own.serviceId == kExemptDdsService;
    if (it != own.methodMap_.end() && ShortName(it->second, driver).empty() && !exempt) {
        ShortName(it->second, driver) = UnnamedName(driver, own.serviceId, own.instanceId);
    }
    return own;
}

String GetInstanceShortName(const MethodRegisterInfo& info, DriverType driver) {
    if (info.methodMap_.empty()) {
        LogWarn() << "Something is wrong. GetInstanceShortName methodMap_ is null!";
        return "/methodMap_/is/null";
    }
    return ShownInstanceName(ShortName(info.methodMap_.begin()->second, driver), driver,
                             info.serviceId, info.instanceId);
}

void GetServiceInstanceInfo(std::set<String>& instances, const MethodRecord& record,
                            DriverType driver) {
    const MethodRegisterInfo& info = record.info.registerInfo;
    if (info.methodMap_.empty()) {
        LogWarn() << "Something is wrong. GetServiceInstanceInfo methodMap_ is null!";
        return;
    }
    AddShownInstance(instances, ShortName(info.methodMap_.begin()->second, driver), driver,
                     info.serviceId, info.instanceId);
}

void StoreClient(MethodRecord& record, const MethodRegisterInfo& own, DriverType driver) {
    record.subInstanceShortNames[own.appName] = GetInstanceShortName(own, driver);
    record.subNames[own.appName] = own.name;
    record.subPids[own.appName] = own.pid;
}

}  // namespace

MethodInfoManage& MethodInfoManage::GetInstance() {
    static MethodInfoManage instance;
    return instance;
}

bool MethodInfoManage::RegisterMethodInfo(const MethodRegisterInfo& info, const bool& isPub) {
    LogInfo() << "Wardend register methodinfo";
    const std::lock_guard<std::mutex> lock(methodLock_);
    const auto& methodMap = info.methodMap_;
    const auto dds = methodMap.find(DriverType::DDS);
    const auto someip = methodMap.find(DriverType::SOMEIP);
    const bool hasDds = dds != methodMap.end();
    const bool hasSomeip = someip != methodMap.end();
    LogInfo() << "Wardend register method DDS:" << static_cast<int>(hasDds)
              << " SOMEIP:" << static_cast<int>(hasSomeip);
    if (!NodeInfoManage::GetInstance().UpdateNodeInfo(info.appName, info.pid, true)) {
        LogInfo() << "Wardend register method but update node list fail";
    }
    bool result = false;
    if (hasDds) {
        const DDSMethodKey key = MakeKey(DDSMethodKey{}, info, dds->second);
        result = ddsMethodMap_.count(key) != 0
                     ? RegisterExistingLocked(ddsMethodMap_, key, info, isPub, DriverType::DDS)
                     : RegisterNewLocked(ddsMethodMap_, key, info, isPub, DriverType::DDS);
    }
    if (hasSomeip) {
        const SomeipMethodKey key = MakeKey(SomeipMethodKey{}, info, someip->second);
        result =
            someipMethodMap_.count(key) != 0
                ? RegisterExistingLocked(someipMethodMap_, key, info, isPub, DriverType::SOMEIP)
                : RegisterNewLocked(someipMethodMap_, key, info, isPub, DriverType::SOMEIP);
    }
    return result;
}

template <typename Map>
bool MethodInfoManage::RegisterExistingLocked(Map& map, const typename Map::key_type& key,
                                              const MethodRegisterInfo& info, bool isPub,
                                              DriverType driver) {
    LogVerbose() << "Wardend register method existed";
    const MethodRegisterInfo own = OwnCopy(info, driver);
    MethodRecord& record = map.at(key);
    if (isPub) {
        if (record.info.pubApp == own.appName) {
            record.info.isOnline = true;
            LogInfo() << "Wardend register pub app " << own.appName
                      << "repeated, cover old methodregisterinfo.";
        } else {
            record.info.pubApp = own.appName;
            record.info.isOnline = true;
            LogInfo() << "Wardend pub app " << own.appName << " update";
        }
        record.info.registerInfo = own;
        return true;
    }
    auto& subApps = record.info.subApps;
    if (std::count(subApps.begin(), subApps.end(), own.appName) != 0) {
        StoreClient(record, own, driver);
        LogInfo() << "Wardend register sub app " << own.appName << " repeated, do nothing";
    } else {
        subApps.push_back(own.appName);
        StoreClient(record, own, driver);
        LogInfo() << "Wardend sub app " << own.appName << " add new one";
    }
    return true;
}

template <typename Map>
bool MethodInfoManage::RegisterNewLocked(Map& map, const typename Map::key_type& key,
                                         const MethodRegisterInfo& info, bool isPub,
                                         DriverType driver) {
    // Verbose for DDS, info for SOME/IP.
    if (IsDds(driver)) {
        LogVerbose() << "Wardend register method unexisted";
    } else {
        LogInfo() << "Wardend register method unexisted";
    }
    MethodRecord record;
    record.info.registerInfo = OwnCopy(info, driver);
    if (isPub) {
        record.info.pubApp = info.appName;
        record.info.isOnline = true;
        LogInfo() << "Wardend pub app " << info.appName << " is registered, online";
    } else {
        record.info.subApps.push_back(info.appName);
        StoreClient(record, record.info.registerInfo, driver);
        LogInfo() << "Wardend sub app " << info.appName << " is registered";
        record.info.isOnline = false;
    }
    if (map.emplace(key, std::move(record)).second) {
        LogVerbose() << "Wardend new method register succeeded";
        return true;
    }
    LogWarn() << "Wardend new method register failed";
    return false;
}

bool MethodInfoManage::UnregisterMethodInfo(const MethodRegisterInfo& info, const bool& isPub) {
    LogInfo() << "Wardend unregister methodinfo";
    const std::lock_guard<std::mutex> lock(methodLock_);
    const auto& methodMap = info.methodMap_;
    const auto dds = methodMap.find(DriverType::DDS);
    const auto someip = methodMap.find(DriverType::SOMEIP);
    const auto act = [&info, isPub](auto& map, const auto& key) {
        if (map.count(key) == 0) {
            LogWarn() << "Wardend unregister method does not exist";
            return false;
        }
        // The same word on both drivers.
        LogVerbose() << "Wardend unregister method-DDS";
        return isPub ? UnregisterPubLocked(map, key, info.appName)
                     : UnregisterSubLocked(map, key, info.appName);
    };
    if (dds != methodMap.end()) {
        return act(ddsMethodMap_, MakeKey(DDSMethodKey{}, info, dds->second));
    }
    if (someip != methodMap.end()) {
        return act(someipMethodMap_, MakeKey(SomeipMethodKey{}, info, someip->second));
    }
    return false;
}

template <typename Map>
bool MethodInfoManage::UnregisterPubLocked(Map& map, const typename Map::key_type& key,
                                           const String& appName) {
    LogVerbose() << "Wardend unregister method app is pub";
    MethodRecord& record = map.at(key);
    if (record.info.pubApp != appName) {
        LogWarn() << "Wardend unregister method pub app is not found";
        return false;
    }
    record.info.isOnline = false;
    LogInfo() << "Method type " << record.info.registerInfo.name << " InstanceId "
              << record.info.registerInfo.instanceId << " the pub app " << appName << " is offline";
    return true;
}

template <typename Map>
bool MethodInfoManage::UnregisterSubLocked(Map& map, const typename Map::key_type& key,
                                           const String& appName) {
    LogVerbose() << "Wardend unregister method app is sub";
    const auto recordIt = map.find(key);
    MethodRecord& record = recordIt->second;
    auto& subApps = record.info.subApps;
    const auto it = std::find(subApps.begin(), subApps.end(), appName);
    if (it == subApps.end()) {
        LogWarn() << "Wardend unregister method sub app is not found";
        return false;
    }
    subApps.erase(it);
    record.subInstanceShortNames.erase(appName);
    record.subNames.erase(appName);
    record.subPids.erase(appName);
    LogInfo() << "Wardend unregister method sub app is removed";
    if (record.info.pubApp.empty() && subApps.empty()) {
        map.erase(recordIt);
        LogInfo() << "Wardend method sub apps are null and " << appName
                  << " is removed successfully";
    }
    return true;
}

bool MethodInfoManage::CheckMethodAliveLocked(MethodRecord& record, DriverType driver,
                                              ProcessLiveness& liveness) {
    if (record.info.pubApp.empty() || !record.info.isOnline) {
        return false;
    }
    if (liveness.IsAlive(record.info.registerInfo.pid)) {
        return true;
    }
    record.info.isOnline = false;
    LogInfo() << (IsDds(driver) ? "DDS pub is offline" : "SOMEIP pub is offline");
    return false;
}

template <typename Map>
void MethodInfoManage::QueryMapLocked(Map& map, const String& name, bool all, DriverType driver,
                                      ProcessLiveness& liveness,
                                      std::vector<MethodRegisterInfo>& result) {
    const char* const word = IsDds(driver) ? "DDS" : "SOMEIP";
    for (auto& [key, record] : map) {
        // "ALL" also skips records without a server name; by name only isOnline counts.
        if (all ? (record.info.pubApp.empty() || !record.info.isOnline)
                : (record.info.registerInfo.name != name || !record.info.isOnline)) {
            continue;
        }
        if (!CheckMethodAliveLocked(record, driver, liveness)) {
            LogInfo() << "Wardend " << word << " methodinfo is gone";
            continue;
        }
        result.push_back(record.info.registerInfo);
        if (all) {
            LogVerbose() << "Wardend pushing " << word << " methodinfo";
        } else {
            LogInfo() << word << " Method type is " << name << " InstanceID is "
                      << record.info.registerInfo.instanceId;
        }
    }
}

std::vector<MethodRegisterInfo> MethodInfoManage::QueryMethodInfo(const String& name) {
    const std::lock_guard<std::mutex> lock(methodLock_);
    const bool all = name == "ALL";
    if (all) {
        LogInfo() << "Wardend query methodinfo --- ALL";
    } else {
        LogInfo() << "Wardend query methodinfo " << name;
    }
    std::vector<MethodRegisterInfo> result;
    ProcessLiveness liveness;
    QueryMapLocked(ddsMethodMap_, name, all, DriverType::DDS, liveness, result);
    QueryMapLocked(someipMethodMap_, name, all, DriverType::SOMEIP, liveness, result);
    return result;
}

bool MethodInfoManage::QueryMethodInfoByType(const String& name, MethodInfoWithPubSub& out) {
    const std::lock_guard<std::mutex> lock(methodLock_);
    const auto findIn = [&name, &out](const auto& map) {
        for (const auto& [key, record] : map) {
            if (record.info.registerInfo.name == name && record.info.isOnline) {
                out = record.info;
                return true;
            }
        }
        return false;
    };
    return findIn(ddsMethodMap_) || findIn(someipMethodMap_);
}

template <typename Map>
void MethodInfoManage::GetNodeMethodInfoLocked(const Map& map, const String& nodeName,
                                               std::int32_t pid, std::set<String>& instances,
                                               std::set<String>& methods, DriverType driver) {
    LogInfo() << "Node " << nodeName << " get NodeInfo-" << (IsDds(driver) ? "DDS" : "SOMEIP")
              << " from MethodInfoManage";
    for (const auto& [key, record] : map) {
        if (record.info.isOnline && record.info.pubApp == nodeName &&
            record.info.registerInfo.pid == pid) {
            methods.insert(record.info.registerInfo.name);
            GetServiceInstanceInfo(instances, record, driver);
        }
        for (const auto& sub : record.info.subApps) {
            if (sub != nodeName) {
                continue;
            }
            const auto subPid = record.subPids.find(nodeName);
            if ((subPid == record.subPids.end() ? 0 : subPid->second) != pid) {
                continue;
            }
            const auto subName = record.subNames.find(nodeName);
            const auto shortName = record.subInstanceShortNames.find(nodeName);
            methods.insert(subName == record.subNames.end() ? String() : subName->second);
            instances.insert(shortName == record.subInstanceShortNames.end() ? String()
                                                                             : shortName->second);
        }
    }
}

void MethodInfoManage::GetNodeMethodInfo(const String& nodeName, NodeInfo& node,
                                         std::set<String>& instances) {
    const std::lock_guard<std::mutex> lock(methodLock_);
    std::set<String> methods;
    GetNodeMethodInfoLocked(ddsMethodMap_, nodeName, node.pid, instances, methods, DriverType::DDS);
    GetNodeMethodInfoLocked(someipMethodMap_, nodeName, node.pid, instances, methods,
                            DriverType::SOMEIP);
    // Server and client sides meet in the one list.
    for (const auto& method : methods) {
        node.methods.push_back(method);
        LogInfo() << "Node " << nodeName << " add method: " << method;
    }
}

std::map<DDSMethodKey, MethodRecord> MethodInfoManage::DdsMethods() const {
    const std::lock_guard<std::mutex> lock(methodLock_);
    return ddsMethodMap_;
}

std::map<SomeipMethodKey, MethodRecord> MethodInfoManage::SomeipMethods() const {
    const std::lock_guard<std::mutex> lock(methodLock_);
    return someipMethodMap_;
}

}  // namespace vesk::wardend
