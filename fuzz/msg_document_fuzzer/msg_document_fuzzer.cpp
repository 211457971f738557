// .msg texts come from files that anybody with write access to a msg directory can change:
// the JSON document, the reference walker and the head parser must refuse garbage cleanly.
// Input: the root text, then optional referenced types as "\0name\ttext" pieces that the
// walker finds in its cache instead of on disk.

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "catalogue/msg_file_store.h"
#include "platform/json/json_parser.h"
#include "platform/msg/vesk_msg_manager.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    std::vector<std::string> pieces;
    std::size_t start = 0;
    for (std::size_t end = input.find('\0'); end != std::string::npos;
         end = input.find('\0', start)) {
        pieces.push_back(input.substr(start, end - start));
        start = end + 1;
    }
    pieces.push_back(input.substr(start));

    std::map<std::string, std::string> cache;
    for (std::size_t i = 1; i < pieces.size(); ++i) {
        const std::size_t tab = pieces[i].find('\t');
        if (tab != std::string::npos) {
            cache[pieces[i].substr(0, tab)] = pieces[i].substr(tab + 1);
        }
    }

    ara::tessel::common::jsonParser::Document document;
    if (document.ParseStringToDocument(pieces[0]) && document.HasMember("Name")) {
        (void)document["Name"].GetString();
    }
    (void)vesk::wardend::ParseMsgTypeHead(pieces[0]);

    // Directories that do not exist: every reference comes from the cache or is missing.
    vesk::VeskMsgManager::VeskMsgManager manager("/nonexistent/wardend-fuzz/", "", cache);
    std::vector<std::string> list;
    (void)manager.UpdateJsonStringList(pieces[0], list);
    return 0;
}
