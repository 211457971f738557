#include "registry/node_info_manage.h"

#include <unistd.h>

#include <cstdio>

#include "records/wardend_log.h"

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

bool ProcessLiveness::IsAlive(std::int32_t pid) {
    const auto it = known_.find(pid);
    if (it != known_.end()) {
        return it->second;
    }
    const bool alive = NodeInfoManage::IsProcessAlive(pid);
    known_.emplace(pid, alive);
    return alive;
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

std::map<String, std::int32_t> NodeInfoManage::Nodes() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return nodes_;
}

}  // namespace vesk::wardend
