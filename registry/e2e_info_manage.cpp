#include "registry/e2e_info_manage.h"

#include <string>

#include "records/wardend_log.h"
#include "registry/node_info_manage.h"

namespace vesk::wardend {

namespace {

constexpr unsigned kNoProtection = 255;

bool IsProtected(const E2EConfigInfo& config) {
    return static_cast<unsigned>(config.profile) < kNoProtection;
}

DdsE2EKey KeyOf(const DdsE2EKey& /*tag*/, const EventE2EInfo& info) {
    return DdsE2EKey{info.serviceId, info.instanceId, info.eventTopicName};
}
SomeipE2EKey KeyOf(const SomeipE2EKey& /*tag*/, const EventE2EInfo& info) {
    return SomeipE2EKey{info.serviceId, info.instanceId, info.eventId};
}

// The binding word and the part of a log line that names the event within its service.
String Word(const DdsE2EKey& /*tag*/) {
    return "dds";
}
String Word(const SomeipE2EKey& /*tag*/) {
    return "someip";
}
String EventPart(const DdsE2EKey& key) {
    return ", eventTopicName=" + key.eventTopicName;
}
String EventPart(const SomeipE2EKey& key) {
    return ", eventId=" + std::to_string(key.eventId);
}
template <typename Key>
String KeyText(const Key& key) {
    return "serviceId=" + std::to_string(key.serviceId) +
           ", instanceId=" + std::to_string(key.instanceId) + EventPart(key);
}

template <typename Key>
void Merge(std::map<Key, E2EEventEntry>& table, const String& appName, int pid,
           const EventE2EInfo& info) {
    const Key key = KeyOf(Key{}, info);
    const String word = Word(key);
    const auto it = table.find(key);
    if (it == table.end()) {
        LogInfo() << "Keep new " << word << " event e2e info of sub node[" << KeyText(key)
                  << ", newAppName=" << appName << ", pid=" << pid << "]";
        E2EEventEntry entry;
        entry.info = info;
        entry.subNodes.emplace(appName, pid);
        table.emplace(key, std::move(entry));
        return;
    }
    LogInfo() << "Update old " << word << " event e2e info of sub node[" << KeyText(key)
              << ", newAppName=" << appName << ", pid= " << pid << "]";
    // The newest declaration wins for every sub node of the event.
    it->second.info = info;
    auto& subNodes = it->second.subNodes;
    const auto node = subNodes.find(appName);
    if (node == subNodes.end()) {
        LogVerbose() << "New sub node with the same " << word << " event e2e info";
        subNodes.emplace(appName, pid);
        return;
    }
    if (node->second == pid) {
        return;
    }
    LogVerbose() << "App already register " << word
                 << " event e2e info, cover old[appName=" << appName
                 << ", oldAppPid=" << node->second << ", newAppPid=" << pid << "]";
    node->second = pid;
}

template <typename Key>
void RemoveSubNode(std::map<Key, E2EEventEntry>& table, const String& appName, int pid) {
    for (auto it = table.begin(); it != table.end();) {
        auto& subNodes = it->second.subNodes;
        const auto node = subNodes.find(appName);
        // Another pid belongs to a newer process of the application.
        if (node != subNodes.end() && node->second == pid) {
            subNodes.erase(node);
        }
        if (subNodes.empty()) {
            LogInfo() << "Unregister " << Word(it->first) << " event e2e info of sub node["
                      << KeyText(it->first) << ", appName=" << appName << ", pid=" << pid << "]";
            it = table.erase(it);
        } else {
            ++it;
        }
    }
}

template <typename Key>
void ClearOffline(std::map<Key, E2EEventEntry>& table) {
    for (auto it = table.begin(); it != table.end();) {
        const String word = Word(it->first);
        auto& subNodes = it->second.subNodes;
        for (auto node = subNodes.begin(); node != subNodes.end();) {
            if (NodeInfoManage::IsProcessAlive(node->second)) {
                ++node;
                continue;
            }
            LogVerbose() << "Clear offline app's " << word
                         << " event e2e info of sub node[offLineAppName=" << node->first
                         << ", nodePid=" << node->second << ", nodeCount=" << subNodes.size() - 1
                         << "]";
            node = subNodes.erase(node);
        }
        if (subNodes.empty()) {
            LogInfo() << "Clear offline " << word << " event e2e info[" << KeyText(it->first)
                      << "]";
            it = table.erase(it);
        } else {
            ++it;
        }
    }
}

}  // namespace

std::shared_ptr<E2EInfoManage> E2EInfoManage::GetInstance() {
    static const std::shared_ptr<E2EInfoManage> instance(new E2EInfoManage());
    return instance;
}

void E2EInfoManage::RegisterNodeE2EInfo(const NodeRegisterInfo& node) {
    for (const auto& info : node.e2eList.eventE2EInfos) {
        if (!IsProtected(info.e2eConfig)) {
            continue;
        }
        if (info.driver != DriverType::DDS) {
            UpdateSomeipE2EInfo(node.nodeName, node.pid, info);
        } else {
            UpdateDdsE2EInfo(node.nodeName, node.pid, info);
        }
    }
}

void E2EInfoManage::UpdateDdsEventE2EInfo(const String& appName, const int& pid,
                                          const DDSEventInfo& info) {
    if (!IsProtected(info.e2eConfig)) {
        return;
    }
    LogVerbose() << "Update dds event e2e info of sub node";
    EventE2EInfo e2e;
    e2e.serviceId = info.serviceId;
    e2e.instanceId = info.instanceId;
    e2e.driver = DriverType::DDS;
    e2e.eventTopicName = info.topicName;
    e2e.e2eConfig = info.e2eConfig;
    UpdateDdsE2EInfo(appName, pid, e2e);
}

void E2EInfoManage::UpdateSomeipEventE2EInfo(const String& appName, const int& pid,
                                             const SomeipEventInfo& info) {
    if (!IsProtected(info.e2eConfig)) {
        return;
    }
    LogVerbose() << "Update someip event e2e info of sub node";
    EventE2EInfo e2e;
    e2e.serviceId = info.serviceId;
    e2e.instanceId = info.instanceId;
    e2e.driver = DriverType::SOMEIP;
    e2e.eventId = info.eventId;
    e2e.e2eConfig = info.e2eConfig;
    UpdateSomeipE2EInfo(appName, pid, e2e);
}

void E2EInfoManage::UpdateDdsE2EInfo(const String& appName, const int& pid,
                                     const EventE2EInfo& info) {
    const std::lock_guard<std::mutex> lock(mutex_);
    Merge(ddsE2EInfos_, appName, pid, info);
}

void E2EInfoManage::UpdateSomeipE2EInfo(const String& appName, const int& pid,
                                        const EventE2EInfo& info) {
    const std::lock_guard<std::mutex> lock(mutex_);
    Merge(someipE2EInfos_, appName, pid, info);
}

void E2EInfoManage::UnregisterE2EInfo(const String& appName, const int& pid) {
    LogVerbose() << "Unregister E2E info[appName=" << appName << ", nodePid=" << pid << "]";
    const std::lock_guard<std::mutex> lock(mutex_);
    RemoveSubNode(ddsE2EInfos_, appName, pid);
    RemoveSubNode(someipE2EInfos_, appName, pid);
}

void E2EInfoManage::ClearOfflineE2EInfoLocked() {
    ClearOffline(ddsE2EInfos_);
    ClearOffline(someipE2EInfos_);
}

EventInfoWithPubSub E2EInfoManage::QuerySubNodeE2EInfo(const QuerySubEventInfoIndex& index) {
    EventInfoWithPubSub result;
    const std::lock_guard<std::mutex> lock(mutex_);
    ClearOfflineE2EInfoLocked();
    if (index.driver != DriverType::DDS) {
        // This line alone has no closing bracket.
        LogVerbose() << "Query sub node someip E2E config info[serviceId=" << index.serviceId
                     << ", instanceId=" << index.instanceId << ", eventId=" << index.eventId;
        const auto it =
            someipE2EInfos_.find(SomeipE2EKey{index.serviceId, index.instanceId, index.eventId});
        if (it == someipE2EInfos_.end()) {
            return result;
        }
        EventInfo event;
        event.someip.e2eConfig = it->second.info.e2eConfig;
        result.registerInfo.eventMap_[DriverType::SOMEIP] = event;
        LogVerbose() << "Query sub node someip E2E config info success";
        return result;
    }
    LogVerbose() << "Query sub node dds E2E config info[serviceId=" << index.serviceId
                 << ", instanceId=" << index.instanceId << ", eventTopicName=" << index.topicName
                 << "]";
    const auto it =
        ddsE2EInfos_.find(DdsE2EKey{index.serviceId, index.instanceId, index.topicName});
    if (it == ddsE2EInfos_.end()) {
        return result;
    }
    EventInfo event;
    event.dds.e2eConfig = it->second.info.e2eConfig;
    result.registerInfo.eventMap_[DriverType::DDS] = event;
    LogVerbose() << "Query sub node dds E2E config info success";
    return result;
}

std::map<DdsE2EKey, E2EEventEntry> E2EInfoManage::DdsEntries() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return ddsE2EInfos_;
}

std::map<SomeipE2EKey, E2EEventEntry> E2EInfoManage::SomeipEntries() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return someipE2EInfos_;
}

}  // namespace vesk::wardend
