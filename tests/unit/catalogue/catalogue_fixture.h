#ifndef TESTS_UNIT_CATALOGUE_CATALOGUE_FIXTURE_H
#define TESTS_UNIT_CATALOGUE_CATALOGUE_FIXTURE_H

#include <memory>
#include <string>
#include <vector>

#include "catalogue/msg_file_store.h"
#include "tests/support/memory_log.h"
#include "tests/support/temp_dir.h"

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

// A store over two fresh directories, "user" (as with -p) and "default", with the log in memory.
class CatalogueTest : public MemoryLogTest {
protected:
    void SetUp() override {
        MemoryLogTest::SetUp();
        store_ = std::make_unique<vesk::wardend::MsgFileStore>(defaultDir_.Path() + "/",
                                                               userDir_.Path() + "/");
    }

    TempDir userDir_;
    TempDir defaultDir_;
    std::unique_ptr<vesk::wardend::MsgFileStore> store_;
};

}  // namespace wardend::test

#endif
