#ifndef PLATFORM_MSG_VESK_MSG_MANAGER_H
#define PLATFORM_MSG_VESK_MSG_MANAGER_H

#include <map>
#include <vector>

#include "platform/core/string.h"

namespace vesk::VeskMsgManager {

using ara::core::String;

// Lists the types that make up a root type, by walking the references of its .msg document
// and of every document it reaches.
//
// A .msg document names its own type in "Name" and refers to other types through "Members"
// (an array of objects, each with a "Type"), "Element", "Key", "Value" and "Definition".
// Primitive names (bool, uint8 ... int64, float32, float64, string) have no file and are not
// listed. A referenced type is read from <dir><file name> where the file name keeps the first
// '/' of the type name, turns every later '/' into '-' and ends in ".msg"; the user directory
// is tried first, and an empty or missing file there falls back to the default directory.
//
// Not thread-safe: one manager per walk, as the daemon makes one per load.
class VeskMsgManager {
public:
    // Both directories end in '/'; userDir may be empty. jsonCache is the manager's store of
    // texts by type name: a name found in it is not read from disk, and every text read is
    // added (an empty text for a type that has no file).
    VeskMsgManager(String defaultDir, String userDir, std::map<String, String> jsonCache);

    // Appends to list the root's "Name", then every non-primitive type reached from the root,
    // depth first in document order, each name once; a name that list already holds counts
    // as reached. A type whose file is missing or does not parse is listed but not walked,
    // so a cycle ends the walk. False when json is not a document.
    bool UpdateJsonStringList(const String& json, std::vector<String>& list);

    const std::map<String, String>& JsonCache() const noexcept { return jsonCache_; }

    // The file name of a type below a msg directory: the first '/' stays, every later one becomes
    // '-'. "/Norvane/AP/Speed" is "/Norvane-AP-Speed.msg", "a/b/c" is "b-c.msg" in "a".
    static String MsgFileName(const String& typeName);
    static bool IsPrimitiveType(const String& typeName);

private:
    // The text of a referenced type, from the cache or from disk.
    const String& LoadJson(const String& typeName);

    String defaultDir_;
    String userDir_;
    std::map<String, String> jsonCache_;
};

}  // namespace vesk::VeskMsgManager

#endif
