#include "registry/field_info_manage.h"

#include <algorithm>

#include "records/wardend_log.h"
#include "registry/registry_names.h"

namespace vesk::wardend {

namespace {

// Deliberately simpler than the event registry's: no generated name, a missing entry is empty.
String GetInstanceShortName(const FieldRegisterInfo& info, DriverType driver) {
    const auto drivers = info.drivers;
    const auto it = drivers.find(IsDds(driver) ? DriverType::DDS : DriverType::SOMEIP);
    const String name = it == drivers.end() ? String() : it->second;
    return name + DriverSuffix(driver);
}

void StoreClient(FieldRecord& record, const FieldRegisterInfo& info, DriverType driver) {
    record.subInstanceShortNames[info.appName] = GetInstanceShortName(info, driver);
    record.subFieldTypes[info.appName] = info.fieldType;
    record.subPids[info.appName] = info.pid;
}

// A new record; the two ways to make one differ only in their words.
FieldRecord MakeRecord(const FieldRegisterInfo& info, bool isPub, DriverType driver,
                       const char* pubWords, const char* subWords) {
    FieldRecord record;
    record.registerInfo = info;
    if (isPub) {
        record.pubApp = info.appName;
        record.isOnline = true;
        LogInfo() << "Wardend pub app " << info.appName << pubWords;
    } else {
        record.subApps.push_back(info.appName);
        StoreClient(record, info, driver);
        LogInfo() << "Wardend sub app " << info.appName << subWords;
        record.isOnline = false;
    }
    return record;
}

}  // namespace

FieldInfoManage& FieldInfoManage::GetInstance() {
    static FieldInfoManage instance;
    return instance;
}

bool FieldInfoManage::RegisterFieldInfo(const FieldRegisterInfo& info, bool isPub) {
    LogInfo() << "Wardend register fieldinfo";
    const std::lock_guard<std::mutex> lock(fieldLock_);
    const String fieldType = info.fieldType;
    const auto drivers = info.drivers;
    const bool hasDds = drivers.count(DriverType::DDS) != 0;
    const bool hasSomeip = drivers.count(DriverType::SOMEIP) != 0;
    LogInfo() << "Wardend register field DDS:" << static_cast<int>(hasDds)
              << " SOMEIP:" << static_cast<int>(hasSomeip);
    const auto registerOn = [&](FieldMap& map, DriverType driver) {
        const auto type = map.find(fieldType);
        if (type == map.end()) {
            return RegisterNewFieldLocked(info, map, isPub, driver);
        }
        const auto instance = type->second.find(info.instanceId);
        if (instance == type->second.end()) {
            return RegisterNewFieldInstanceLocked(info, type->second, isPub, driver);
        }
        return RegisterExistingFieldLocked(instance->second, info, isPub, driver);
    };
    bool result = false;
    if (hasDds) {
        result = registerOn(ddsFieldMap_, DriverType::DDS);
    }
    if (hasSomeip) {
        result = registerOn(someipFieldMap_, DriverType::SOMEIP);
    }
    return result;
}

bool FieldInfoManage::RegisterNewFieldLocked(const FieldRegisterInfo& info, FieldMap& map,
                                             bool isPub, DriverType driver) {
    LogInfo() << "Wardend register field unexisted";
    std::map<std::uint16_t, FieldRecord> instances;
    instances.emplace(info.instanceId,
                      MakeRecord(info, isPub, driver, " is registered, online", " is registered"));
    if (map.emplace(info.fieldType, std::move(instances)).second) {
        LogInfo() << "Wardend new field register succeeded";
        return true;
    }
    LogWarn() << "Wardend new field register failed";
    return false;
}

bool FieldInfoManage::RegisterNewFieldInstanceLocked(
    const FieldRegisterInfo& info, std::map<std::uint16_t, FieldRecord>& instances, bool isPub,
    DriverType driver) {
    LogInfo() << "Wardend register field instanceid unexisted";
    if (instances
            .emplace(info.instanceId, MakeRecord(info, isPub, driver, " is online", " is added"))
            .second) {
        LogInfo() << "Wardend new field instance register succeeded";
        return true;
    }
    LogWarn() << "Wardend new field instance register failed";
    return false;
}

bool FieldInfoManage::RegisterExistingFieldLocked(FieldRecord& record,
                                                  const FieldRegisterInfo& info, bool isPub,
                                                  DriverType driver) {
    LogInfo() << "Wardend register field existed";
    if (isPub) {
        LogVerbose() << "Wardend register field app is pub";
        if (record.pubApp == info.appName) {
            record.isOnline = true;
            LogInfo() << "Wardend register pub app " << info.appName
                      << "repeated, cover old fieldregisterinfo.";
        } else {
            record.pubApp = info.appName;
            record.isOnline = true;
            LogInfo() << "Wardend pub app " << info.appName << " update";
        }
        // Every field, both drivers' names included.
        record.registerInfo = info;
        return true;
    }
    LogVerbose() << "Wardend register field app is sub";
    if (std::count(record.subApps.begin(), record.subApps.end(), info.appName) != 0) {
        StoreClient(record, info, driver);
        LogInfo() << "Wardend register sub app " << info.appName << " repeated, do nothing";
    } else {
        record.subApps.push_back(info.appName);
        StoreClient(record, info, driver);
        LogInfo() << "Wardend sub app " << info.appName << " add new one";
    }
    return true;
}

bool FieldInfoManage::UnregisterFieldInfo(const String& fieldType, bool isPub,
                                          const FieldRegisterInfo& info, std::uint16_t instanceId) {
    LogInfo() << "Wardend unregister fieldinfo";
    const std::lock_guard<std::mutex> lock(fieldLock_);
    const auto unregisterOn = [&](FieldMap& map) {
        return isPub ? UnregisterFieldPubLocked(fieldType, info, instanceId, map)
                     : UnregisterFieldSubLocked(fieldType, info, instanceId, map);
    };
    bool result = false;
    // The two misses differ in level.
    if (ddsFieldMap_.count(fieldType) == 0) {
        LogWarn() << "Wardend unregister field-DDS does not exist";
    } else {
        LogInfo() << "Wardend unregister field-DDS";
        result = unregisterOn(ddsFieldMap_);
    }
    if (someipFieldMap_.count(fieldType) == 0) {
        LogInfo() << "Wardend unregister field-SOMEIP does not exist";
    } else {
        LogInfo() << "Wardend unregister field-SOMEIP";
        result = unregisterOn(someipFieldMap_) || result;
    }
    return result;
}

bool FieldInfoManage::UnregisterFieldPubLocked(const String& fieldType,
                                               const FieldRegisterInfo& info,
                                               std::uint16_t instanceId, FieldMap& map) {
    LogInfo() << "Wardend unregister field app is pub";
    // A missing instance is created empty here and stays.
    FieldRecord& record = map[fieldType][instanceId];
    if (record.pubApp != info.appName) {
        LogWarn() << "Wardend unregister field pub app is not found";
        return false;
    }
    record.isOnline = false;
    LogInfo() << "Field type " << record.registerInfo.fieldType << " InstanceId " << instanceId
              << " the pub app " << info.appName << " is offline";
    return true;
}

bool FieldInfoManage::UnregisterFieldSubLocked(const String& fieldType,
                                               const FieldRegisterInfo& info,
                                               std::uint16_t instanceId, FieldMap& map) {
    LogInfo() << "Wardend unregister field app is sub";
    auto& instances = map[fieldType];
    // A missing instance is created empty here and stays.
    FieldRecord& record = instances[instanceId];
    const auto it = std::find(record.subApps.begin(), record.subApps.end(), info.appName);
    if (it == record.subApps.end()) {
        LogWarn() << "Wardend unregister field sub app is not found";
        return false;
    }
    record.subApps.erase(it);
    record.subInstanceShortNames.erase(info.appName);
    record.subFieldTypes.erase(info.appName);
    record.subPids.erase(info.appName);
    LogInfo() << "Wardend unregister field sub app is removed";
    if (!record.pubApp.empty() || !record.subApps.empty()) {
        return true;
    }
    if (instances.size() == 1) {
        map.erase(fieldType);
        LogInfo() << "Wardend field sub apps are null and " << fieldType
                  << " is removed successfully";
        return true;
    }
    if (instances.erase(instanceId) != 0) {
        LogInfo() << "Wardend field apps " << info.appName << " remove with fieldType " << fieldType
                  << "InstanceId " << instanceId;
        return true;
    }
    LogWarn() << "Wardend field apps are null and fieldinfo is removed failed";
    return false;
}

void FieldInfoManage::GetNodeFieldInfoLocked(const FieldMap& map, const String& nodeName,
                                             std::int32_t pid, std::set<String>& instances,
                                             std::set<String>& fields, DriverType driver) {
    LogInfo() << "Node " << nodeName << " get NodeInfo-" << (IsDds(driver) ? "DDS" : "SOMEIP")
              << " from FieldInfoManage";
    for (const auto& [fieldType, byInstance] : map) {
        for (const auto& [instanceId, record] : byInstance) {
            if (record.isOnline && record.pubApp == nodeName && record.registerInfo.pid == pid) {
                fields.insert(fieldType);
                instances.insert(GetInstanceShortName(record.registerInfo, driver));
            }
            for (const auto& sub : record.subApps) {
                if (sub != nodeName) {
                    continue;
                }
                const auto subPid = record.subPids.find(nodeName);
                if ((subPid == record.subPids.end() ? 0 : subPid->second) != pid) {
                    continue;
                }
                const auto type = record.subFieldTypes.find(nodeName);
                const auto shortName = record.subInstanceShortNames.find(nodeName);
                fields.insert(type == record.subFieldTypes.end() ? String() : type->second);
                instances.insert(
                    shortName == record.subInstanceShortNames.end() ? String() : shortName->second);
            }
        }
    }
}

void FieldInfoManage::GetNodeFieldInfo(const String& nodeName, NodeInfo& node,
                                       std::set<String>& instances) {
    const std::lock_guard<std::mutex> lock(fieldLock_);
    std::set<String> fields;
    GetNodeFieldInfoLocked(ddsFieldMap_, nodeName, node.pid, instances, fields, DriverType::DDS);
    GetNodeFieldInfoLocked(someipFieldMap_, nodeName, node.pid, instances, fields,
                           DriverType::SOMEIP);
    for (const auto& field : fields) {
        node.fields.push_back(field);
        LogInfo() << "Node " << nodeName << " add feild: " << field;
    }
}

FieldMap FieldInfoManage::DdsFields() const {
    const std::lock_guard<std::mutex> lock(fieldLock_);
    return ddsFieldMap_;
}

FieldMap FieldInfoManage::SomeipFields() const {
    const std::lock_guard<std::mutex> lock(fieldLock_);
    return someipFieldMap_;
}

}  // namespace vesk::wardend
