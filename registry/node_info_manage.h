#ifndef REGISTRY_NODE_INFO_MANAGE_H
#define REGISTRY_NODE_INFO_MANAGE_H

// A cycle by design: event and method registration update it; its node query asks them back.

#include <cstdint>
#include <map>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "records/wardend_records.h"

namespace vesk::wardend {

using ara::core::String;

// The liveness of each process named during one query: /proc is looked at once per pid however
// many records name it, and again by the next query. Not shared between threads.
class ProcessLiveness {
public:
    bool IsAlive(std::int32_t pid);

private:
    std::unordered_map<std::int32_t, bool> known_;
};

// Which application nodes are known and the pid each last reported; and the /proc liveness
// test that the other registries use.
//
// Locks: mutex_ is held for the whole of each operation. Event and method registration call
// UpdateNodeInfo with their own registry lock held (registry lock, then mutex_), while
// QueryNodeInfo holds mutex_ and calls the event, method and field registries (mutex_, then
// eventLock_, methodLock_, fieldLock_). registerMutex, taken outermost by the service around
// both paths, keeps them from meeting.
class NodeInfoManage {
public:
    static NodeInfoManage& GetInstance();

    bool UpdateNodeInfo(const String& nodeName, const std::int32_t& pid, const bool& isRegister);
    bool IsNodeAlive(const String& nodeName);
    // True when /proc/<pid> exists; a reused pid counts as alive.
    static bool IsProcessAlive(const std::int32_t& pid);

    // "ALL" gives names and pids of live nodes only; a name gives one row with its lists.
    // Callers hold registerMutex.
    std::vector<NodeInfo> QueryNodeInfo(const String& nodeName);

    // A copy of the table, name to pid.
    std::map<String, std::int32_t> Nodes() const;

private:
    NodeInfoManage() = default;

    // Both expect mutex_ held.
    bool RegisterLocked(const String& nodeName, std::int32_t pid);
    bool UnregisterLocked(const String& nodeName, std::int32_t pid);

    mutable std::mutex mutex_;  // guards nodes_
    std::map<String, std::int32_t> nodes_;
};

}  // namespace vesk::wardend

#endif
