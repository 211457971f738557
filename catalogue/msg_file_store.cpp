#include "catalogue/msg_file_store.h"

#include <cstdio>
#include <utility>

#include "catalogue/user_msg_dir.h"
#include "platform/json/json_parser.h"
#include "platform/msg/vesk_msg_manager.h"
#include "records/wardend_log.h"

namespace vesk::wardend {

namespace {

using ara::tessel::common::jsonParser::Document;

// A name from a registration must not reach a file outside the msg directories. The directory
// is put in front of every file name, so a leading '/' stays inside it; what leaves it is a ".."
// segment, and a NUL would cut the path short of what was checked.
bool LeavesMsgDirectory(const String& fileName) {
    if (fileName.find('\0') != String::npos) {
        return true;
    }
    std::size_t start = 0;
    while (start <= fileName.size()) {
        std::size_t end = fileName.find('/', start);
        if (end == String::npos) {
            end = fileName.size();
        }
        if (fileName.compare(start, end - start, "..") == 0) {
            return true;
        }
        start = end + 1;
    }
    return false;
}

// The refused name for the log: control bytes (a NUL among them) as \xNN.
String Printable(const String& name) {
    String text;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) {
            char escaped[8];
            std::snprintf(escaped, sizeof(escaped), "\\x%02X", byte);
            text += escaped;
        } else {
            text += c;
        }
    }
    return text;
}

bool RefuseEscape(const String& fileName) {
    if (!LeavesMsgDirectory(fileName)) {
        return false;
    }
    LogWarn() << "Wardend refuses msg file " << Printable(fileName)
              << ": it would leave the msg directories";
    return true;
}

String StringMember(const Document& document, const char* key) {
    if (!document.HasMember(key) || !document[key].IsString()) {
        return {};
    }
    return document[key].GetString();
}

}  // namespace

MsgTypeHead ParseMsgTypeHead(const String& json) {
    MsgTypeHead head;
    Document document;
    if (!document.ParseStringToDocument(json)) {
        return head;
    }
    head.type = StringMember(document, "Type");
    if (head.type == "TYPE_REFERENCE") {
        head.definition = StringMember(document, "Definition");
    }
    return head;
}

MsgFileStore& MsgFileStore::GetInstance() {
    static MsgFileStore store;
    return store;
}

MsgFileStore::MsgFileStore() : defaultDir_(kDefaultMsgDir), followsUserMsgDir_(true) {}

MsgFileStore::MsgFileStore(String defaultDir, String userDir)
    : defaultDir_(std::move(defaultDir)), userDir_(std::move(userDir)), followsUserMsgDir_(false) {}

const String& MsgFileStore::UserDir() const noexcept {
    // userMsgDir is written once by main before any thread runs, so it is read without a lock.
    return followsUserMsgDir_ ? userMsgDir : userDir_;
}

String MsgFileStore::ReadMsgFile(const String& name) const {
    const String fileName = VeskMsgManager::VeskMsgManager::MsgFileName(name);
    if (RefuseEscape(fileName)) {
        return {};
    }
    const String& userDir = UserDir();
    if (!userDir.empty()) {
        const String path = userDir + fileName;
        String text = Document::ParseFileToString(path);
        LogVerbose() << "Search msg from userset dir " << path << " size:" << text.size();
        if (!text.empty()) {
            return text;
        }
        LogVerbose() << "Wardend cannot find msg file in userset dir";
    }
    const String path = defaultDir_ + fileName;
    String text = Document::ParseFileToString(path);
    LogVerbose() << "Search msg from default dir " << path << " size:" << text.size();
    if (text.empty()) {
        LogWarn() << "Wardend cannot find msg file in default dir";
    }
    return text;
}

void MsgFileStore::LoadDataType(const String& rootName) {
    const String json = ReadMsgFile(rootName);
    std::vector<String> list;
    VeskMsgManager::VeskMsgManager manager(defaultDir_, UserDir(), {});
    // Called on an empty text too: the manager decides what that lists.
    manager.UpdateJsonStringList(json, list);
    {
        const std::lock_guard<std::mutex> lock(refListLock);
        dataTypeRefLists[rootName] = list;
    }
    // The files are read again under the lock, so that a query never sees half a load.
    const std::lock_guard<std::mutex> lock(dataTypeLock);
    dataTypeSnapshot_.reset();
    for (const String& name : list) {
        dataTypeMsgs[name] = ReadMsgFile(name);
    }
}

String MsgFileStore::ReadErrorDomainFile(const String& relativeName) const {
    if (RefuseEscape(relativeName)) {
        return {};
    }
    const String defaultPath = defaultDir_ + relativeName;
    const String& userDir = UserDir();
    if (!userDir.empty()) {
        const String path = userDir + relativeName;
        String text = Document::ParseFileToString(path);
        LogVerbose() << "Try to read " << path;
        if (!text.empty()) {
            return text;
        }
        LogVerbose() << "Read " << path << " failed";
    }
    String text = Document::ParseFileToString(defaultPath);
    LogVerbose() << "Try to search " << relativeName << " from default directory " << defaultDir_;
    if (text.empty()) {
        LogWarn() << "Wardend cannot find error code msg file in default dir " << relativeName;
    }
    return text;
}

void MsgFileStore::LoadErrorDomain(const ErrorDomainInfo& domain) {
    char key[32];
    std::snprintf(key, sizeof(key), "%lu", static_cast<unsigned long>(domain.id));
    const String fileName = String("errors/error_domain-") + key + "-" + domain.name + ".msg";
    String text = ReadErrorDomainFile(fileName);
    const std::vector<String> list{key};
    {
        const std::lock_guard<std::mutex> lock(refListLock);
        dataTypeRefLists[key] = list;
    }
    const std::lock_guard<std::mutex> lock(dataTypeLock);
    dataTypeSnapshot_.reset();
    dataTypeMsgs[key] = std::move(text);
}

}  // namespace vesk::wardend
