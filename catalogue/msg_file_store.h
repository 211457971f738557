#ifndef CATALOGUE_MSG_FILE_STORE_H
#define CATALOGUE_MSG_FILE_STORE_H

#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/core/string.h"
#include "records/wardend_records.h"

namespace vesk::wardend {

using ara::core::String;

// The directory searched after the -p directory, compiled in.
inline constexpr const char kDefaultMsgDir[] = "/etc/vesktools/msg/";

// The two members of a .msg document that the daemon itself reads.
struct MsgTypeHead {
    String type;        // "Type"; empty when missing, not a string, or the text does not parse
    String definition;  // "Definition", read only when type is "TYPE_REFERENCE"
};

MsgTypeHead ParseMsgTypeHead(const String& json);

// The description of a type: follows "TYPE_REFERENCE" links through msgs to the end of the
// chain. A broken chain gives the text of the last link found and a warning naming the
// missing one.
String ResolveDataType(const String& name, const std::map<String, String>& msgs);

// Type names of one method, each list in the order of its registration.
struct MethodTypeNames {
    std::vector<String> inputDatatypes;
    std::vector<String> replyDatatypes;
};

MethodTypeNames GetMethodTypeNames(const String& methodName);

// What QueryMethodType answers: the descriptions in the positions of MethodTypeNames, an
// empty string for a type that is not in the catalogue.
struct MethodTypeDescriptions {
    std::vector<String> requestTypes;
    std::vector<String> replyTypes;
};

// What QueryEventShow answers of an event; all three empty for an unknown event.
struct EventShow {
    String dataType;  // its name in the catalogue; QueryEventType resolves it to the description
    String pubApp;    // the publisher's application
    String pubState;  // "ON" or "OFF"

    bool operator==(const EventShow& other) const {
        return dataType == other.dataType && pubApp == other.pubApp && pubState == other.pubState;
    }
};

// The publisher side of an event for QueryEventType.
EventShow GetEventShow(const String& eventType);

// The data type catalogue: the .msg texts of every type that a registration named, and the
// list of types each registered root is made of. Loads run on the single reader thread;
// queries on the tools service's threads. Both maps only grow.
//
// Locks: refListLock and dataTypeLock are never held together. QueryEventType calls the event
// registry with dataTypeLock held, so dataTypeLock comes before eventLock_; nothing takes them
// the other way round. QueryMethodType calls the method registry with no lock of its own held.
class MsgFileStore {
public:
    // The daemon's store: the default directory constant and the -p directory (userMsgDir).
    static MsgFileStore& GetInstance();

    // Searches kDefaultMsgDir and whatever userMsgDir holds at the time of each search.
    MsgFileStore();
    // Searches the given directories (each ending in '/'; userDir empty for none).
    MsgFileStore(String defaultDir, String userDir);
    MsgFileStore(const MsgFileStore&) = delete;
    MsgFileStore& operator=(const MsgFileStore&) = delete;

    // The text of a type's .msg file, user directory first; empty when there is none.
    String ReadMsgFile(const String& name) const;
    // Reads a registered root type and every type it refers to into the catalogue.
    void LoadDataType(const String& rootName);

    // The text of an error domain file, relativeName below each msg directory.
    String ReadErrorDomainFile(const String& relativeName) const;
    // Files a domain's description under its decimal id.
    void LoadErrorDomain(const ErrorDomainInfo& domain);

    EventShow QueryEventType(const String& eventType);
    MethodTypeDescriptions QueryMethodType(const String& methodName);
    String QueryDataType(const String& typeName);
    std::map<String, String> QueryAllDataType();
    std::map<String, std::vector<String>> QueryDataTypeRefList();

    const String& DefaultDir() const noexcept { return defaultDir_; }
    const String& UserDir() const noexcept;

private:
    // The catalogue as it stands, shared by queries until the next change. Copying a large
    // catalogue costs far more than resolving a chain, and queries outnumber changes between
    // loads. Expects dataTypeLock held.
    std::shared_ptr<const std::map<String, String>> SnapshotLocked();
    std::shared_ptr<const std::map<String, String>> Snapshot();

    const String defaultDir_;
    const String userDir_;
    const bool followsUserMsgDir_;

    std::mutex refListLock;  // guards dataTypeRefLists
    std::map<String, std::vector<String>> dataTypeRefLists;
    std::mutex dataTypeLock;  // guards dataTypeMsgs and dataTypeSnapshot_
    std::map<String, String> dataTypeMsgs;
    // A copy of dataTypeMsgs, or null after a change; never modified once made.
    std::shared_ptr<const std::map<String, String>> dataTypeSnapshot_;
};

}  // namespace vesk::wardend

#endif
