#ifndef REGISTRY_METHOD_INFO_MANAGE_H
#define REGISTRY_METHOD_INFO_MANAGE_H

// A cycle by design with the node registry, whose node query asks this one back.

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <tuple>
#include <vector>

#include "records/wardend_records.h"
#include "registry/node_info_manage.h"

namespace vesk::wardend {

// The five fields in this order; the reserved byte is always 0 and takes no part in ordering.
struct DDSMethodKey {
    std::uint16_t serviceId{};
    std::uint16_t instanceId{};
    String requestTopicName;
    String replyTopicName;
    String text;
    std::uint8_t reserved{};

    bool operator<(const DDSMethodKey& other) const {
        return std::tie(serviceId, instanceId, requestTopicName, replyTopicName, text) <
               std::tie(other.serviceId, other.instanceId, other.requestTopicName,
                        other.replyTopicName, other.text);
    }
    bool operator==(const DDSMethodKey& other) const {
        return !(*this < other) && !(other < *this);
    }
};

struct SomeipMethodKey {
    std::uint16_t serviceId{};
    std::uint16_t instanceId{};
    std::uint16_t methodId{};
    std::uint8_t reserved{};

    bool operator<(const SomeipMethodKey& other) const {
        return std::tie(serviceId, instanceId, methodId) <
               std::tie(other.serviceId, other.instanceId, other.methodId);
    }
    bool operator==(const SomeipMethodKey& other) const {
        return !(*this < other) && !(other < *this);
    }
};

// A stored method with its server (pub app) and clients (sub apps).
struct MethodInfoWithPubSub {
    MethodRegisterInfo registerInfo;
    std::vector<String> subApps;
    String pubApp;
    bool isOnline{};

    WARDEND_RECORD_FIELDS(MethodInfoWithPubSub, registerInfo, subApps, pubApp, isOnline)
};

struct MethodRecord {
    MethodInfoWithPubSub info;
    std::map<String, String> subInstanceShortNames;  // keyed by client name
    std::map<String, String> subNames;               // the name each client registered
    std::map<String, std::int32_t> subPids;

    bool operator==(const MethodRecord& other) const {
        return info == other.info && subInstanceShortNames == other.subInstanceShortNames &&
               subNames == other.subNames && subPids == other.subPids;
    }
};

// Servers and clients of methods, one record per method per driver. Dead clients are never
// pruned; a method is listed only with a live server.
//
// Locks: methodLock_ alone, held for each whole public operation; inside it the registry calls
// NodeInfoManage::UpdateNodeInfo (node mutex). Registration runs under registerMutex, which the
// node query takes too, because that query holds the node mutex while it comes in here.
class MethodInfoManage {
public:
    static MethodInfoManage& GetInstance();

    bool RegisterMethodInfo(const MethodRegisterInfo& info, const bool& isPub);
    // With both drivers only DDS is acted on.
    bool UnregisterMethodInfo(const MethodRegisterInfo& info, const bool& isPub);
    // "ALL" or a method type; the bare registrations of methods with a live server.
    std::vector<MethodRegisterInfo> QueryMethodInfo(const String& name);
    bool QueryMethodInfoByType(const String& name, MethodInfoWithPubSub& out);
    void GetNodeMethodInfo(const String& nodeName, NodeInfo& node, std::set<String>& instances);

    // Copies of the tables.
    std::map<DDSMethodKey, MethodRecord> DdsMethods() const;
    std::map<SomeipMethodKey, MethodRecord> SomeipMethods() const;

    MethodInfoManage(const MethodInfoManage&) = delete;
    MethodInfoManage& operator=(const MethodInfoManage&) = delete;
    ~MethodInfoManage() = default;

private:
    MethodInfoManage() = default;

    // Every helper below expects methodLock_ held.
    template <typename Map>
    bool RegisterExistingLocked(Map& map, const typename Map::key_type& key,
                                const MethodRegisterInfo& info, bool isPub, DriverType driver);
    template <typename Map>
    bool RegisterNewLocked(Map& map, const typename Map::key_type& key,
                           const MethodRegisterInfo& info, bool isPub, DriverType driver);
    template <typename Map>
    static bool UnregisterPubLocked(Map& map, const typename Map::key_type& key,
                                    const String& appName);
    template <typename Map>
    static bool UnregisterSubLocked(Map& map, const typename Map::key_type& key,
                                    const String& appName);
    static bool CheckMethodAliveLocked(MethodRecord& record, DriverType driver,
                                       ProcessLiveness& liveness);
    template <typename Map>
    static void QueryMapLocked(Map& map, const String& name, bool all, DriverType driver,
                               ProcessLiveness& liveness, std::vector<MethodRegisterInfo>& result);
    template <typename Map>
    static void GetNodeMethodInfoLocked(const Map& map, const String& nodeName, std::int32_t pid,
                                        std::set<String>& instances, std::set<String>& methods,
                                        DriverType driver);

    mutable std::mutex methodLock_;  // guards ddsMethodMap_, someipMethodMap_ and every record
    std::map<DDSMethodKey, MethodRecord> ddsMethodMap_;
    std::map<SomeipMethodKey, MethodRecord> someipMethodMap_;
};

}  // namespace vesk::wardend

#endif
