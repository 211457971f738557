#include <utility>

#include "catalogue/msg_file_store.h"
#include "records/wardend_log.h"
#include "registry/event_info_manage.h"
#include "registry/method_info_manage.h"

namespace vesk::wardend {

String ResolveDataType(const String& name, const std::map<String, String>& msgs) {
    String result;
    String current = name;
    // No counter and no memory of visited names: a chain that closes on itself does not end.
    // This is the catalogue's rule for aliases and is kept as it stands.
    for (;;) {
        const auto found = msgs.find(current);
        if (found == msgs.end()) {
            LogWarn() << "Wardend can't find data type message " << current;
            return result;
        }
        result = found->second;
        MsgTypeHead head = ParseMsgTypeHead(result);
        if (head.type != "TYPE_REFERENCE") {
            return result;
        }
        current = std::move(head.definition);
    }
}

EventShow GetEventShow(const String& eventType) {
    EventInfoWithPubSub found;
    if (!EventInfoManage::GetInstance().QueryEventInfoByType(eventType, found)) {
        return {};
    }
    return {found.registerInfo.text, found.pubApp, found.isOnline ? "ON" : "OFF"};
}

MethodTypeNames GetMethodTypeNames(const String& methodName) {
    MethodInfoWithPubSub found;
    if (!MethodInfoManage::GetInstance().QueryMethodInfoByType(methodName, found)) {
        return {};
    }
    return {std::move(found.registerInfo.inputDatatypes),
            std::move(found.registerInfo.replyDatatypes)};
}

std::shared_ptr<const std::map<String, String>> MsgFileStore::SnapshotLocked() {
    if (dataTypeSnapshot_ == nullptr) {
        dataTypeSnapshot_ = std::make_shared<const std::map<String, String>>(dataTypeMsgs);
    }
    return dataTypeSnapshot_;
}

std::shared_ptr<const std::map<String, String>> MsgFileStore::Snapshot() {
    const std::lock_guard<std::mutex> lock(dataTypeLock);
    return SnapshotLocked();
}

EventShow MsgFileStore::QueryEventType(const String& eventType) {
    LogInfo() << "Wardend query event type";
    // Held to the end, across the event registry's lock: dataTypeLock always comes first.
    const std::lock_guard<std::mutex> lock(dataTypeLock);
    const auto msgs = SnapshotLocked();
    EventShow show = GetEventShow(eventType);
    show.dataType = ResolveDataType(show.dataType, *msgs);
    return show;
}

MethodTypeDescriptions MsgFileStore::QueryMethodType(const String& methodName) {
    LogInfo() << "Wardend query method type";
    const auto msgs = Snapshot();
    const MethodTypeNames names = GetMethodTypeNames(methodName);
    MethodTypeDescriptions descriptions;
    // An unknown type gives an empty string, so that positions stay those of the method.
    for (const String& name : names.inputDatatypes) {
        descriptions.requestTypes.push_back(ResolveDataType(name, *msgs));
    }
    LogVerbose() << "Wardend begin to load replyDatatypes";
    for (const String& name : names.replyDatatypes) {
        descriptions.replyTypes.push_back(ResolveDataType(name, *msgs));
    }
    return descriptions;
}

String MsgFileStore::QueryDataType(const String& typeName) {
    LogInfo() << "Wardend query datatype";
    const auto msgs = Snapshot();
    String text = ResolveDataType(typeName, *msgs);
    LogVerbose() << "Datatype " << typeName << " size:" << text.size();
    return text;
}

std::map<String, String> MsgFileStore::QueryAllDataType() {
    LogInfo() << "Wardend query all datatype";
    const std::lock_guard<std::mutex> lock(dataTypeLock);
    LogVerbose() << "Wardend all datatype size is " << dataTypeMsgs.size();
    return dataTypeMsgs;
}

std::map<String, std::vector<String>> MsgFileStore::QueryDataTypeRefList() {
    LogInfo() << "Wardend query referenced datatype list";
    const std::lock_guard<std::mutex> lock(refListLock);
    return dataTypeRefLists;
}

}  // namespace vesk::wardend
