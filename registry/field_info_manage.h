#ifndef REGISTRY_FIELD_INFO_MANAGE_H
#define REGISTRY_FIELD_INFO_MANAGE_H

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <vector>

#include "records/wardend_records.h"

namespace vesk::wardend {

struct FieldRecord {
    FieldRegisterInfo registerInfo;
    std::vector<String> subApps;  // client names, in order of first registration
    String pubApp;
    bool isOnline{};
    std::map<String, String> subInstanceShortNames;  // keyed by client name
    std::map<String, String> subFieldTypes;          // the fieldType each client registered
    std::map<String, std::int32_t> subPids;

    bool operator==(const FieldRecord& other) const {
        return registerInfo == other.registerInfo && subApps == other.subApps &&
               pubApp == other.pubApp && isOnline == other.isOnline &&
               subInstanceShortNames == other.subInstanceShortNames &&
               subFieldTypes == other.subFieldTypes && subPids == other.subPids;
    }
};

// fieldType, then instanceId.
using FieldMap = std::map<String, std::map<std::uint16_t, FieldRecord>>;

// Servers and clients of fields. No liveness check, no node update: only the node query reads
// it, and its pid test alone hides a dead server.
//
// Locks: fieldLock_ alone, held for each whole public operation; no other lock is taken inside
// it. The node query holds the node mutex around GetNodeFieldInfo.
class FieldInfoManage {
public:
    static FieldInfoManage& GetInstance();

    bool RegisterFieldInfo(const FieldRegisterInfo& info, bool isPub);
    // Tries both drivers whatever info.drivers says.
    bool UnregisterFieldInfo(const String& fieldType, bool isPub, const FieldRegisterInfo& info,
                             std::uint16_t instanceId);
    void GetNodeFieldInfo(const String& nodeName, NodeInfo& node, std::set<String>& instances);

    // Copies of the tables.
    FieldMap DdsFields() const;
    FieldMap SomeipFields() const;

    FieldInfoManage(const FieldInfoManage&) = delete;
    FieldInfoManage& operator=(const FieldInfoManage&) = delete;
    ~FieldInfoManage() = default;

private:
    FieldInfoManage() = default;

    // Every helper below expects fieldLock_ held.
    static bool RegisterNewFieldLocked(const FieldRegisterInfo& info, FieldMap& map, bool isPub,
                                       DriverType driver);
    static bool RegisterNewFieldInstanceLocked(const FieldRegisterInfo& info,
                                               std::map<std::uint16_t, FieldRecord>& instances,
                                               bool isPub, DriverType driver);
    static bool RegisterExistingFieldLocked(FieldRecord& record, const FieldRegisterInfo& info,
                                            bool isPub, DriverType driver);
    static bool UnregisterFieldPubLocked(const String& fieldType, const FieldRegisterInfo& info,
                                         std::uint16_t instanceId, FieldMap& map);
    static bool UnregisterFieldSubLocked(const String& fieldType, const FieldRegisterInfo& info,
                                         std::uint16_t instanceId, FieldMap& map);
    static void GetNodeFieldInfoLocked(const FieldMap& map, const String& nodeName,
                                       std::int32_t pid, std::set<String>& instances,
                                       std::set<String>& fields, DriverType driver);

    mutable std::mutex fieldLock_;  // guards ddsFieldMap_, someipFieldMap_ and every record
    FieldMap ddsFieldMap_;
    FieldMap someipFieldMap_;
};

}  // namespace vesk::wardend

#endif
