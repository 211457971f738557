#ifndef TESTS_SUPPORT_MSG_DOCUMENTS_H
#define TESTS_SUPPORT_MSG_DOCUMENTS_H

// .msg documents for the tests of the catalogue and of the .msg walker.

#include <string>
#include <vector>

namespace wardend::test {

// A struct document named name whose members have the given types.
inline std::string Struct(const std::string& name, const std::vector<std::string>& types) {
    std::string json = R"({"Name": ")" + name + R"(", "Type": "TYPE_STRUCT", "Members": [)";
    for (std::size_t i = 0; i < types.size(); ++i) {
        json += std::string(i == 0 ? "" : ", ") + R"({"Name": "m", "Type": ")" + types[i] + "\"}";
    }
    return json + "]}";
}

inline std::string Alias(const std::string& name, const std::string& definition) {
    return R"({"Name": ")" + name + R"(", "Type": "TYPE_REFERENCE", "Definition": ")" + definition +
           "\"}";
}

}  // namespace wardend::test

#endif
