// The node query: the one operation of the node registry that asks the other registries, kept
// apart so that the rest of the node registry depends on nothing but the records.
#include <set>

#include "records/wardend_log.h"
#include "registry/event_info_manage.h"
#include "registry/field_info_manage.h"
#include "registry/method_info_manage.h"
#include "registry/node_info_manage.h"

namespace vesk::wardend {

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

}  // namespace vesk::wardend
