#include "platform/msg/vesk_msg_manager.h"

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "platform/json/json_parser.h"
#include "platform/msg/vesk_log.h"

namespace vesk::VeskMsgManager {

namespace {

using ara::tessel::common::jsonParser::Document;
using ara::tessel::common::jsonParser::Value;

constexpr std::array<const char*, 12> kPrimitiveTypes = {
    "bool",  "uint8", "uint16", "uint32",  "uint64",  "int8",
    "int16", "int32", "int64",  "float32", "float64", "string",
};

// Keys whose string value names another type, in the order they are walked after "Members".
constexpr std::array<const char*, 4> kReferenceKeys = {"Element", "Key", "Value", "Definition"};

void AddReference(const Value& value, std::vector<String>& references) {
    if (!value.IsString()) {
        return;
    }
    String name = value.GetString();
    if (!name.empty() && !VeskMsgManager::IsPrimitiveType(name)) {
        references.push_back(std::move(name));
    }
}

// The type names a document refers to, in document order.
std::vector<String> References(const Document& document) {
    std::vector<String> references;
    const Value members = document["Members"];
    for (std::size_t i = 0; i < members.Size(); ++i) {
        AddReference(members.At(i)["Type"], references);
    }
    for (const char* key : kReferenceKeys) {
        AddReference(document[key], references);
    }
    return references;
}

}  // namespace

VeskMsgManager::VeskMsgManager(String defaultDir, String userDir,
                               std::map<String, String> jsonCache)
    : defaultDir_(std::move(defaultDir)),
      userDir_(std::move(userDir)),
      jsonCache_(std::move(jsonCache)) {
    VeskLog::InitLog();
}

String VeskMsgManager::MsgFileName(const String& typeName) {
    String fileName = typeName;
    bool firstSlashSeen = false;
    for (char& c : fileName) {
        if (c != '/') {
            continue;
        }
        if (firstSlashSeen) {
            c = '-';
        }
        firstSlashSeen = true;
    }
    return fileName + ".msg";
}

bool VeskMsgManager::IsPrimitiveType(const String& typeName) {
    return std::any_of(kPrimitiveTypes.begin(), kPrimitiveTypes.end(),
                       [&typeName](const char* primitive) { return typeName == primitive; });
}

const String& VeskMsgManager::LoadJson(const String& typeName) {
    const auto cached = jsonCache_.find(typeName);
    if (cached != jsonCache_.end()) {
        return cached->second;
    }
    const String fileName = MsgFileName(typeName);
    String text;
    if (!userDir_.empty()) {
        text = Document::ParseFileToString(userDir_ + fileName);
    }
    if (text.empty()) {
        text = Document::ParseFileToString(defaultDir_ + fileName);
    }
    if (text.empty()) {
        VeskLog::GetLog()->LogVerbose() << "VeskMsgManager found no msg file for " << typeName;
    }
    return jsonCache_.emplace(typeName, std::move(text)).first->second;
}

bool VeskMsgManager::UpdateJsonStringList(const String& json, std::vector<String>& list) {
    if (json.empty()) {
        // The caller found no file for the root; it has said so already.
        VeskLog::GetLog()->LogVerbose() << "VeskMsgManager got an empty root msg";
        return false;
    }
    Document root;
    if (!root.ParseStringToDocument(json)) {
        VeskLog::GetLog()->LogWarn()
            << "VeskMsgManager cannot parse root msg of size " << json.size();
        return false;
    }
    std::set<String> listed(list.begin(), list.end());

    // Depth first with an explicit stack, so that a long chain of types cannot exhaust the
    // thread's stack. Children are pushed in reverse so that they pop in document order.
    std::vector<String> pending;
    const auto pushReferences = [&pending](const Document& document) {
        const std::vector<String> references = References(document);
        pending.insert(pending.end(), references.rbegin(), references.rend());
    };

    const Value rootName = root["Name"];
    if (rootName.IsString() && !rootName.GetString().empty()) {
        const String name = rootName.GetString();
        if (!listed.insert(name).second) {
            return true;
        }
        list.push_back(name);
        jsonCache_.emplace(name, json);
    } else {
        VeskLog::GetLog()->LogWarn() << "VeskMsgManager root msg has no Name";
    }
    pushReferences(root);

    while (!pending.empty()) {
        const String name = std::move(pending.back());
        pending.pop_back();
        if (!listed.insert(name).second) {
            continue;
        }
        list.push_back(name);
        const String& text = LoadJson(name);
        if (text.empty()) {
            continue;
        }
        Document document;
        if (!document.ParseStringToDocument(text)) {
            VeskLog::GetLog()->LogWarn() << "VeskMsgManager cannot parse msg of " << name;
            continue;
        }
        pushReferences(document);
    }
    return true;
}

}  // namespace vesk::VeskMsgManager
