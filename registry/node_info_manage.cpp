#include "registry/node_info_manage.h"

#include <unistd.h>

#include <cstdio>
#include <set>

#include "records/wardend_log.h"
#include "registry/event_info_manage.h"
#include "registry/field_info_manage.h"
#include "registry/method_info_manage.h"

namespace vesk::wardend {

NodeInfoManage& NodeInfoManage::GetInstance() {
    static NodeInfoManage instance;
    return instance;
}

bool NodeInfoManage::IsProcessAlive(const std::int32_t& pid) {
    char number[16];
    std::snprintf(number, sizeof(number), "%d", pid);
    const String path = String("/proc/") + number;
    if (access(path.c_str(), F_OK) == 0) {
        LogVerbose() << "Node is alive.[pid=" << number << "]";
        return true;
    }
    LogVerbose() << "Node is gone.[pid=" << number << "]";
    return false;
}

bool NodeInfoManage::UpdateNodeInfo(const String& nodeName, const std::int32_t& pid,
                                    const bool& isRegister) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (isRegister) {
        LogInfo() << "Wardend register nodeinfo --- " << nodeName;
        return RegisterLocked(nodeName, pid);
    }
    LogInfo() << "Wardend unregister nodeinfo --- " << nodeName;
    return UnregisterLocked(nodeName, pid);
}

bool NodeInfoManage::RegisterLocked(const String& nodeName, std::int32_t pid) {
    const auto it = nodes_.find(nodeName);
    if (it == nodes_.end()) {
        if (nodes_.emplace(nodeName, pid).second) {
            LogInfo() << "Wardend new node " << nodeName << pid << " register succeeded";
            return true;
        }
        LogWarn() << "Wardend new node " << nodeName << " register failed";
        return false;
    }
    if (it->second == pid) {
        LogInfo() << "Wardend register node " << nodeName << pid
                  << " repeated, cover old noderegisterinfo.";
        return true;
    }
    it->second = pid;
    // Both numbers are the new pid: the first is read after the store.
    LogInfo() << "Wardend node " << nodeName << it->second << " update to " << pid;
    return true;
}

bool NodeInfoManage::UnregisterLocked(const String& nodeName, std::int32_t pid) {
    const auto it = nodes_.find(nodeName);
    if (it == nodes_.end()) {
        LogWarn() << "Wardend unregister node does not exist";
        return false;
    }
    if (it->second == pid) {
        LogInfo() << "Wardend node " << nodeName << " is removed successfully";
    } else {
        LogWarn() << "Pid in " << nodeName << " is different from that stored in NodeInfoManage";
    }
    // A pid mismatch does not protect the entry.
    nodes_.erase(it);
    return true;
}

bool NodeInfoManage::IsNodeAlive(const String& nodeName) {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto it = nodes_.find(nodeName);
    if (it == nodes_.end()) {
        LogWarn() << "Wardend node " << nodeName << " is unexisted";
        return false;
    }
    if (!IsProcessAlive(it->second)) {
        LogWarn() << "Wardend node " << nodeName << " is gone";
        return false;
    }
    LogInfo() << "Wardend node " << nodeName << " is alive";
    return true;
}

std::vector<NodeInfo> NodeInfoManage::QueryNodeInfo(const String& nodeName) {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<NodeInfo> result;
    if (nodeName == "ALL") {
        LogInfo() << "Wardend query nodeinfo --- ALL";
        for (const auto& [name, pid] : nodes_) {
            if (!IsProcessAlive(pid)) {
                continue;
            }
            LogInfo() << "Wardend pushing nodeinfo";
            NodeInfo node;
            node.nodeName = name;
            node.pid = pid;
            result.push_back(std::move(node));
            LogInfo() << "Node name is " << name << " pid is " << pid;
        }
        return result;
    }
    LogInfo() << "Wardend query nodeinfo --- " << nodeName;
    const auto it = nodes_.find(nodeName);
    if (it == nodes_.end()) {
        LogInfo() << "Wardend node " << nodeName << " is not existed";
        return result;
    }
    if (!IsProcessAlive(it->second)) {
        LogWarn() << "Wardend node " << nodeName << " is gone";
        return result;
    }
    NodeInfo node;
    node.nodeName = nodeName;
    node.pid = it->second;
    std::set<String> eventInstances;
    std::set<String> methodInstances;
    std::set<String> fieldInstances;
    EventInfoManage::GetInstance().GetNodeEventInfo(nodeName, node, eventInstances);
    MethodInfoManage::GetInstance().GetNodeMethodInfo(nodeName, node, methodInstances);
    FieldInfoManage::GetInstance().GetNodeFieldInfo(nodeName, node, fieldInstances);
    std::set<String> instances = std::move(eventInstances);
    instances.insert(methodInstances.begin(), methodInstances.end());
    instances.insert(fieldInstances.begin(), fieldInstances.end());
    for (const auto& instance : instances) {
        node.serviceInstances.push_back(instance);
        LogInfo() << "Node " << nodeName << " add serviceInstance: " << instance;
    }
    result.push_back(std::move(node));
    return result;
}

std::map<String, std::int32_t> NodeInfoManage::Nodes() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return nodes_;
}

}  // namespace vesk::wardend
